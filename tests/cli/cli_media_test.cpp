// The video reader against ffmpeg's own decode, on clips made at test time
// by the ffmpeg tool: every container gives the frames ffmpeg shows, in its
// count, the same whether read in order or at random; and the command's
// choices by content and by container.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
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
    for (int j : {k - 1, k + 1}) {
      if (j >= 0 && j < static_cast<int>(reference.size())) {
        EXPECT_LT(own, meanDiff(sequential.back(), reference[static_cast<size_t>(j)]))
            << path << ": frame " << k << " looks like ffmpeg's frame " << j;
      }
    }
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

namespace {

// ffprobe's compact listing of the given entries, every stream and the container.
std::string probeAll(const std::string& path, const std::string& entries) {
  const std::string cmd = "ffprobe -v error -show_entries " + entries + " -of compact '" + path + "'";
  std::FILE* p = popen(cmd.c_str(), "r");
  std::string out;
  char buf[512];
  while (p && std::fgets(buf, sizeof buf, p)) out += buf;
  if (p) pclose(p);
  return out;
}

bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The clip with a 2 s tone in the given audio codec.
std::string clipWithAudio(const Scratch& s, const std::string& name, const std::string& audioCodec) {
  return makeClip(s, name, "-f lavfi -i sine=f=440:d=2 -c:v libx264 -pix_fmt yuv420p -c:a " + audioCodec, 2);
}

// The end of the last audio packet, in seconds (WebM keeps no stream duration).
double audioSeconds(const std::string& path) {
  const std::string cmd = "ffprobe -v error -select_streams a:0 -show_entries packet=pts_time,duration_time "
                          "-of csv=p=0 '" + path + "'";
  std::FILE* p = popen(cmd.c_str(), "r");
  double end = 0;
  char buf[128];
  while (p && std::fgets(buf, sizeof buf, p)) {
    double pts = 0, duration = 0;
    if (std::sscanf(buf, "%lf,%lf", &pts, &duration) == 2) end = std::max(end, pts + duration);
  }
  if (p) pclose(p);
  return end;
}

struct AudioCase {
  const char* in;
  const char* inCodec;
  const char* out;
  const char* outCodec;
};

// Audio the output container cannot hold is re-encoded to its default
// audio codec, never left out: PCM into MP4, Opus into MOV, PCM into WebM.
class AudioReencode : public ::testing::TestWithParam<AudioCase> {};

TEST_P(AudioReencode, KeepsTheWholeTrack) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const AudioCase c = GetParam();
  const std::string in = clipWithAudio(s, c.in, c.inCodec);
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / c.out, "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const std::string streams = probeAll(s / c.out, "stream=codec_type,codec_name");
  EXPECT_TRUE(has(streams, std::string("codec_name=") + c.outCodec + "|codec_type=audio")) << streams;
  EXPECT_NEAR(audioSeconds(s / c.out), 2.0, 0.05);
}

const AudioCase kAudioCases[] = {
    {"pcm.mov", "pcm_s16le", "o.mp4", "aac"},
    {"opus.mkv", "libopus", "o.mov", "aac"},
    {"pcm.mkv", "pcm_s16le", "o.webm", "opus"},
};
INSTANTIATE_TEST_SUITE_P(Containers, AudioReencode, ::testing::ValuesIn(kAudioCases), [](const auto& info) {
  std::string n = std::string(info.param.in) + "_to_" + info.param.out;
  std::replace(n.begin(), n.end(), '.', '_');
  return n;
});

// Audio the output holds is still copied packet for packet.
TEST(AudioCopy, AacIntoMp4IsCopied) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = clipWithAudio(s, "aac.mp4", "aac");
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / "o.mov", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string cmd = "ffprobe -v error -select_streams a:0 -show_entries packet=size -of csv=p=0 '";
  std::FILE* a = popen((cmd + in + "'").c_str(), "r");
  std::FILE* b = popen((cmd + (s / "o.mov") + "'").c_str(), "r");
  std::string sa, sb;
  char buf[64];
  while (std::fgets(buf, sizeof buf, a)) sa += buf;
  while (std::fgets(buf, sizeof buf, b)) sb += buf;
  pclose(a);
  pclose(b);
  EXPECT_FALSE(sa.empty());
  EXPECT_EQ(sa, sb);
}

