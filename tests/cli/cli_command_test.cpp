// `tesselux render` on inputs made at test time (by the project's own writers
// and the ffmpeg tool): each output, read back, equals the same frames
// rendered directly through the headless host's render API.
#include <gtest/gtest.h>

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "cli_test_support.h"
#include "demo_clip.h"
#include "exported_symbols.h"
#include "frame_cache.h"
#include "io/media.h"

namespace {

using cli::Picture;
using cli::SampleType;
using cli_test::Scratch;

const std::string kCli = TESSELUX_CLI;

bool haveFfmpeg() { return cli_test::shell("ffmpeg -version >/dev/null 2>&1") == 0; }

cli_test::RunResult tesselux(const Scratch& s, std::vector<std::string> args) {
  args.insert(args.begin(), "render");
  args.push_back("--quiet");
  return cli_test::run(kCli, args, s.path());
}

// A picture of the given type made from the demo clip's frame k.
Picture sample(int k, int w, int h, SampleType type, int frames = 8) {
  return cli::convert(cli::demoFrame(k, w, h, frames), type);
}

void writeSequence(const std::string& pattern, int frames, int w, int h, SampleType type = SampleType::U8) {
  for (int k = 0; k < frames; ++k) cli::writeImage(cli::sequenceName(pattern, k), sample(k, w, h, type, frames));
}

std::vector<Picture> readAll(const std::string& path) {
  auto src = cli::openSource(path);
  std::vector<Picture> out;
  for (int k = 0; k < src->frameCount(); ++k) out.push_back(src->read(k));
  return out;
}

struct Reference {
  thost::App app = thost::App::AfterEffects;
  std::optional<thost::Depth> depth;  // default: the input's
  thost::ControlValues controls;
  std::string mask;
  cli::Rate rate{30, 1};
  PF_RationalScale downsample{1, 1};
  bool align = false;
};

// Frames first..last of `input` rendered through RenderHost directly, as
// pictures of `outType`.
std::vector<Picture> reference(const std::string& input, SampleType outType, int first, int last,
                               Reference ref = {}) {
  thost::RenderHost::Options o;
  o.app = ref.app;
  thost::RenderHost host(o);
  auto src = cli::openSource(input);
  const cli::Rate rate = src->rate().value_or(ref.rate);
  const thost::Depth depth = ref.depth.value_or(cli::autoDepth(src->sampleType()));
  const auto size0 = src->frameSize(0);
  thost::RenderRequest req;
  req.layer = std::make_shared<cli::SourceClip>(std::move(src), 64u << 20);
  if (!ref.mask.empty()) req.mask = std::make_shared<cli::SourceClip>(cli::openSource(ref.mask), 64u << 20);
  req.depth = depth;
  req.time = thost::TimeBase::fromRate(rate.num, rate.den);
  req.controls = ref.controls;
  req.downsampleX = req.downsampleY = ref.downsample;
  if (ref.align) {
    const double bw = ref.controls.count(2) ? ref.controls.at(2) : 32.0;
    const double bh = ref.controls.count(3) ? ref.controls.at(3) : 32.0;
    const auto [w, h] = host.align(bw, bh, size0.first, size0.second);
    req.controls[2] = w;
    req.controls[3] = h;
  }
  std::vector<Picture> out;
  for (int k = first; k <= last; ++k) {
    req.frame = k;
    thost::RenderResult r = host.render(req);
    EXPECT_EQ(r.err, PF_Err_NONE) << "frame " << k;
    EXPECT_TRUE(r.breaks.empty()) << "frame " << k;
    out.push_back(cli::fromHost(r.output, outType));
  }
  return out;
}

void expectSame(const std::vector<Picture>& got, const std::vector<Picture>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].width, want[i].width) << "frame " << i;
    EXPECT_EQ(got[i].height, want[i].height) << "frame " << i;
    EXPECT_EQ(got[i].type, want[i].type) << "frame " << i;
    EXPECT_TRUE(got[i].data == want[i].data) << "frame " << i << " differs";
  }
}

