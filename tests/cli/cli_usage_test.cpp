// Output names that cannot be written, encoders that refuse their settings,
// names with "%" taken as they stand, oiiotool's "#" and "@" patterns, quiet
// mode, `tesselux demo` interrupted, and --downsample: each a user's command
// line run as a child process on files made at test time.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "cli_test_support.h"
#include "demo_clip.h"
#include "io/media.h"

namespace {

using cli_test::Scratch;

const std::string kCli = TESSELUX_CLI;

cli_test::RunResult tesselux(const Scratch& s, std::vector<std::string> args) {
  args.insert(args.begin(), "render");
  args.push_back("--quiet");
  return cli_test::run(kCli, args, s.path());
}

// The issue's clip: 60 frames of 320x180 at 30 fps with a frame counter.
void makeClip(const std::string& path) {
  const std::string cmd = "ffmpeg -v error -y -f lavfi -i testsrc2=s=320x180:r=30:d=2 -pix_fmt yuv420p '" + path + "'";
  ASSERT_EQ(cli_test::shell(cmd), 0) << cmd;
}

void writeStill(const std::string& path, int k = 0) {
  cli::writeImage(path, cli::convert(cli::demoFrame(k, 32, 24, 8), cli::SampleType::U8));
}

int lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

bool says(const cli_test::RunResult& r, const std::string& what) { return r.err.find(what) != std::string::npos; }

bool exists(const std::string& path) { return std::filesystem::exists(path); }

}  // namespace

TEST(OutputNames, EachBadOutputSaysWhatIsWrong) {
  Scratch s;
  makeClip(s / "in.mp4");
  std::filesystem::create_directory(s / "out");
  const std::vector<std::pair<std::string, std::string>> cases{
      {"-", "standard output needs --format"},
      {"/dev/null", "is not a regular file"},
      {s / "out/", "is a directory"},
      {s / "out", "is a directory"},
      {s / "new/", "names a directory"},
      {s / "noext", "has no extension"},
      {s / "x.xyz", "unknown output format .xyz"},
  };
  for (const auto& [output, reason] : cases) {
    const auto r = tesselux(s, {s / "in.mp4", "-o", output, "-y"});
    EXPECT_EQ(r.status, 1) << output << ": " << r.err;
    EXPECT_EQ(lines(r.err), 1) << output << ": " << r.err;
    EXPECT_TRUE(says(r, reason)) << output << ": " << r.err;
    EXPECT_FALSE(says(r, "a still takes one frame")) << output << ": " << r.err;
  }
  std::vector<std::string> left = s.list();
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"in.mp4", "out"}));
  EXPECT_TRUE(s.list("out").empty());
}

TEST(OutputNames, AnEncoderThatRefusesItsSettingsSaysWhichAndWhy) {
  Scratch s;
  makeClip(s / "in.mp4");
  // .3gp takes H.263, which has five frame sizes and 320x180 is none of them.
  const auto r = tesselux(s, {s / "in.mp4", "-o", s / "x.3gp"});
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_EQ(lines(r.err), 1) << r.err;
  EXPECT_TRUE(says(r, "h263")) << r.err;
  EXPECT_TRUE(says(r, "320x180")) << r.err;
  EXPECT_TRUE(says(r, "352x288")) << r.err;
  EXPECT_FALSE(says(r, "Invalid argument")) << r.err;
  EXPECT_FALSE(exists(s / "x.3gp"));
}

TEST(OutputNames, ALiteralNameWithAPercentSignWorksAsInputAndOutput) {
  Scratch s;
  makeClip(s / "50%done.mp4");
  const auto in = tesselux(s, {s / "50%done.mp4", "-o", s / "o.mkv", "--frames", "0-4"});
  EXPECT_EQ(in.status, 0) << in.err;
  EXPECT_TRUE(exists(s / "o.mkv"));
  makeClip(s / "in.mp4");
  const auto out = tesselux(s, {s / "in.mp4", "-o", s / "75%done.mp4", "--frames", "0-4"});
  EXPECT_EQ(out.status, 0) << out.err;
  EXPECT_TRUE(exists(s / "75%done.mp4"));
  EXPECT_FALSE(exists(s / "750one.mp4"));
  // A still of that very name is read as itself, not as a numbered pattern.
  writeStill(s / "50%done.png");
  const auto still = tesselux(s, {s / "50%done.png", "-o", s / "still.png"});
  EXPECT_EQ(still.status, 0) << still.err;
  EXPECT_TRUE(exists(s / "still.png"));
}