// A clip carrying what users expect to survive: a title and creation time,
// language tags, a timecode, BT.709 colour tags, a subtitle track.
std::string taggedClip(const Scratch& s) {
  {
    std::FILE* f = std::fopen((s / "s.srt").c_str(), "w");
    std::fputs("1\n00:00:00,000 --> 00:00:01,000\nhello\n\n2\n00:00:01,000 --> 00:00:02,000\nworld\n", f);
    std::fclose(f);
  }
  return makeClip(s, "tags.mov",
                  "-f lavfi -i sine=d=2 -i '" + (s / "s.srt") +
                      "' -map 0 -map 1 -map 2 -c:v libx264 -pix_fmt yuv420p -c:a aac -c:s mov_text "
                      "-metadata title='My clip' -metadata creation_time=2024-05-06T07:08:09Z -timecode 01:02:03:04 "
                      "-metadata:s:a:0 language=fra -metadata:s:v:0 language=eng "
                      "-color_primaries bt709 -color_trc bt709 -colorspace bt709 -color_range tv",
                  2);
}

class KeptTags : public ::testing::TestWithParam<const char*> {};

TEST_P(KeptTags, TitleTimeLanguageTimecodeAndColour) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = taggedClip(s);
  const std::string out = s / GetParam();
  const auto r = cli_test::run(kCli, {"render", in, "-o", out, "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string info = probeAll(out, "stream=codec_type,color_range,color_space,color_transfer,color_primaries:"
                                         "stream_tags=language,timecode:format_tags=title,creation_time");
  EXPECT_TRUE(has(info, "tag:title=My clip")) << info;
  EXPECT_TRUE(has(info, "tag:creation_time=2024-05-06T07:08:09")) << info;
  EXPECT_TRUE(has(info, "codec_type=audio|tag:language=fra")) << info;
  EXPECT_TRUE(has(info, "tag:language=eng")) << info;
  EXPECT_TRUE(has(info, "=01:02:03:04")) << info;  // TIMECODE in Matroska
  EXPECT_TRUE(has(info, "color_range=tv|color_space=bt709|color_transfer=bt709|color_primaries=bt709") ||
              has(info, "color_range=pc|color_space=gbr|color_transfer=bt709|color_primaries=bt709"))
      << info;
}

INSTANTIATE_TEST_SUITE_P(Containers, KeptTags, ::testing::Values("o.mov", "o.mp4", "o.mkv"), [](const auto& info) {
  std::string n = info.param;
  std::replace(n.begin(), n.end(), '.', '_');
  return n;
});

// The MOV timecode is a track of its own there, as in the input.
TEST(KeptStreams, TimecodeTrackAndSubtitlesInMovAndMp4) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = taggedClip(s);
  for (const char* name : {"o.mov", "o.mp4"}) {
    const auto r = cli_test::run(kCli, {"render", in, "-o", s / name, "--strength", "0", "--quiet"}, s.path());
    ASSERT_EQ(r.status, 0) << r.err;
    const std::string info = probeAll(s / name, "stream=codec_type,codec_tag_string");
    EXPECT_TRUE(has(info, "codec_type=subtitle")) << name << ": " << info;
    EXPECT_TRUE(has(info, "codec_type=data|codec_tag_string=tmcd")) << name << ": " << info;
  }
}

// ProRes writes the colour tags of each frame it is given into its stream.
TEST(KeptTags, ProResMovKeepsBt709) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = makeClip(s, "c.mp4",
                                  "-c:v libx264 -pix_fmt yuv420p -color_primaries bt709 -color_trc bt709 "
                                  "-colorspace bt709 -color_range tv",
                                  0.3);
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / "o.mov", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(probe(s / "o.mov", "codec_name,color_range,color_space,color_transfer,color_primaries"),
            "prores,tv,bt709,bt709,bt709");
}