// For lossy video: the mean absolute difference of each colour channel, per
// frame, at most `levels` (8-bit), and alpha full.
void expectClose(const std::vector<Picture>& got, const std::vector<Picture>& want, double levels) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i].width, want[i].width) << "frame " << i;
    ASSERT_EQ(got[i].height, want[i].height) << "frame " << i;
    ASSERT_EQ(got[i].type, SampleType::U8);
    ASSERT_EQ(want[i].type, SampleType::U8);
    double sum[3] = {0, 0, 0};
    const size_t n = static_cast<size_t>(got[i].width) * static_cast<size_t>(got[i].height);
    for (size_t p = 0; p < n; ++p) {
      for (int c = 0; c < 3; ++c) sum[c] += std::abs(got[i].data[p * 4 + c] - want[i].data[p * 4 + c]);
      ASSERT_EQ(got[i].data[p * 4 + 3], 255) << "frame " << i << " pixel " << p;
    }
    for (int c = 0; c < 3; ++c)
      EXPECT_LE(sum[c] / static_cast<double>(n), levels) << "frame " << i << " channel " << "RGB"[c];
  }
}

// The payload bytes of every audio packet, in order.
std::vector<std::string> audioPackets(const std::string& path) {
  AVFormatContext* fmt = nullptr;
  std::vector<std::string> out;
  if (avformat_open_input(&fmt, path.c_str(), nullptr, nullptr) < 0) return out;
  avformat_find_stream_info(fmt, nullptr);
  AVPacket* pkt = av_packet_alloc();
  while (av_read_frame(fmt, pkt) >= 0) {
    if (fmt->streams[pkt->stream_index]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
      out.emplace_back(reinterpret_cast<const char*>(pkt->data), static_cast<size_t>(pkt->size));
    av_packet_unref(pkt);
  }
  av_packet_free(&pkt);
  avformat_close_input(&fmt);
  return out;
}

const std::vector<std::string> kDefaults;

TEST(RenderCommand, StillsAtEightSixteenAndFloat) {
  Scratch s;
  cli::writeImage(s / "in8.png", sample(0, 64, 48, SampleType::U8));
  cli::writeImage(s / "in16.tif", sample(1, 64, 48, SampleType::U16));
  cli::writeImage(s / "in32.exr", sample(2, 64, 48, SampleType::F32));
  ASSERT_EQ(tesselux(s, {s / "in8.png", "-o", s / "out8.png"}).status, 0);
  ASSERT_EQ(tesselux(s, {s / "in16.tif", "-o", s / "out16.tif"}).status, 0);
  ASSERT_EQ(tesselux(s, {s / "in32.exr", "-o", s / "out32.exr"}).status, 0);
  expectSame(readAll(s / "out8.png"), reference(s / "in8.png", SampleType::U8, 0, 0));
  expectSame(readAll(s / "out16.tif"), reference(s / "in16.tif", SampleType::U16, 0, 0));
  expectSame(readAll(s / "out32.exr"), reference(s / "in32.exr", SampleType::F32, 0, 0));
  // An explicit depth; PNG holds 16 bits at most.
  ASSERT_EQ(tesselux(s, {s / "in8.png", "-o", s / "f.png", "--depth", "32"}).status, 0);
  Reference r;
  r.depth = thost::Depth::Float32;
  expectSame(readAll(s / "f.png"), reference(s / "in8.png", SampleType::U16, 0, 0, r));
  ASSERT_EQ(tesselux(s, {s / "in16.tif", "-o", s / "e.tif", "--depth", "8"}).status, 0);
  r.depth = thost::Depth::Bits8;
  expectSame(readAll(s / "e.tif"), reference(s / "in16.tif", SampleType::U8, 0, 0, r));
}

TEST(RenderCommand, SequenceOfMixedSizesKeepsEachFramesSize) {
  Scratch s;
  std::filesystem::create_directory(s / "in");
  std::filesystem::create_directory(s / "out");
  // Numbering starts at the first existing number (a gap is refused).
  const int sizes[][2] = {{64, 48}, {40, 30}, {64, 48}, {72, 40}, {64, 48}};
  for (int k = 0; k < 5; ++k)
    cli::writeImage(cli::sequenceName(s / "in/f%03d.png", k + 3), sample(k, sizes[k][0], sizes[k][1], SampleType::U8));
  const std::vector<std::string> controls{"--time-frames", "4", "--time-probability", "80", "--stepping-unit",
                                          "frame", "--time-step-frames", "1", "--strength", "0.5"};
  std::vector<std::string> args{s / "in/f%03d.png", "-o", s / "out/%04d.png", "--fps", "24"};
  args.insert(args.end(), controls.begin(), controls.end());
  const auto r = tesselux(s, args);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(s.list("out").size(), 5u);
  Reference ref;
  ref.rate = {24, 1};
  ref.controls = {{9, 4}, {10, 80}, {11, 2}, {13, 1}, {4, 0.5}};
  const auto got = readAll(s / "out/%04d.png");
  expectSame(got, reference(s / "in/f%03d.png", SampleType::U8, 0, 4, ref));
  for (int k = 0; k < 5; ++k) EXPECT_EQ(got[static_cast<size_t>(k)].width, sizes[k][0]);
  // A video cannot hold frames of different sizes.
  const auto v = tesselux(s, {s / "in/f%03d.png", "-o", s / "out.mkv"});
  EXPECT_EQ(v.status, 2);
  EXPECT_NE(v.err.find("differ in size"), std::string::npos) << v.err;
  EXPECT_FALSE(std::filesystem::exists(s / "out.mkv"));
}

TEST(RenderCommand, VideoWithAudioKeepsAudioPacketsAndRate) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  ASSERT_EQ(cli_test::shell("ffmpeg -v error -f lavfi -i testsrc2=size=96x64:rate=25 -f lavfi -i "
                            "sine=frequency=330:sample_rate=48000 -t 0.8 -c:v libx264 -g 6 -pix_fmt yuv420p "
                            "-c:a aac -shortest '" + s / "in.mp4" + "'"),
            0);
  const std::vector<std::string> ctl{"--time-frames", "3", "--edge-mode", "wrap", "--stepping-unit", "frame"};
  std::vector<std::string> a{s / "in.mp4", "-o", s / "out.mkv"};
  a.insert(a.end(), ctl.begin(), ctl.end());
  auto r = tesselux(s, a);
  ASSERT_EQ(r.status, 0) << r.err;
  Reference ref;
  ref.controls = {{9, 3}, {14, 2}, {11, 2}};
  const auto in = cli::openSource(s / "in.mp4");
  expectSame(readAll(s / "out.mkv"), reference(s / "in.mp4", SampleType::U8, 0, in->frameCount() - 1, ref));
  EXPECT_EQ(cli::openSource(s / "out.mkv")->rate()->num, 25);
  const auto audioIn = audioPackets(s / "in.mp4");
  ASSERT_FALSE(audioIn.empty());
  EXPECT_TRUE(audioPackets(s / "out.mkv") == audioIn);
  // The default .mp4 output: H.264 of every frame, same size and rate, same audio.
  a[2] = s / "out.mp4";
  r = tesselux(s, a);
  ASSERT_EQ(r.status, 0) << r.err;
  const auto mp4 = cli::openSource(s / "out.mp4");
  // Lossy (4:2:0, CRF 18): close to the frames rendered through the host
  // (up to about 5 levels on this small, detailed picture; a channel mix-up
  // is over 80).
  expectClose(readAll(s / "out.mp4"), reference(s / "in.mp4", SampleType::U8, 0, in->frameCount() - 1, ref), 8.0);
  EXPECT_EQ(mp4->frameCount(), in->frameCount());
  EXPECT_EQ(mp4->frameSize(0), in->frameSize(0));
  EXPECT_EQ(mp4->rate()->num, 25);
  EXPECT_TRUE(audioPackets(s / "out.mp4") == audioIn);
  // ProRes 4444 in .mov keeps alpha (yuva444p10).
  a[2] = s / "out.mov";
  r = tesselux(s, a);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(cli::openSource(s / "out.mov")->sampleType(), SampleType::U16);
}

