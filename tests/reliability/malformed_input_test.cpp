// `tesselux render` on malformed and hostile inputs and outputs: each gives
// one clear error line, a non-zero status, no partial output and no crash.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "cli_test_support.h"
#include "demo_clip.h"
#include "io/media.h"

namespace {

namespace fs = std::filesystem;
using cli_test::Scratch;

const std::string kCli = TESSELUX_CLI;

struct Limits {
  bool unprivileged = false;    // run as "nobody" (root ignores folder permissions)
  rlim_t maxFileBytes = 0;      // RLIMIT_FSIZE, 0: none; writes past it fail like a full disk
};

struct Outcome {
  int status = -1;
  std::string err;
};

Outcome render(const Scratch& s, std::vector<std::string> args, Limits limits = {}) {
  args.insert(args.begin(), "render");
  args.push_back("--quiet");
  const std::string errPath = s / ".stderr";
  const pid_t pid = fork();
  if (pid == 0) {
    const int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    dup2(e, 2);
    const int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, 1);
    if (limits.maxFileBytes) {
      signal(SIGXFSZ, SIG_IGN);  // a write past the limit then fails with EFBIG
      const rlimit r{limits.maxFileBytes, limits.maxFileBytes};
      setrlimit(RLIMIT_FSIZE, &r);
    }
    if (limits.unprivileged && getuid() == 0) {
      const passwd* nobody = getpwnam("nobody");
      if (!nobody || setgid(nobody->pw_gid) != 0 || setuid(nobody->pw_uid) != 0) _exit(126);
    }
    std::vector<char*> argv{const_cast<char*>(kCli.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(kCli.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  Outcome o;
  o.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  o.err = cli_test::slurp(errPath);
  fs::remove(errPath);
  return o;
}

class MalformedInput : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directory(s / "out");
    // Readable by "nobody" too, for the unprivileged runs.
    fs::permissions(s.path(), fs::perms::all);
    fs::permissions(s / "out", fs::perms::all);
    cli::writeImage(s / "ok.png", picture(0, 96, 64));
  }

  static cli::Picture picture(int k, int w, int h, cli::SampleType t = cli::SampleType::U8) {
    return cli::convert(cli::demoFrame(k, w, h, 8), t);
  }

  void writeTruncated(const std::string& from, const std::string& to) {
    const std::string bytes = cli_test::slurp(from);
    std::ofstream(to, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    fs::permissions(to, fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read);
  }

  // One line naming `says`, status 1, nothing new in the output folder, no signal.
  void expectRefused(const std::vector<std::string>& args, const std::string& says,
                     Limits limits = {}, const std::string& outDir = "out") {
    SCOPED_TRACE(args[0] + " -> " + args[2]);
    const std::vector<std::string> before = s.list(outDir);
    const Outcome o = render(s, args, limits);
    ++tried_;
    EXPECT_EQ(o.status, 1) << o.err;
    EXPECT_EQ(std::count(o.err.begin(), o.err.end(), '\n'), 1) << o.err;
    EXPECT_NE(o.err.find(says), std::string::npos) << o.err;
    EXPECT_EQ(s.list(outDir), before) << "partial output left behind";
  }

  Scratch s;
  int tried_ = 0;
};

TEST_F(MalformedInput, DamagedAndEmptyInputFiles) {
  // Truncated files of each kind the command reads.
  cli::writeImage(s / "whole.exr", picture(1, 96, 64, cli::SampleType::F32));
  writeTruncated(s / "whole.exr", s / "truncated.exr");
  writeTruncated(s / "ok.png", s / "truncated.png");
  {
    cli::SinkSettings v;
    v.path = s / "whole.mp4";
    v.frameCount = 6;
    auto sink = cli::openSink(v);
    for (int k = 0; k < 6; ++k) sink->write(cli::convert(picture(k, 96, 64), sink->sampleType()));
    sink->commit();
  }
  writeTruncated(s / "whole.mp4", s / "truncated.mp4");
  // An empty file, and a PNG that declares a 0 x 0 image.
  std::ofstream(s / "empty.png").close();
  const char zeroSize[] =
      "\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR\x00\x00\x00\x00\x00\x00\x00\x00\x08\x06\x00\x00\x00"
      "\x3b\x8b\x7c\x12\x00\x00\x00\x08IDAT\x78\x9c\x03\x00\x00\x00\x00\x01\x48\x06\x89\xd2"
      "\x00\x00\x00\x00IEND\xae\x42\x60\x82";
  std::ofstream(s / "zero.png", std::ios::binary).write(zeroSize, sizeof zeroSize - 1);

  expectRefused({s / "truncated.png", "-o", s / "out/x.png"}, "truncated.png");
  expectRefused({s / "truncated.exr", "-o", s / "out/x.exr"}, "truncated.exr");
  expectRefused({s / "truncated.mp4", "-o", s / "out/x.mp4"}, "truncated.mp4");
  expectRefused({s / "empty.png", "-o", s / "out/x.png"}, "empty.png");
  expectRefused({s / "zero.png", "-o", s / "out/x.png"}, "zero.png");
  // A BMP whose header declares 8 x 33,554,432 pixels: a fuzzer finding, the
  // reader set out to allocate gigabytes (the saved input, less its first byte).
  const std::string finding = cli_test::slurp(std::string(TESSELUX_SOURCE_DIR) +
                                              "/tests/fuzz/regressions/reader/bmp-declaring-8x33554432");
  ASSERT_GT(finding.size(), 1u);
  std::ofstream(s / "huge.bmp", std::ios::binary) << finding.substr(1);
  expectRefused({s / "huge.bmp", "-o", s / "out/x.png"}, "larger than a host world");
  fs::create_directory(s / "folder.png");
  expectRefused({s / "folder.png", "-o", s / "out/x.png"}, "folder.png");
  std::printf("malformed input files tried: %d\n", tried_);
}

TEST_F(MalformedInput, ASequenceWithAMissingFrame) {
  for (int k : {0, 1, 3, 4}) cli::writeImage(cli::sequenceName(s / "seq%02d.png", k), picture(k, 96, 64));
  expectRefused({s / "seq%02d.png", "-o", s / "out/%02d.png"}, "seq02.png is missing");
}

TEST_F(MalformedInput, AMaskThatFailsToDecode) {
  std::ofstream(s / "mask.png", std::ios::binary) << "\x89PNG\r\n\x1a\n but not really";
  writeTruncated(s / "ok.png", s / "half-mask.png");
  expectRefused({s / "ok.png", "-o", s / "out/x.png", "--mask", s / "mask.png"}, "mask.png");
  expectRefused({s / "ok.png", "-o", s / "out/x.png", "--mask", s / "half-mask.png"}, "half-mask.png");
}

TEST_F(MalformedInput, AnOutputOnAReadOnlyFolder) {
  fs::create_directory(s / "locked");
  fs::permissions(s / "locked", fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                    fs::perms::group_exec | fs::perms::others_read |
                                    fs::perms::others_exec);
  Limits l;
  l.unprivileged = true;
  expectRefused({s / "ok.png", "-o", s / "locked/x.png"}, "locked", l, "locked");
  expectRefused({s / "ok.png", "-o", s / "locked/%02d.png"}, "locked", l, "locked");
}

TEST_F(MalformedInput, ADiskFullOutput) {
  // Far more than 4 KiB of output: the write fails part way, as on a full disk.
  cli::writeImage(s / "big.png", picture(2, 640, 480));
  for (int k = 0; k < 4; ++k) cli::writeImage(cli::sequenceName(s / "in%d.png", k), picture(k, 320, 240));
  Limits l;
  l.maxFileBytes = 4096;
  expectRefused({s / "big.png", "-o", s / "out/x.png"}, "x.png", l);
  expectRefused({s / "big.png", "-o", s / "out/x.exr"}, "x.exr", l);
  expectRefused({s / "in%d.png", "-o", s / "out/%d.png"}, "out/", l);
  expectRefused({s / "in%d.png", "-o", s / "out/v.mp4"}, "v.mp4", l);
}

}  // namespace