// A stream the container cannot hold (a Matroska attachment in MP4) is
// named in one warning line; Matroska keeps it.
TEST(KeptStreams, StreamTheContainerCannotHoldIsNamed) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  {
    std::FILE* f = std::fopen((s / "notes.txt").c_str(), "w");
    std::fputs("notes\n", f);
    std::fclose(f);
  }
  const std::string in =
      makeClip(s, "att.mkv", "-c:v ffv1 -attach '" + (s / "notes.txt") + "' -metadata:s:t mimetype=text/plain", 0.3);
  auto r = cli_test::run(kCli, {"render", in, "-o", s / "o.mp4", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(has(r.err, "attachment stream 1 (none) cannot go into this container and is left out")) << r.err;
  EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  r = cli_test::run(kCli, {"render", in, "-o", s / "o.mkv", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_TRUE(has(probeAll(s / "o.mkv", "stream=codec_type:stream_tags=filename"),
                  "codec_type=attachment|tag:filename=notes.txt"));
}

}  // namespace

namespace {

// iinfo's one-line summary: "name :  W x  H, N channel, TYPE FORMAT".
std::string imageInfo(const std::string& path) {
  std::FILE* p = popen(("iinfo '" + path + "'").c_str(), "r");
  std::string out;
  char buf[512];
  while (p && std::fgets(buf, sizeof buf, p)) out += buf;
  if (p) pclose(p);
  const size_t colon = out.find(" : ");
  return colon == std::string::npos ? out : out.substr(colon + 3);
}

bool haveOiioTools() { return cli_test::shell("oiiotool --help >/dev/null 2>&1 && iinfo --help >/dev/null 2>&1") == 0; }

struct StillCase {
  const char* label;
  const char* make;  // shell command writing IN in the scratch folder
  const char* in;
  const char* out;
  const char* want;  // iinfo's "N channel, TYPE"
};

// Stills keep their channels and samples where the output format holds
// them: grey stays grey, RGB gets no alpha, half EXR stays half.
class StillLayout : public ::testing::TestWithParam<StillCase> {};

TEST_P(StillLayout, KeptInTheOutput) {
  if (!haveFfmpeg() || !haveOiioTools()) GTEST_SKIP() << "no ffmpeg or OpenImageIO tools";
  Scratch s;
  const StillCase c = GetParam();
  ASSERT_EQ(cli_test::shell("cd '" + s.path() + "' && " + c.make), 0) << c.make;
  std::vector<std::string> args{"render", s / c.in, "-o", s / c.out, "--strength", "0", "--quiet"};
  if (std::string(c.in).find(".mp4") != std::string::npos) args.insert(args.end(), {"--frames", "0-0"});
  const auto r = cli_test::run(kCli, args, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(has(imageInfo(s / c.out), c.want)) << imageInfo(s / c.out);
}

const StillCase kStillCases[] = {
    {"grey_png", "ffmpeg -v error -f lavfi -i testsrc2=s=160x90 -frames:v 1 -pix_fmt gray g.png", "g.png", "o.png",
     "1 channel, uint8"},
    {"grey_to_tiff", "ffmpeg -v error -f lavfi -i testsrc2=s=160x90 -frames:v 1 -pix_fmt gray g.png", "g.png",
     "o.tif", "1 channel, uint8"},
    {"grey_alpha_png", "ffmpeg -v error -f lavfi -i testsrc2=s=160x90 -frames:v 1 -pix_fmt ya8 g.png", "g.png",
     "o.png", "2 channel, uint8"},
    {"rgb_png", "ffmpeg -v error -f lavfi -i testsrc2=s=160x90 -frames:v 1 -pix_fmt rgb24 c.png", "c.png", "o.png",
     "3 channel, uint8"},
    {"rgba_png", "ffmpeg -v error -f lavfi -i testsrc2=s=160x90 -frames:v 1 -pix_fmt rgba c.png", "c.png", "o.png",
     "4 channel, uint8"},
    {"half_exr", "oiiotool --pattern checker 64x64 4 -d half -o h.exr", "h.exr", "o.exr", "4 channel, half"},
    {"half_rgb_exr", "oiiotool --pattern checker 64x64 3 -d half -o h.exr", "h.exr", "o.exr", "3 channel, half"},
    {"video_to_png", "ffmpeg -v error -f lavfi -i testsrc2=s=160x90:d=0.2 -pix_fmt yuv420p v.mp4", "v.mp4", "o.png",
     "3 channel, uint8"},
};
INSTANTIATE_TEST_SUITE_P(Formats, StillLayout, ::testing::ValuesIn(kStillCases),
                         [](const auto& info) { return std::string(info.param.label); });

// A video whose display matrix turns it a quarter turn: `ffmpeg -c copy
// -metadata:s:v:0 rotate=90` (ffmpeg 5's way of writing one).
std::string turnedClip(const Scratch& s) {
  const std::string plain = makeClip(s, "plain.mp4", "-c:v libx264 -pix_fmt yuv420p -g 10", 0.5);
  const std::string turned = s / "turned.mp4";
  EXPECT_EQ(cli_test::shell("ffmpeg -v error -y -i '" + plain + "' -c copy -metadata:s:v:0 rotate=90 '" + turned + "'"),
            0);
  return turned;
}

// Frames come upright, as ffmpeg shows them (its autorotate), at random too.
TEST(Orientation, DisplayMatrixIsApplied) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string turned = turnedClip(s);
  EXPECT_EQ(cli::openSource(turned)->frameSize(0), std::make_pair(kH, kW));
  expectFramesLikeFfmpeg(turned);
}

// The output is upright itself, with no matrix left to turn it again.
TEST(Orientation, OutputIsUprightWithoutAMatrix) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string turned = turnedClip(s);
  const auto r = cli_test::run(kCli, {"render", turned, "-o", s / "o.mp4", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(probe(s / "o.mp4", "width,height"), std::to_string(kH) + "," + std::to_string(kW));
  EXPECT_FALSE(has(probeAll(s / "o.mp4", "stream_side_data"), "Display Matrix"));
  expectFramesLikeFfmpeg(turned);
}

// A JPEG's EXIF orientation is applied: the still comes out as OpenImageIO's
// own reorientation shows it.
TEST(Orientation, JpegExifOrientationIsApplied) {
  if (!haveFfmpeg() || !haveOiioTools()) GTEST_SKIP() << "no ffmpeg or OpenImageIO tools";
  Scratch s;
  for (int o : {3, 6}) {
    const std::string jpg = s / ("o" + std::to_string(o) + ".jpg");
    ASSERT_EQ(cli_test::shell("cd '" + s.path() + "' && ffmpeg -v error -y -f lavfi -i testsrc2=s=160x90 -frames:v 1 "
                              "base.png && oiiotool base.png --orientation " + std::to_string(o) + " -o '" + jpg +
                              "' && oiiotool '" + jpg + "' --reorient -o ref.png"),
              0);
    const auto r = cli_test::run(kCli, {"render", jpg, "-o", s / "out.png", "--strength", "0", "--quiet", "-y"},
                                 s.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(cli_test::shell("idiff -q '" + (s / "ref.png") + "' '" + (s / "out.png") + "' >/dev/null"), 0)
        << "orientation " << o;
  }
}

// Interlaced input keeps its field order: bottom field first MPEG-2, top
// field first H.264, into H.264, FFV1 and ProRes (88 rows: interlaced H.264
// needs a height divisible by 4).
TEST(Interlaced, FieldOrderIsKept) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string bff = makeClip(s, "bff.mpg", "-vf scale=160:88,setfield=bff -flags +ildct+ilme -top 0 -c:v mpeg2video", 0.5);
  const std::string tff =
      makeClip(s, "tff.mp4", "-vf scale=160:88,setfield=tff -flags +ildct+ilme -c:v libx264 -pix_fmt yuv420p -x264opts tff=1", 0.5);
  ASSERT_EQ(probe(bff, "field_order"), "bb");
  ASSERT_EQ(probe(tff, "field_order"), "tt");
  for (const auto& [in, order] : {std::pair<std::string, std::string>{bff, "bb"}, {tff, "tt"}})
    for (const char* name : {"o.mp4", "o.mkv", "o.mov"}) {
      const auto r = cli_test::run(kCli, {"render", in, "-o", s / name, "--strength", "0", "--quiet", "-y"}, s.path());
      ASSERT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(probe(s / name, "field_order"), order) << in << " -> " << name;
    }
}

// Transport streams start their clock at 1.4 s: the audio moves with the
// video to 0 rather than starting 1.4 s late.
TEST(AudioCopy, TransportStreamAudioStaysInSync) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = clipWithAudio(s, "av.ts", "aac");
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / "o.mp4", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string cmd = "ffprobe -v error -select_streams a:0 -show_entries stream=start_time -of csv=p=0 '";
  std::FILE* p = popen((cmd + (s / "o.mp4") + "'").c_str(), "r");
  char buf[64] = {};
  ASSERT_TRUE(p && std::fgets(buf, sizeof buf, p));
  pclose(p);
  EXPECT_LT(std::fabs(std::atof(buf)), 0.1) << buf;
}

}  // namespace

namespace {

// Animated WebP (which libavformat 5 cannot read) is a clip: every frame,
// lossless here so each equals its source frame exactly, read in any order,
// at its own times (the last frame held longer is kept so).
TEST(AnimatedWebp, EveryFrameWithItsTiming) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string src = makeClip(s, "src.mkv", "-vf select='lt(n\\,9)+eq(n\\,14)' -fps_mode passthrough "
                                                 "-c:v ffv1 -pix_fmt rgba", 0.5);
  const std::string webp = s / "a.webp";
  ASSERT_EQ(cli_test::shell("ffmpeg -v error -y -i '" + src + "' -fps_mode passthrough -c:v libwebp_anim -lossless 1 "
                            "-loop 0 '" + webp + "'"),
            0);
  const auto reference = ffmpegFrames(src);
  ASSERT_EQ(reference.size(), 10u);
  EXPECT_EQ(cli::sourceKind(webp), cli::MediaKind::Video);
  auto source = cli::openSource(webp);
  ASSERT_EQ(source->frameCount(), 10);
  for (int k : {9, 3, 0, 4, 8, 1, 2, 7, 5, 6}) {
    const Picture p = source->read(k);
    EXPECT_TRUE(std::equal(reference[static_cast<size_t>(k)].begin(), reference[static_cast<size_t>(k)].end(),
                           p.data.data()))
        << "frame " << k;
  }
  const auto r = cli_test::run(kCli, {"render", webp, "-o", s / "o.mp4", "--strength", "0", "--quiet"}, s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<double> got = frameTimes(s / "o.mp4");
  ASSERT_EQ(got.size(), 10u);
  for (size_t i = 0; i < 9; ++i) EXPECT_NEAR(got[i], static_cast<double>(i) / 30, 0.002) << "frame " << i;
  EXPECT_NEAR(got[9], 14.0 / 30, 0.002);
}

}  // namespace

namespace {

std::string shellOutput(const std::string& cmd) {
  std::FILE* p = popen(cmd.c_str(), "r");
  std::string out;
  char buf[512];
  while (p && std::fgets(buf, sizeof buf, p)) out += buf;
  if (p) pclose(p);
  return out;
}

// `ffmpeg ... -f nut - | tesselux render - -o - --format F`: read from and
// written to pipes, the frames are those of the same render between files.
TEST(Pipes, StandardInputToStandardOutput) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = makeClip(s, "in.nut", "-f lavfi -i sine=d=1 -c:v ffv1 -c:a pcm_s16le", 1);
  const std::string opts = " --strength 0.5 --seed 3 --quiet ";
  const auto r = cli_test::run(kCli, {"render", in, "-o", s / "file.nut", "--strength", "0.5", "--seed", "3",
                                      "--quiet", "--codec", "ffv1"},
                               s.path());
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string md5 = "ffmpeg -v error -i '" + (s / "file.nut") + "' -map 0:v -f framemd5 -";
  const std::string want = shellOutput(md5);
  ASSERT_FALSE(want.empty());
  for (const char* format : {"nut", "matroska"}) {
    const std::string out = s / (std::string("pipe.") + format);
    ASSERT_EQ(cli_test::shell("cat '" + in + "' | TMPDIR='" + s.path() + "' '" + kCli + "' render - -o - --format " +
                              format + opts +
                              "--codec ffv1 > '" + out + "'"),
              0)
        << format;
    EXPECT_EQ(shellOutput("ffmpeg -v error -i '" + out + "' -map 0:v -f framemd5 -"), want) << format;
    EXPECT_TRUE(has(probeAll(out, "stream=codec_type"), "codec_type=audio")) << format;
  }
  // y4m: raw frames, as ffmpeg writes them.
  ASSERT_EQ(cli_test::shell("cat '" + in + "' | '" + kCli + "' render - -o - --format y4m" + opts + "> '" +
                            (s / "pipe.y4m") + "'"),
            0);
  EXPECT_EQ(probe(s / "pipe.y4m", "codec_name"), "rawvideo");
  EXPECT_EQ(shellOutput("ffprobe -v error -count_frames -show_entries stream=nb_read_frames -of csv=p=0 '" +
                        (s / "pipe.y4m") + "'"),
            "30\n");
  // Nothing left behind in the temporary folder (TMPDIR) for standard input.
  for (const auto& e : std::filesystem::directory_iterator(s.path()))
    EXPECT_EQ(e.path().filename().string().rfind("tesselux-stdin-", 0), std::string::npos);
}

TEST(Pipes, StandardOutputNeedsAFormat) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  const std::string in = makeClip(s, "in.mkv", "-c:v ffv1", 0.2);
  const auto r = cli_test::run(kCli, {"render", in, "-o", "-", "--quiet"}, s.path());
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(has(r.err, "standard output needs --format")) << r.err;
  EXPECT_EQ(r.out, "");
}

}  // namespace