// BT.709 is not a matrix libyuv converts host pixels with: those frames go
// through swscale, on the render threads, and must come out as close.
TEST(RenderCommand, Bt709VideoToH264StaysCloseToTheHostRender) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  ASSERT_EQ(cli_test::shell("ffmpeg -v error -f lavfi -i testsrc2=size=96x64:rate=25 -frames:v 8 -c:v libx264 "
                            "-pix_fmt yuv420p -colorspace bt709 -color_primaries bt709 -color_trc bt709 '" +
                            s / "in.mp4" + "'"),
            0);
  ASSERT_EQ(cli::openSource(s / "in.mp4")->tags()->colorSpace, AVCOL_SPC_BT709);
  const auto r = tesselux(s, {s / "in.mp4", "-o", s / "out.mp4", "--threads", "3"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(cli::openSource(s / "out.mp4")->tags()->colorSpace, AVCOL_SPC_BT709);
  expectClose(readAll(s / "out.mp4"), reference(s / "in.mp4", SampleType::U8, 0, 7), 8.0);
}

TEST(RenderCommand, TenBitVideoRendersAtSixteen) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  ASSERT_EQ(cli_test::shell("ffmpeg -v error -f lavfi -i testsrc2=size=96x64:rate=30 -frames:v 6 -c:v ffv1 "
                            "-pix_fmt yuv420p10le '" + s / "in.mkv" + "'"),
            0);
  ASSERT_EQ(cli::openSource(s / "in.mkv")->sampleType(), SampleType::U16);
  std::filesystem::create_directory(s / "out");
  const auto r = tesselux(s, {s / "in.mkv", "-o", s / "out/%02d.tif", "--time-frames", "2"});
  ASSERT_EQ(r.status, 0) << r.err;
  Reference ref;
  ref.controls = {{9, 2}};
  expectSame(readAll(s / "out/%02d.tif"), reference(s / "in.mkv", SampleType::U16, 0, 5, ref));
  // 16-bit frames into a lossless 16-bit video and back.
  const auto v = tesselux(s, {s / "in.mkv", "-o", s / "out16.mkv", "--time-frames", "2"});
  ASSERT_EQ(v.status, 0) << v.err;
  expectSame(readAll(s / "out16.mkv"), reference(s / "in.mkv", SampleType::U16, 0, 5, ref));
}

