// libyuv's 4:2:0 conversions against swscale's, which the command uses for
// every other format: the same matrix and range must give the same colours
// (within the rounding of the two libraries), the refused cases must leave
// the work to swscale, and both pixel orders must give the same planes.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "io/yuv_convert.h"

namespace {

struct FrameFree {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
using FramePtr = std::unique_ptr<AVFrame, FrameFree>;

// Odd sizes: half-width chroma rounds up, and no row is a multiple of the
// vector width.
constexpr int kW = 37, kH = 23;

// The two libraries' fixed-point arithmetic rounds differently: up to 4
// levels apart on the same colour. A misplaced or swapped chroma sample
// moves a colour by far more.
constexpr int kRounding = 4;

FramePtr yuvFrame(AVPixelFormat format) {
  FramePtr f(av_frame_alloc());
  f->format = format;
  f->width = kW;
  f->height = kH;
  EXPECT_EQ(av_frame_get_buffer(f.get(), 0), 0);
  return f;
}

// Luma across the whole code range (out-of-range codes included), chroma
// the same everywhere: the colours then depend on the matrix and the range
// alone, not on where each library places its chroma samples (swscale and
// libyuv interpolate at different phases).
FramePtr flatChromaFrame(AVPixelFormat format, uint8_t u, uint8_t v) {
  FramePtr f = yuvFrame(format);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      f->data[0][y * f->linesize[0] + x] = static_cast<uint8_t>((y * kW + x) * 255 / (kW * kH - 1));
  for (int y = 0; y < (kH + 1) / 2; ++y)
    for (int x = 0; x < (kW + 1) / 2; ++x) {
      f->data[1][y * f->linesize[1] + x] = u;
      f->data[2][y * f->linesize[2] + x] = v;
    }
  return f;
}

void setDetails(SwsContext* s, bool srcRgb, int space, bool full) {
  const int swsSpace = space == AVCOL_SPC_BT709                                         ? SWS_CS_ITU709
                       : space == AVCOL_SPC_BT2020_NCL || space == AVCOL_SPC_BT2020_CL ? SWS_CS_BT2020
                                                                                       : SWS_CS_DEFAULT;
  const int* c = sws_getCoefficients(swsSpace);
  sws_setColorspaceDetails(s, c, srcRgb ? 1 : full, c, srcRgb ? full : 1, 0, 1 << 16, 1 << 16);
}

std::vector<uint8_t> swsToArgb(const AVFrame* f, int space, bool full) {
  std::vector<uint8_t> out(static_cast<size_t>(kW) * kH * 4);
  SwsContext* s = sws_getContext(kW, kH, static_cast<AVPixelFormat>(f->format), kW, kH, AV_PIX_FMT_ARGB,
                                 SWS_BILINEAR, nullptr, nullptr, nullptr);
  setDetails(s, false, space, full);
  uint8_t* dst[4] = {out.data(), nullptr, nullptr, nullptr};
  int stride[4] = {kW * 4, 0, 0, 0};
  sws_scale(s, f->data, f->linesize, 0, kH, dst, stride);
  sws_freeContext(s);
  return out;
}

int maxDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  int worst = 0;
  for (size_t i = 0; i < a.size(); ++i) worst = std::max(worst, std::abs(a[i] - b[i]));
  return worst;
}

TEST(YuvConvert, DecodingMatchesSwscaleForBt601AndWhatSwscaleTakesAsIt) {
  struct Case {
    AVPixelFormat format;
    int space;
    bool full;
  };
  const Case cases[] = {{AV_PIX_FMT_YUV420P, AVCOL_SPC_UNSPECIFIED, false},
                        {AV_PIX_FMT_YUV420P, AVCOL_SPC_SMPTE170M, false},
                        {AV_PIX_FMT_YUV420P, AVCOL_SPC_BT470BG, true},
                        {AV_PIX_FMT_YUVJ420P, AVCOL_SPC_UNSPECIFIED, true},
                        {AV_PIX_FMT_YUV420P, AVCOL_SPC_RGB, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "space " << c.space << " full " << c.full << " format " << c.format);
    for (const uint8_t u : {16, 70, 128, 200, 240})
      for (const uint8_t v : {16, 100, 128, 180, 240}) {
        FramePtr f = flatChromaFrame(c.format, u, v);
        std::vector<uint8_t> fast(static_cast<size_t>(kW) * kH * 4, 7);
        ASSERT_TRUE(cli::yuv420ToArgb(f.get(), c.space, c.full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG, fast.data(),
                                      static_cast<size_t>(kW) * 4));
        const std::vector<uint8_t> slow = swsToArgb(f.get(), c.space, c.full);
        for (size_t i = 0; i < fast.size(); i += 4) ASSERT_EQ(fast[i], 255) << "alpha of pixel " << i / 4;
        EXPECT_LE(maxDifference(fast, slow), kRounding) << "u " << int(u) << " v " << int(v);
      }
  }
}

TEST(YuvConvert, OtherMatricesAndFormatsAreLeftToSwscale) {
  std::vector<uint8_t> out(static_cast<size_t>(kW) * kH * 4);
  FramePtr f = flatChromaFrame(AV_PIX_FMT_YUV420P, 90, 160);
  for (int space : {AVCOL_SPC_BT709, AVCOL_SPC_BT2020_NCL, AVCOL_SPC_BT2020_CL, AVCOL_SPC_FCC, AVCOL_SPC_SMPTE240M})
    for (int range : {AVCOL_RANGE_MPEG, AVCOL_RANGE_JPEG})
      EXPECT_FALSE(cli::yuv420ToArgb(f.get(), space, range, out.data(), kW * 4)) << space << " " << range;
  FramePtr other = yuvFrame(AV_PIX_FMT_YUV444P);
  EXPECT_FALSE(cli::yuv420ToArgb(other.get(), AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, out.data(), kW * 4));

  std::vector<uint8_t> px(static_cast<size_t>(kW) * kH * 4, 100);
  EXPECT_FALSE(cli::rgbToYuv420(px.data(), kW * 4, true, AVCOL_SPC_BT709, AVCOL_RANGE_MPEG, f.get()));
  EXPECT_FALSE(cli::rgbToYuv420(px.data(), kW * 4, true, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_JPEG, f.get()));
  EXPECT_FALSE(cli::rgbToYuv420(px.data(), kW * 4, true, AVCOL_SPC_BT2020_NCL, AVCOL_RANGE_MPEG, f.get()));
  EXPECT_FALSE(cli::rgbToYuv420(px.data(), kW * 4, true, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_MPEG, other.get()));
}

// swscale's planes of ARGB pixels (BT.601, limited range).
FramePtr swsFromArgb(const std::vector<uint8_t>& argb) {
  FramePtr out = yuvFrame(AV_PIX_FMT_YUV420P);
  SwsContext* s = sws_getContext(kW, kH, AV_PIX_FMT_ARGB, kW, kH, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr,
                                 nullptr, nullptr);
  setDetails(s, true, AVCOL_SPC_UNSPECIFIED, false);
  const uint8_t* src[4] = {argb.data(), nullptr, nullptr, nullptr};
  const int stride[4] = {kW * 4, 0, 0, 0};
  sws_scale(s, src, stride, 0, kH, out->data, out->linesize);
  sws_freeContext(s);
  return out;
}

int planeWidth(int plane) { return plane == 0 ? kW : (kW + 1) / 2; }
int planeHeight(int plane) { return plane == 0 ? kH : (kH + 1) / 2; }

// Flat colours: every sample of every plane must be swscale's value for the
// colour (read at the top-left sample: swscale's own last chroma sample of
// an odd-sized frame is off, 100 instead of 90 for pure red's U here).
TEST(YuvConvert, EncodingFlatColoursMatchesSwscale) {
  const uint8_t colours[][3] = {{0, 0, 0},     {255, 255, 255}, {255, 0, 0},   {0, 255, 0},
                                {0, 0, 255},   {200, 120, 40},  {17, 99, 230}, {128, 128, 128}};
  for (const auto& c : colours) {
    std::vector<uint8_t> argb(static_cast<size_t>(kW) * kH * 4);
    for (size_t i = 0; i < argb.size(); i += 4) argb[i] = 90, argb[i + 1] = c[0], argb[i + 2] = c[1], argb[i + 3] = c[2];
    FramePtr fast = yuvFrame(AV_PIX_FMT_YUV420P);
    ASSERT_TRUE(cli::rgbToYuv420(argb.data(), kW * 4, true, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED,
                                 fast.get()));
    FramePtr slow = swsFromArgb(argb);
    for (int plane = 0; plane < 3; ++plane)
      for (int y = 0; y < planeHeight(plane); ++y)
        for (int x = 0; x < planeWidth(plane); ++x)
          ASSERT_LE(std::abs(fast->data[plane][y * fast->linesize[plane] + x] - slow->data[plane][0]), 1)
              << "colour " << int(c[0]) << "," << int(c[1]) << "," << int(c[2]) << " plane " << plane << " at " << x
              << "," << y;
  }
}

// Varied pixels: luma as swscale's; each chroma sample the BT.601 value of
// the mean colour of the pixels it covers (one to four at the odd edges),
// computed here; and the same planes from A, R, G, B and R, G, B, A pixels.
TEST(YuvConvert, EncodingVariedPixelsInBothOrders) {
  std::vector<uint8_t> argb(static_cast<size_t>(kW) * kH * 4), rgba(argb.size());
  uint32_t seed = 12345;
  for (size_t i = 0; i < argb.size(); i += 4) {
    uint8_t v[4];
    for (uint8_t& b : v) {
      seed = seed * 1664525u + 1013904223u;
      b = static_cast<uint8_t>(seed >> 24);
    }
    argb[i] = v[0], argb[i + 1] = v[1], argb[i + 2] = v[2], argb[i + 3] = v[3];
    rgba[i] = v[1], rgba[i + 1] = v[2], rgba[i + 2] = v[3], rgba[i + 3] = v[0];
  }
  FramePtr fromArgb = yuvFrame(AV_PIX_FMT_YUV420P), fromRgba = yuvFrame(AV_PIX_FMT_YUV420P);
  ASSERT_TRUE(cli::rgbToYuv420(argb.data(), kW * 4, true, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED,
                               fromArgb.get()));
  ASSERT_TRUE(cli::rgbToYuv420(rgba.data(), kW * 4, false, AVCOL_SPC_SMPTE170M, AVCOL_RANGE_MPEG, fromRgba.get()));
  for (int plane = 0; plane < 3; ++plane)
    for (int y = 0; y < planeHeight(plane); ++y)
      for (int x = 0; x < planeWidth(plane); ++x)
        ASSERT_EQ(fromArgb->data[plane][y * fromArgb->linesize[plane] + x],
                  fromRgba->data[plane][y * fromRgba->linesize[plane] + x])
            << "plane " << plane << " at " << x << "," << y;

  FramePtr slow = swsFromArgb(argb);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x)
      ASSERT_LE(std::abs(fromArgb->data[0][y * fromArgb->linesize[0] + x] - slow->data[0][y * slow->linesize[0] + x]),
                1)
          << "luma at " << x << "," << y;