TEST(OutputNames, OiiotoolHashAndAtPatternsNumberSequences) {
  Scratch s;
  for (int k = 0; k < 3; ++k) writeStill(s / ("in" + std::string(k == 0 ? "0000" : k == 1 ? "0001" : "0002") + ".png"), k);
  // "#" is four digits, each "@" one.
  const auto hash = tesselux(s, {s / "in#.png", "-o", s / "o@@@.png"});
  EXPECT_EQ(hash.status, 0) << hash.err;
  for (const char* name : {"o000.png", "o001.png", "o002.png"}) EXPECT_TRUE(exists(s / name)) << name;
  const auto at = tesselux(s, {s / "in@@@@.png", "-o", s / "p.#.png"});
  EXPECT_EQ(at.status, 0) << at.err;
  for (const char* name : {"p.0000.png", "p.0001.png", "p.0002.png"}) EXPECT_TRUE(exists(s / name)) << name;
  // The issue's '####.png': sixteen digits, one file per frame.
  makeClip(s / "in.mp4");
  const auto clip = tesselux(s, {s / "in.mp4", "-o", s / "####.png", "--frames", "0-1"});
  EXPECT_EQ(clip.status, 0) << clip.err;
  EXPECT_TRUE(exists(s / "0000000000000000.png"));
  EXPECT_TRUE(exists(s / "0000000000000001.png"));
}

TEST(Quiet, QuietSilencesTheEncodersOwnBanners) {
  Scratch s;
  makeClip(s / "in.mp4");
  // x265 prints its banner and summary to stderr itself, past FFmpeg's log.
  std::vector<std::string> args{"render", s / "in.mp4", "-o", s / "h.mp4", "--codec", "libx265", "--frames", "0-2"};
  const auto loud = cli_test::run(kCli, args, s.path());
  ASSERT_EQ(loud.status, 0) << loud.err;
  EXPECT_TRUE(loud.err.find("x265 [info]") != std::string::npos) << loud.err;
  args.insert(args.end(), {"-q", "-y"});
  const auto quiet = cli_test::run(kCli, args, s.path());
  EXPECT_EQ(quiet.status, 0) << quiet.err;
  EXPECT_EQ(quiet.err, "");
  EXPECT_EQ(quiet.out, "");
}