TEST(RenderCommand, EveryControlOptionWithAMaskOfAnotherSize) {
  Scratch s;
  std::filesystem::create_directory(s / "out");
  writeSequence(s / "in%02d.png", 6, 64, 48);
  cli::writeImage(s / "mask.png", cli::demoMaskFrame(2, 40, 30, 6));
  const std::vector<std::string> opts{
      "--channels", "green", "--block-width", "12.5", "--block-height", "9", "--strength", "0.6",
      "--spread", "0.7", "--direction", "vertical", "--seed", "4242", "--no-composite",
      "--time-frames", "3.5", "--time-probability", "70", "--stepping-unit", "frame",
      "--time-step-seconds", "0.1", "--time-step-frames", "-3", "--edge-mode", "mirror",
      "--time-seed", "99", "--exclusive", "--mask-intensity", "40", "--mask-type", "randomized-mask",
      "--mask-seed", "7", "--mask", s / "mask.png"};
  std::vector<std::string> a{s / "in%02d.png", "-o", s / "out/%02d.png"};
  a.insert(a.end(), opts.begin(), opts.end());
  auto r = tesselux(s, a);
  ASSERT_EQ(r.status, 0) << r.err;
  Reference ref;
  ref.controls = {{1, 3},  {2, 12.5}, {3, 9},   {4, 0.6}, {5, 0.7},  {6, 3},  {7, 4242},
                  {25, 0}, {9, 3.5},  {10, 70}, {11, 2},  {12, 0.1}, {13, -3}, {14, 3},
                  {15, 99}, {16, 1},  {20, 40}, {21, 3},  {22, 7}};
  ref.mask = s / "mask.png";
  const auto want = reference(s / "in%02d.png", SampleType::U8, 0, 5, ref);
  expectSame(readAll(s / "out/%02d.png"), want);
  // The same controls differ from the defaults' render (the options reach the effect).
  EXPECT_FALSE(want[0].data == reference(s / "in%02d.png", SampleType::U8, 0, 0)[0].data);
  // The remaining choices and the positive checkbox forms.
  const std::vector<std::string> more{"--composite", "--no-exclusive", "--channels", "alpha",
                                      "--direction", "horizontal", "--edge-mode", "repeat",
                                      "--stepping-unit", "second", "--mask-type", "threshold",
                                      "--mask", s / "mask.png", "--mask-intensity", "60"};
  a = {s / "in%02d.png", "-o", s / "out/%02d.png"};
  a.insert(a.end(), more.begin(), more.end());
  std::filesystem::remove_all(s / "out");
  std::filesystem::create_directory(s / "out");
  r = tesselux(s, a);
  ASSERT_EQ(r.status, 0) << r.err;
  ref.controls = {{25, 1}, {16, 0}, {1, 5}, {6, 2}, {14, 1}, {11, 1}, {21, 1}, {20, 60}};
  expectSame(readAll(s / "out/%02d.png"), reference(s / "in%02d.png", SampleType::U8, 0, 5, ref));
}

