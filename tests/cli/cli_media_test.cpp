// The video reader against ffmpeg's own decode, on clips made at test time
// by the ffmpeg tool: every container gives the frames ffmpeg shows, in its
// count, the same whether read in order or at random; and the command's
// choices by content and by container.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "cli_test_support.h"
#include "io/media.h"

namespace {

using cli::Picture;
using cli_test::Scratch;

const std::string kCli = TESSELUX_CLI;
constexpr int kW = 160, kH = 90;

bool haveFfmpeg() { return cli_test::shell("ffmpeg -version >/dev/null 2>&1") == 0; }

// A 1 s testsrc2 clip (a frame counter burned in, every frame different).
std::string makeClip(const Scratch& s, const std::string& name, const std::string& args, double seconds = 1) {
  const std::string path = s / name;
  const std::string cmd = "ffmpeg -v error -y -f lavfi -i testsrc2=s=" + std::to_string(kW) + "x" +
                          std::to_string(kH) + ":r=30:d=" + std::to_string(seconds) + " " + args + " '" + path +
                          "'";
  EXPECT_EQ(cli_test::shell(cmd), 0) << cmd;
  return path;
}

// Every frame ffmpeg decodes from `path`, as 8-bit RGBA, none repeated or dropped.
std::vector<std::vector<uint8_t>> ffmpegFrames(const std::string& path) {
  const std::string cmd = "ffmpeg -v error -i '" + path + "' -map 0:v:0 -fps_mode passthrough -f rawvideo -pix_fmt rgba -";
  std::FILE* p = popen(cmd.c_str(), "r");
  std::vector<std::vector<uint8_t>> frames;
  if (!p) return frames;
  for (;;) {
    std::vector<uint8_t> f(static_cast<size_t>(kW) * kH * 4);
    if (std::fread(f.data(), 1, f.size(), p) != f.size()) break;
    frames.push_back(std::move(f));
  }
  pclose(p);
  return frames;
}

double meanDiff(const Picture& a, const std::vector<uint8_t>& b) {
  long sum = 0;
  for (size_t i = 0; i < b.size(); ++i) sum += std::abs(static_cast<int>(a.data[i]) - static_cast<int>(b[i]));
  return static_cast<double>(sum) / static_cast<double>(b.size());
}

// The reader gives ffmpeg's frame count; frame k is nearer ffmpeg's frame k
// than its neighbours (the conversions to RGB differ by rounding only); and
// frames read in a shuffled order are byte-for-byte those read in order.
void expectFramesLikeFfmpeg(const std::string& path) {
  const auto reference = ffmpegFrames(path);
  ASSERT_FALSE(reference.empty()) << path;
  auto inOrder = cli::openSource(path);
  ASSERT_EQ(inOrder->frameCount(), static_cast<int>(reference.size())) << path;
  std::vector<Picture> sequential;
  for (int k = 0; k < inOrder->frameCount(); ++k) {
    sequential.push_back(inOrder->read(k));
    ASSERT_EQ(sequential.back().type, cli::SampleType::U8);
    const double own = meanDiff(sequential.back(), reference[static_cast<size_t>(k)]);
    for (int j : {k - 1, k + 1})
      if (j >= 0 && j < static_cast<int>(reference.size()))
        EXPECT_LT(own, meanDiff(sequential.back(), reference[static_cast<size_t>(j)]))
            << path << ": frame " << k << " looks like ffmpeg's frame " << j;
  }
  std::vector<int> order(sequential.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<int>(i);
  std::mt19937 rng(7);
  std::shuffle(order.begin(), order.end(), rng);
  auto random = cli::openSource(path);
  for (int k : order)
    EXPECT_TRUE(random->read(k) == sequential[static_cast<size_t>(k)]) << path << ": frame " << k << " at random";
}

struct Container {
  const char* name;
  const char* args;
};

class RandomAccess : public ::testing::TestWithParam<Container> {};

TEST_P(RandomAccess, GivesTheFramesOfASequentialDecode) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  expectFramesLikeFfmpeg(makeClip(s, GetParam().name, GetParam().args));
}

const Container kContainers[] = {
    {"a.mp4", "-c:v libx264 -pix_fmt yuv420p -g 10"},
    {"a.mov", "-c:v libx264 -pix_fmt yuv420p -g 10"},
    {"a.mkv", "-c:v libx264 -pix_fmt yuv420p -g 10"},
    // The reproductions: H.264 and MPEG-2 in transport and program streams.
    {"h.ts", "-c:v libx264 -pix_fmt yuv420p"},
    {"g.ts", "-c:v libx264 -pix_fmt yuv420p -g 10"},
    {"m.ts", "-c:v mpeg2video -q:v 3"},
    {"a.m2ts", "-c:v mpeg2video -q:v 3 -g 10"},
    {"m.mpg", "-c:v mpeg2video -q:v 3"},
    {"a.avi", "-c:v mpeg4 -q:v 3 -g 10"},
    {"a.webm", "-c:v libvpx-vp9 -g 10 -deadline realtime -cpu-used 8"},
    {"a.gif", ""},
    {"open.mp4", "-c:v libx264 -pix_fmt yuv420p -g 10 -bf 3 -x264-params open-gop=1"},
    {"open.ts", "-c:v libx264 -pix_fmt yuv420p -g 10 -bf 3 -x264-params open-gop=1"},
};
INSTANTIATE_TEST_SUITE_P(Containers, RandomAccess, ::testing::ValuesIn(kContainers),
                         [](const auto& info) {
                           std::string n = info.param.name;
                           std::replace(n.begin(), n.end(), '.', '_');
                           return n;
                         });

// `ffmpeg -ss 0.6 -i g15.mp4 -c copy t.mp4`: an edit list hides the frames
// before the cut that the copy had to keep for decoding.
TEST(VideoInput, HonoursEditLists) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string g15 = makeClip(s, "g15.mp4", "-c:v libx264 -pix_fmt yuv420p -g 15", 2);
  ASSERT_EQ(cli_test::shell("ffmpeg -v error -y -ss 0.6 -i '" + g15 + "' -c copy '" + (s / "t.mp4") + "'"), 0);
  expectFramesLikeFfmpeg(s / "t.mp4");
}