namespace {

// `tesselux demo -o DIR` as a child of its own session, its stderr into
// ERR; returns its pid.
pid_t startDemo(const std::string& dir, const std::string& err, bool quiet) {
  const pid_t pid = fork();
  if (pid == 0) {
    setsid();
    const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int devnull = open("/dev/null", O_WRONLY);
    dup2(e, 2);
    dup2(devnull, 1);
    execl(kCli.c_str(), kCli.c_str(), "demo", "-o", dir.c_str(), "--threads", "1", quiet ? "-q" : nullptr,
          static_cast<char*>(nullptr));
    _exit(127);
  }
  return pid;
}

bool anyStartsWith(const Scratch& s, const std::string& sub, const std::string& prefix) {
  for (const std::string& n : s.list(sub))
    if (n.rfind(prefix, 0) == 0) return true;
  return false;
}

// Waits up to four minutes for a file named PREFIX... in DIR, then sends
// SIGINT and returns the exit status.
int interruptWhen(const Scratch& s, pid_t pid, const std::string& prefix) {
  for (int i = 0; i < 48000 && !anyStartsWith(s, "demo", prefix); ++i) usleep(5 * 1000);
  EXPECT_TRUE(anyStartsWith(s, "demo", prefix)) << "no " << prefix << " file within four minutes";
  kill(pid, SIGINT);
  int st = 0;
  waitpid(pid, &st, 0);
  EXPECT_TRUE(WIFEXITED(st)) << "killed by signal " << WTERMSIG(st);
  return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

}  // namespace

TEST(Demo, CtrlCWhileTheClipIsMadeLeavesNoPartialFile) {
  Scratch s;
  std::filesystem::create_directory(s / "demo");
  const pid_t pid = startDemo(s / "demo", s / "err.txt", false);
  EXPECT_EQ(interruptWhen(s, pid, ".input.partial"), 130);
  EXPECT_FALSE(anyStartsWith(s, "demo", ".")) << "a partial file is left";
  EXPECT_FALSE(exists(s / "demo/input.mp4"));
  const std::string err = cli_test::slurp(s / "err.txt");
  EXPECT_TRUE(err.find("generating") != std::string::npos) << err;  // the notes show without -q
  EXPECT_TRUE(err.find("interrupted") != std::string::npos) << err;
}

TEST(Demo, CtrlCWhileRenderingLeavesNoPartialFileAndQuietPrintsNoNotes) {
  Scratch s;
  std::filesystem::create_directory(s / "demo");
  const pid_t pid = startDemo(s / "demo", s / "err.txt", true);
  EXPECT_EQ(interruptWhen(s, pid, ".output.partial"), 130);
  EXPECT_FALSE(anyStartsWith(s, "demo", ".")) << "a partial file is left";
  EXPECT_FALSE(exists(s / "demo/output.mp4"));
  const std::string err = cli_test::slurp(s / "err.txt");
  EXPECT_TRUE(err.find("generating") == std::string::npos) << err;
  EXPECT_TRUE(err.find("rendering") == std::string::npos) << err;
}

namespace {

// `picture` twice as wide and high, each pixel a 2x2 square of itself.
cli::Picture doubled(const cli::Picture& p) {
  cli::Picture out(p.width * 2, p.height * 2, p.type);
  const size_t px = 4 * static_cast<size_t>(cli::sampleBytes(p.type));
  for (int y = 0; y < out.height; ++y)
    for (int x = 0; x < out.width; ++x)
      std::memcpy(out.row(y) + x * px, p.row(y / 2) + (x / 2) * px, px);
  return out;
}

cli::Picture readStill(const std::string& path) { return cli::openSource(path)->read(0); }

}  // namespace

// At 1/2 the host lends the layer at half size and the effect halves its
// block sizes: the output is the half-size picture shuffled with half-size
// blocks, the look of the full render at a quarter of the pixels.
TEST(Downsample, HalfResolutionRendersTheLayerAtHalfSizeWithHalfSizeBlocks) {
  Scratch s;
  const cli::Picture half = cli::convert(cli::demoFrame(3, 48, 32, 8), cli::SampleType::U8);
  cli::writeImage(s / "half.png", half);
  cli::writeImage(s / "full.png", doubled(half));  // every 2x2 square one colour: any box filter halves it exactly
  const std::vector<std::string> look{"--strength", "1", "--spread", "0.7", "--seed", "5"};
  for (const std::string host : {"ae", "premiere"}) {
    std::vector<std::string> reduced{s / "full.png", "-o", s / ("reduced-" + host + ".png"), "--host", host,
                                     "--downsample", "1/2", "--block-width", "8", "--block-height", "6"};
    std::vector<std::string> direct{s / "half.png", "-o", s / ("direct-" + host + ".png"), "--host", host,
                                    "--block-width", "4", "--block-height", "3"};
    reduced.insert(reduced.end(), look.begin(), look.end());
    direct.insert(direct.end(), look.begin(), look.end());
    const auto a = tesselux(s, reduced);
    ASSERT_EQ(a.status, 0) << a.err;
    const auto b = tesselux(s, direct);
    ASSERT_EQ(b.status, 0) << b.err;
    const cli::Picture got = readStill(s / ("reduced-" + host + ".png"));
    EXPECT_EQ(got.width, 48) << host;
    EXPECT_EQ(got.height, 32) << host;
    EXPECT_TRUE(got == readStill(s / ("direct-" + host + ".png"))) << host;
    EXPECT_FALSE(got == half) << host << ": the shuffle changed nothing";
  }
}