TEST(RenderCommand, PremiereHostAtEachDepth) {
  Scratch s;
  writeSequence(s / "in%d.png", 3, 64, 48);
  for (const char* depth : {"8", "16", "32"}) {
    std::filesystem::remove_all(s / "out");
    std::filesystem::create_directory(s / "out");
    const auto r = tesselux(s, {s / "in%d.png", "-o", s / "out/%d.tif", "--host", "premiere", "--depth", depth,
                                "--time-frames", "2", "--strength", "0.3"});
    ASSERT_EQ(r.status, 0) << r.err;
    Reference ref;
    ref.app = thost::App::PremierePro;
    ref.depth = std::string(depth) == "8" ? thost::Depth::Bits8
                : std::string(depth) == "16" ? thost::Depth::Bits16 : thost::Depth::Float32;
    ref.controls = {{9, 2}, {4, 0.3}};
    const SampleType t = std::string(depth) == "8" ? SampleType::U8
                         : std::string(depth) == "16" ? SampleType::U16 : SampleType::F32;
    expectSame(readAll(s / "out/%d.tif"), reference(s / "in%d.png", t, 0, 2, ref));
  }
}

TEST(RenderCommand, AlignAndDownsample) {
  Scratch s;
  cli::writeImage(s / "in.png", sample(0, 100, 60, SampleType::U8));
  auto r = tesselux(s, {s / "in.png", "-o", s / "a.png", "--align", "--block-width", "30", "--block-height", "25"});
  ASSERT_EQ(r.status, 0) << r.err;
  Reference ref;
  ref.align = true;
  ref.controls = {{2, 30}, {3, 25}};
  expectSame(readAll(s / "a.png"), reference(s / "in.png", SampleType::U8, 0, 0, ref));
  r = tesselux(s, {s / "in.png", "-o", s / "d.png", "--downsample", "1/2"});
  ASSERT_EQ(r.status, 0) << r.err;
  Reference half;
  half.downsample = {1, 2};
  expectSame(readAll(s / "d.png"), reference(s / "in.png", SampleType::U8, 0, 0, half));
}