// A file cut short gives the frames that decode, no copies of others, and says so.
TEST(VideoInput, TruncatedFileGivesTheFramesThatDecode) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string whole = makeClip(s, "w.mp4", "-c:v libx264 -pix_fmt yuv420p -movflags +faststart", 2);
  const auto size = std::filesystem::file_size(whole);
  std::filesystem::copy_file(whole, s / "cut.mp4");
  std::filesystem::resize_file(s / "cut.mp4", size * 6 / 10);
  expectFramesLikeFfmpeg(s / "cut.mp4");
  EXPECT_LT(cli::openSource(s / "cut.mp4")->frameCount(), 60);
  const auto r = cli_test::run(kCli, {"render", s / "cut.mp4", "-o", s / "o.mkv", "--strength", "0"}, s.path());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("ends early"), std::string::npos) << r.err;
}

// Files are read by what they hold: transport streams under any name or
// none, animated GIF and APNG as clips of all their frames.
TEST(VideoInput, DetectsTheFormatFromTheContent) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string ts = makeClip(s, "h.ts", "-c:v libx264 -pix_fmt yuv420p", 0.5);
  for (const char* name : {"h.MTS", "noext", "h.dat", "h.vob"}) {
    std::filesystem::copy_file(ts, s / name);
    EXPECT_EQ(cli::sourceKind(s / name), cli::MediaKind::Video) << name;
    EXPECT_EQ(cli::openSource(s / name)->frameCount(), 15) << name;
  }
  makeClip(s, "a.gif", "", 0.5);
  EXPECT_EQ(cli::openSource(s / "a.gif")->frameCount(), 15);
  makeClip(s, "anim.png", "-f apng -plays 0", 0.5);
  EXPECT_EQ(cli::openSource(s / "anim.png")->frameCount(), 15);
  makeClip(s, "still.png", "-frames:v 1 -update 1", 0.5);
  EXPECT_EQ(cli::sourceKind(s / "still.png"), cli::MediaKind::Still);
  EXPECT_EQ(cli::openSource(s / "still.png")->frameCount(), 1);
}

std::string probe(const std::string& path, const std::string& entries) {
  const std::string cmd = "ffprobe -v error -select_streams v:0 -show_entries stream=" + entries +
                          " -of csv=p=0 '" + path + "'";
  std::FILE* p = popen(cmd.c_str(), "r");
  std::string out;
  char buf[256];
  while (p && std::fgets(buf, sizeof buf, p)) out += buf;
  if (p) pclose(p);
  while (!out.empty() && (out.back() == '\n' || out.back() == ',')) out.pop_back();
  return out;
}

// Without --codec each container gets ffmpeg's choice; every one of them writes.
TEST(VideoOutput, DefaultCodecByContainer) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = makeClip(s, "in.mkv", "-c:v ffv1", 0.2);
  const std::pair<const char*, const char*> expected[] = {
      {"o.webm", "vp9"}, {"o.y4m", "rawvideo"}, {"o.gif", "gif"}, {"o.avi", "mpeg4"}, {"o.mp4", "h264"}};
  for (const auto& [name, codec] : expected) {
    const auto r = cli_test::run(kCli, {"render", in, "-o", s / name, "--strength", "0", "--quiet"}, s.path());
    EXPECT_EQ(r.status, 0) << name << ": " << r.err;
    EXPECT_EQ(probe(s / name, "codec_name"), codec) << name;
  }
}

TEST(VideoOutput, OddSizeFor420NamesCauseAndFix) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = makeClip(s, "odd.mkv", "-vf scale=161:91 -c:v ffv1", 0.1);
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / "o.mp4", "--quiet"}, s.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("161 x 91"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("even width and height"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(".mkv"), std::string::npos) << r.err;
}

// Every presentation time of the video stream, in seconds, in order.
std::vector<double> frameTimes(const std::string& path) {
  const std::string cmd = "ffprobe -v error -select_streams v:0 -show_entries packet=pts_time -of csv=p=0 '" +
                          path + "'";
  std::FILE* p = popen(cmd.c_str(), "r");
  std::vector<double> t;
  char buf[128];
  while (p && std::fgets(buf, sizeof buf, p)) t.push_back(std::atof(buf));
  if (p) pclose(p);
  std::sort(t.begin(), t.end());
  for (double& x : t) x -= t.front();
  return t;
}

// A variable-rate clip (30 fps for 20 frames, then every third frame) keeps
// each frame's time instead of being respaced at its average rate.
TEST(VideoOutput, VariableRateKeepsEachFramesTime) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in =
      makeClip(s, "vfr.mkv", "-vf select='lt(n\\,20)+not(mod(n\\,3))' -fps_mode passthrough -c:v libx264", 2);
  const std::vector<double> want = frameTimes(in);
  ASSERT_EQ(want.size(), 33u);
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / "o.mp4", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<double> got = frameTimes(s / "o.mp4");
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], 0.002) << "frame " << i;
}

}  // namespace