namespace {

// SubRip cannot go into MP4, MOV or WebM as it is: it becomes their text
// format (mov_text, WebVTT) with its language and cue times.
TEST(KeptStreams, TextSubtitlesConvertedToTheContainersFormat) {
  if (!haveFfmpeg()) GTEST_SKIP() << "no ffmpeg tool";
  Scratch s;
  {
    std::FILE* f = std::fopen((s / "s.srt").c_str(), "w");
    std::fputs("1\n00:00:00,000 --> 00:00:01,000\nhello\n\n2\n00:00:01,000 --> 00:00:02,000\nworld\n", f);
    std::fclose(f);
  }
  const std::string in = makeClip(s, "srt.mkv",
                                  "-i '" + (s / "s.srt") + "' -c:v libx264 -pix_fmt yuv420p -c:s srt "
                                  "-metadata:s:s:0 language=deu",
                                  2);
  const std::pair<const char*, const char*> cases[] = {{"o.mp4", "mov_text"}, {"o.mov", "mov_text"},
                                                       {"o.webm", "webvtt"}};
  for (const auto& [name, codec] : cases) {
    const auto r = cli_test::run(kCli, {"render", in, "-o", s / name, "--strength", "0", "--quiet"}, s.path());
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.err, "") << name;
    const std::string info = probeAll(s / name, "stream=codec_name,codec_type");
    EXPECT_TRUE(has(info, std::string("codec_name=") + codec + "|codec_type=subtitle")) << name << ": " << info;
    const std::string cues = shellOutput("ffmpeg -v error -i '" + (s / name) + "' -map 0:s -f srt -");
    EXPECT_TRUE(has(cues, "00:00:00,000 --> 00:00:01,000\nhello")) << name << ": " << cues;
    EXPECT_TRUE(has(cues, "00:00:01,000 --> 00:00:02,000\nworld")) << name << ": " << cues;
  }
  EXPECT_TRUE(has(probeAll(s / "o.mp4", "stream_tags=language"), "language=deu"));
}

}  // namespace