TEST(RenderCommand, FramePiecesAndThreadCountsGiveTheSameBytes) {
  // TIFF: its writer would stamp the time into each file unless told not to.
  Scratch s;
  writeSequence(s / "in%02d.png", 9, 64, 48);
  for (const char* d : {"whole", "pieces", "one", "four"}) std::filesystem::create_directory(s / d);
  const std::vector<std::string> ctl{"--time-frames", "16", "--edge-mode", "wrap", "--time-probability", "90",
                                     "--stepping-unit", "frame", "--time-step-frames", "2"};
  auto go = [&](std::vector<std::string> a) {
    a.insert(a.end(), ctl.begin(), ctl.end());
    const auto r = tesselux(s, a);
    EXPECT_EQ(r.status, 0) << r.err;
  };
  go({s / "in%02d.png", "-o", s / "whole/%02d.tif"});
  go({s / "in%02d.png", "-o", s / "pieces/%02d.tif", "--frames", "0-3"});
  go({s / "in%02d.png", "-o", s / "pieces/%02d.tif", "--frames", "4-7"});
  go({s / "in%02d.png", "-o", s / "pieces/%02d.tif", "--frames", "8-8"});
  go({s / "in%02d.png", "-o", s / "one/%02d.tif", "--threads", "1"});
  go({s / "in%02d.png", "-o", s / "four/%02d.tif", "--threads", "4"});
  go({s / "in%02d.png", "-o", s / "still5.tif", "--frames", "5-5"});
  for (int k = 0; k < 9; ++k) {
    const std::string name = cli::sequenceName("%02d.tif", k);
    const std::string whole = cli_test::slurp(s / ("whole/" + name));
    ASSERT_FALSE(whole.empty());
    EXPECT_EQ(cli_test::slurp(s / ("pieces/" + name)), whole) << name;
    EXPECT_EQ(cli_test::slurp(s / ("one/" + name)), whole) << name;
    EXPECT_EQ(cli_test::slurp(s / ("four/" + name)), whole) << name;
  }
  EXPECT_EQ(cli_test::slurp(s / "still5.tif"), cli_test::slurp(s / "whole/05.tif"));
  expectSame(readAll(s / "whole/%02d.tif"),
             reference(s / "in%02d.png", SampleType::U8, 0, 8,
                       Reference{thost::App::AfterEffects, std::nullopt,
                                 {{9, 16}, {14, 2}, {10, 90}, {11, 2}, {13, 2}}, "", {30, 1}, {1, 1}, false}));
}

// One line on stderr, a non-zero status and nothing new in the output folder.
void expectRefused(const Scratch& s, const std::vector<std::string>& args, int status, const std::string& says) {
  const auto before = s.list("out");
  const auto r = tesselux(s, args);
  EXPECT_EQ(r.status, status) << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  EXPECT_NE(r.err.find(says), std::string::npos) << r.err;
  EXPECT_EQ(s.list("out"), before);
}

