#include "io/yuv_convert.h"

#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <vector>

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace cli {

namespace {

bool isBt601(int colorSpace) {
  switch (colorSpace) {
    case AVCOL_SPC_BT709:
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL:
    case AVCOL_SPC_FCC:
    case AVCOL_SPC_SMPTE240M: return false;
    default: return true;
  }
}

// BT.601, the matrix swscale also takes for unspecified and unknown ones
// (see swsColorspace in video.cpp), in the swapped-chroma form that, with U
// and V passed the other way round, turns libyuv's A, B, G, R byte order
// (its "RGBA") into A, R, G, B. Its BT.709 and BT.2020 tables are left
// alone: they hold the blue coefficient to what its 8-bit vector multiplies
// take, which here put strong blues up to 16 levels off swscale's (and the
// standard's).
const libyuv::YuvConstants* argbConstants(int colorSpace, bool full) {
  if (!isBt601(colorSpace)) return nullptr;
  return full ? &libyuv::kYvuJPEGConstants : &libyuv::kYvuI601Constants;
}

bool positiveStrides(const AVFrame* f) { return f->linesize[0] > 0 && f->linesize[1] > 0 && f->linesize[2] > 0; }

}  // namespace

bool yuv420ToArgb(const AVFrame* f, int colorSpace, int colorRange, uint8_t* argb, size_t rowBytes) {
  if (f->format != AV_PIX_FMT_YUV420P && f->format != AV_PIX_FMT_YUVJ420P) return false;
  if (!positiveStrides(f) || f->width <= 0 || f->height <= 0) return false;
  const bool full = colorRange == AVCOL_RANGE_JPEG;
  const libyuv::YuvConstants* k = argbConstants(colorSpace, full);
  if (!k) return false;
  // Each chroma sample serves its 2 x 2 pixels, as in swscale's converter
  // for frames that keep their size.
  return libyuv::I420ToRGBAMatrix(f->data[0], f->linesize[0], f->data[2], f->linesize[2], f->data[1], f->linesize[1],
                                  argb, static_cast<int>(rowBytes), k, f->width, f->height) == 0;
}

bool rgbToYuv420(const uint8_t* pixels, size_t rowBytes, bool argbOrder, int colorSpace, int colorRange,
                 AVFrame* f) {
  if (f->format != AV_PIX_FMT_YUV420P || !positiveStrides(f) || f->width <= 0 || f->height <= 0) return false;
  if (!isBt601(colorSpace) || colorRange == AVCOL_RANGE_JPEG) return false;
  // libyuv names formats by their order in a little-endian word: its "BGRA"
  // is A, R, G, B in memory and its "ABGR" is R, G, B, A.
  const int stride = static_cast<int>(rowBytes);
  if (!argbOrder)
    return libyuv::ABGRToI420(pixels, stride, f->data[0], f->linesize[0], f->data[1], f->linesize[1], f->data[2],
                              f->linesize[2], f->width, f->height) == 0;
  // Host pixels: libyuv's "BGRA" functions would take them as they are, but
  // only in SSSE3, while its "ABGR" ones have AVX2. Reordering a strip of rows
  // at a time into R, G, B, A, in a buffer that stays in the L1 cache, and
  // converting that is the faster way round.
  static const uint8_t kToRgba[16] = {1, 2, 3, 0, 5, 6, 7, 4, 9, 10, 11, 8, 13, 14, 15, 12};
  constexpr int kStripRows = 2;  // even, so each strip holds whole chroma rows
  const int stripStride = f->width * 4;
  std::vector<uint8_t> strip(static_cast<size_t>(stripStride) * kStripRows);
  for (int y = 0; y < f->height; y += kStripRows) {
    const int rows = std::min(kStripRows, f->height - y);
    if (libyuv::ARGBShuffle(pixels + static_cast<size_t>(y) * rowBytes, stride, strip.data(), stripStride, kToRgba,
                            f->width, rows) != 0 ||
        libyuv::ABGRToI420(strip.data(), stripStride, f->data[0] + static_cast<ptrdiff_t>(y) * f->linesize[0],
                           f->linesize[0], f->data[1] + static_cast<ptrdiff_t>(y / 2) * f->linesize[1], f->linesize[1],
                           f->data[2] + static_cast<ptrdiff_t>(y / 2) * f->linesize[2], f->linesize[2], f->width,
                           rows) != 0)
      return false;
  }
  return true;
}

}  // namespace cli