  for (int cy = 0; cy < planeHeight(1); ++cy)
    for (int cx = 0; cx < planeWidth(1); ++cx) {
      double r = 0, g = 0, b = 0;
      int n = 0;
      for (int y = 2 * cy; y < std::min(2 * cy + 2, kH); ++y)
        for (int x = 2 * cx; x < std::min(2 * cx + 2, kW); ++x, ++n) {
          const uint8_t* p = &argb[(static_cast<size_t>(y) * kW + x) * 4];
          r += p[1], g += p[2], b += p[3];
        }
      r /= n, g /= n, b /= n;
      const double u = 128 + (-0.148 * r - 0.291 * g + 0.439 * b);
      const double v = 128 + (0.439 * r - 0.368 * g - 0.071 * b);
      EXPECT_LE(std::abs(fromArgb->data[1][cy * fromArgb->linesize[1] + cx] - u), 1.5) << "U at " << cx << "," << cy;
      EXPECT_LE(std::abs(fromArgb->data[2][cy * fromArgb->linesize[2] + cx] - v), 1.5) << "V at " << cx << "," << cy;
    }
}

// Chroma that changes at every sample, on an even-sized frame: each chroma
// sample must serve its own 2 x 2 pixels, as swscale's converter does.
TEST(YuvConvert, DecodingPlacesChromaAsSwscaleDoes) {
  FramePtr f(av_frame_alloc());
  f->format = AV_PIX_FMT_YUV420P;
  f->width = kW - 1;
  f->height = kH - 1;
  ASSERT_EQ(av_frame_get_buffer(f.get(), 0), 0);
  for (int y = 0; y < f->height; ++y)
    for (int x = 0; x < f->width; ++x) f->data[0][y * f->linesize[0] + x] = static_cast<uint8_t>(40 + 5 * x + 3 * y);
  for (int y = 0; y < f->height / 2; ++y)
    for (int x = 0; x < f->width / 2; ++x) {
      f->data[1][y * f->linesize[1] + x] = static_cast<uint8_t>((x + y) % 2 ? 60 : 200);
      f->data[2][y * f->linesize[2] + x] = static_cast<uint8_t>(x % 3 ? 90 : 170);
    }
  const size_t rowBytes = static_cast<size_t>(f->width) * 4;
  std::vector<uint8_t> fast(rowBytes * f->height), slow(fast.size());
  ASSERT_TRUE(cli::yuv420ToArgb(f.get(), AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_MPEG, fast.data(), rowBytes));
  SwsContext* s = sws_getContext(f->width, f->height, AV_PIX_FMT_YUV420P, f->width, f->height, AV_PIX_FMT_ARGB,
                                 SWS_BILINEAR, nullptr, nullptr, nullptr);
  setDetails(s, false, AVCOL_SPC_UNSPECIFIED, false);
  uint8_t* dst[4] = {slow.data(), nullptr, nullptr, nullptr};
  int stride[4] = {static_cast<int>(rowBytes), 0, 0, 0};
  sws_scale(s, f->data, f->linesize, 0, f->height, dst, stride);
  sws_freeContext(s);
  EXPECT_LE(maxDifference(fast, slow), kRounding);
}

}  // namespace