TEST(RenderCommand, BadInputsGiveOneLineAndNoOutput) {
  Scratch s;
  std::filesystem::create_directory(s / "out");
  cli::writeImage(s / "ok.png", sample(0, 64, 48, SampleType::U8));
  writeSequence(s / "seq%d.png", 3, 64, 48);
  const std::string png = cli_test::slurp(s / "ok.png");
  std::ofstream(s / "truncated.png", std::ios::binary) << png.substr(0, png.size() / 2);
  std::ofstream(s / "garbage.png", std::ios::binary) << "this is not an image";
  std::ofstream(s / "garbage.mp4", std::ios::binary) << "nor is this a video";
  std::filesystem::create_directory(s / "adir.png");
  expectRefused(s, {s / "missing.png", "-o", s / "out/x.png"}, 1, "missing.png");
  expectRefused(s, {s / "truncated.png", "-o", s / "out/x.png"}, 1, "truncated.png");
  expectRefused(s, {s / "garbage.png", "-o", s / "out/x.png"}, 1, "garbage.png");
  expectRefused(s, {s / "garbage.mp4", "-o", s / "out/x.mp4"}, 1, "garbage.mp4");
  expectRefused(s, {s / "adir.png", "-o", s / "out/x.png"}, 1, "directory");
  expectRefused(s, {s / "ok.png", "-o", s / "out/x.png", "--frobnicate"}, 2, "--frobnicate");
  expectRefused(s, {s / "ok.png", "-o", s / "out/x.png", "--strength", "1.5"}, 2,
                "--strength 1.5: out of range for \"Shuffle Strength\" (0.000 .. 1.000)");
  expectRefused(s, {s / "ok.png", "-o", s / "out/x.png", "--time-frames", "17"}, 2, "\"Frames\"");
  expectRefused(s, {s / "ok.png", "-o", s / "nowhere/x.png"}, 1, "nowhere");
  expectRefused(s, {s / "seq%d.png", "-o", s / "out/x.png"}, 2, "--frames");
  expectRefused(s, {s / "ok.png", "-o", s / "out/x.png", "--frames", "1-1"}, 2, "--frames");
  expectRefused(s, {s / "ok.png", "-o", s / "out/x.png", "--mask", s / "missing-mask.png"}, 1, "missing-mask.png");
  if (getuid() != 0) {
    std::filesystem::create_directory(s / "locked");
    std::filesystem::permissions(s / "locked", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    expectRefused(s, {s / "ok.png", "-o", s / "locked/x.png"}, 1, "not writable");
  }
}

// The still-image module shows the process that loads it nothing but its
// entry point: OpenImageIO's symbols and ours stay inside it.
TEST(ImageModule, ExportsOnlyItsEntryPoint) {
  const std::string module =
      (std::filesystem::path(kCli).parent_path().parent_path() / "lib" / "tesselux_images.so").string();
  ASSERT_TRUE(std::filesystem::exists(module)) << module;
  EXPECT_EQ(test_support::exportedSymbols(module), std::set<std::string>{"tesselux_image_codec"});
}

// Videos never load the still-image module (OpenImageIO and its libraries
// cost every start a third of a second); stills cannot do without it, and
// say so in one line when it is missing.
TEST(RenderCommand, VideosRenderWithoutTheImageModule) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  std::filesystem::create_directory(s / "out");
  ASSERT_EQ(cli_test::shell("ffmpeg -v error -f lavfi -i testsrc2=size=96x64:rate=30 -frames:v 4 "
                            "-c:v libx264 -pix_fmt yuv420p '" + s / "in.mp4" + "'"),
            0);
  cli::writeImage(s / "ok.png", sample(0, 64, 48, SampleType::U8));
  const std::string missing = s / "no-such-module.so";
  setenv("TESSELUX_IMAGE_MODULE", missing.c_str(), 1);
  const auto video = tesselux(s, {s / "in.mp4", "-o", s / "out/x.mkv"});
  const auto before = s.list("out");
  const auto still = tesselux(s, {s / "ok.png", "-o", s / "out/x.png"});
  const auto after = s.list("out");
  unsetenv("TESSELUX_IMAGE_MODULE");
  EXPECT_EQ(video.status, 0) << video.err;
  EXPECT_EQ(readAll(s / "out/x.mkv").size(), 4u);
  EXPECT_EQ(still.status, 1) << still.err;
  EXPECT_EQ(std::count(still.err.begin(), still.err.end(), '\n'), 1) << still.err;
  EXPECT_NE(still.err.find("cannot load the image module " + missing), std::string::npos) << still.err;
  EXPECT_EQ(after, before);
}

TEST(RenderCommand, InterruptedRenderLeavesNothing) {
  Scratch s;
  std::filesystem::create_directory(s / "out");
  // Many small frames: the render must still be running when the signal comes,
  // however fast or loaded the machine.
  writeSequence(s / "in%03d.png", 200, 160, 120);
  const pid_t pid = fork();
  if (pid == 0) {
    const int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, 2);
    execl(kCli.c_str(), kCli.c_str(), "render", (s / "in%03d.png").c_str(), "-o", (s / "out/%03d.png").c_str(),
          "--threads", "1", "--time-frames", "16", "--quiet", static_cast<char*>(nullptr));
    _exit(127);
  }
  // Interrupt once frames are being written (under their temporary names).
  for (int i = 0; i < 4000 && s.list("out").empty(); ++i) usleep(5 * 1000);
  EXPECT_FALSE(s.list("out").empty()) << "the render wrote nothing within 20 s";
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 130);
  EXPECT_TRUE(s.list("out").empty());
}

TEST(Commands, InfoJsonAndVersionAndHelp) {
  Scratch s;
  auto r = cli_test::run(kCli, {"info", "--json"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.front(), '{');
  EXPECT_NE(r.out.find("\"option\": \"--time-seed\""), std::string::npos);
  EXPECT_NE(r.out.find("\"choices\": [\"Repeat Last\", \"Wrap\", \"Mirror\"]"), std::string::npos);
  EXPECT_NE(r.out.find("\"ok\": true"), std::string::npos);
  r = cli_test::run(kCli, {"--version"}, s.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("tesselux ", 0), 0u);
  r = cli_test::run(kCli, {"render", "--help"}, s.path());
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("--edge-mode"), std::string::npos);
  EXPECT_NE(r.out.find("\"Edge Time Mode\": repeat|wrap|mirror (default mirror)"), std::string::npos) << r.out;
  r = cli_test::run(kCli, {"demo", "--help"}, s.path());
  EXPECT_EQ(r.status, 0);
}

}  // namespace

namespace {

// 8-bit video decodes straight into ARGB host pixels; they must be the pixels
// the host rules make of the RGBA file picture, for every frame, whether read
// directly or handed over on the way to a later one.
TEST(VideoHostPixels, EightBitVideoDecodesIntoWhatTheHostRulesMake) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::vector<std::pair<std::string, std::string>> inputs{
      {"h264.mp4", "-c:v libx264 -pix_fmt yuv420p"},
      {"yuv444.mkv", "-c:v ffv1 -pix_fmt yuv444p"},
      {"alpha.mkv", "-c:v ffv1 -pix_fmt yuva420p"},
      {"rgb.mkv", "-c:v ffv1 -pix_fmt bgr0"}};
  for (const auto& [name, codec] : inputs) {
    SCOPED_TRACE(name);
    ASSERT_EQ(cli_test::shell("ffmpeg -v error -f lavfi -i testsrc2=size=34x22:rate=25 -frames:v 12 " +
                              codec + " '" + s / name + "'"),
              0);
    auto direct = cli::openSource(s / name);
    auto viaFile = cli::openSource(s / name);
    ASSERT_EQ(direct->sampleType(), SampleType::U8);
    std::map<int, thost::Image> side;
    direct->onSideFrame = [&](int k, thost::Image&& image) { side[k] = std::move(image); };
    // Frame 9 first: frames before it are decoded on the way and handed over.
    const thost::Image nine = direct->readHost(9, thost::Depth::Bits8);
    EXPECT_EQ(nine, cli::toHost(viaFile->read(9), thost::Depth::Bits8));
    for (const auto& [k, image] : side) EXPECT_EQ(image, cli::toHost(viaFile->read(k), thost::Depth::Bits8)) << k;
    for (int k = 0; k < direct->frameCount(); ++k)
      EXPECT_EQ(direct->readHost(k, thost::Depth::Bits8), cli::toHost(viaFile->read(k), thost::Depth::Bits8))
          << "frame " << k;
    EXPECT_EQ(direct->readHost(3, thost::Depth::Bits16), cli::toHost(viaFile->read(3), thost::Depth::Bits16));
    // Opaque video: every pixel written has full alpha (a 34-pixel row is not
    // a multiple of the 16 pixels swscale's vector converters take at once).
    if (name != "alpha.mkv") {
      const Picture p = viaFile->read(5);
      for (size_t i = 3; i < p.data.size(); i += 4) ASSERT_EQ(p.data[i], 255) << "pixel " << i / 4;
    }
  }
}

// 8-bit host pictures go to the encoder as ARGB; the video must be the one
// their RGBA file pictures make.
TEST(VideoHostPixels, EightBitHostPicturesEncodeAsTheirFilePictures) {
  Scratch s;
  for (const std::string name : {"a.mkv", "a.mov", "a.mp4"}) {
    SCOPED_TRACE(name);
    std::vector<thost::Image> images;
    for (int k = 0; k < 4; ++k) images.push_back(cli::toHost(sample(k, 34, 22, SampleType::U8, 4), thost::Depth::Bits8));
    for (const std::string how : {"host", "file"}) {
      cli::SinkSettings ss;
      ss.path = s / (how + name);
      ss.rate = cli::Rate{25, 1};
      ss.frameCount = 4;
      auto sink = cli::openSink(ss);
      for (const thost::Image& image : images) {
        if (how == "host") sink->writeHost(image);
        else sink->write(cli::fromHost(image, sink->sampleType()));
      }
      sink->commit();
    }
    const auto host = readAll(s / ("host" + name));
    const auto file = readAll(s / ("file" + name));
    ASSERT_EQ(host.size(), 4u);
    ASSERT_EQ(file.size(), 4u);
    for (size_t k = 0; k < host.size(); ++k) EXPECT_TRUE(host[k] == file[k]) << "frame " << k;
  }
}

}  // namespace
