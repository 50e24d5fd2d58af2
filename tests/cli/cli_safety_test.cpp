// What `tesselux render` refuses to overwrite, how it asks, and the messages
// and warnings of its command line: each case is a user's command line run as
// a child process on files made at test time.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
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

void writeStill(const std::string& path, int k = 0) {
  cli::writeImage(path, cli::convert(cli::demoFrame(k, 32, 24, 8), cli::SampleType::U8));
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

int lines(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

bool says(const cli_test::RunResult& r, const std::string& what) { return r.err.find(what) != std::string::npos; }

}  // namespace

TEST(Overwrite, AnOutputThatIsTheInputIsRefusedEvenWithYes) {
  Scratch s;
  writeStill(s / "s.png");
  const std::string before = cli_test::slurp(s / "s.png");
  for (const std::vector<std::string>& extra : {std::vector<std::string>{}, {"-y"}}) {
    std::vector<std::string> args{s / "s.png", "-o", s / "s.png"};
    args.insert(args.end(), extra.begin(), extra.end());
    const auto r = tesselux(s, args);
    EXPECT_EQ(r.status, 1) << r.err;
    EXPECT_EQ(lines(r.err), 1) << r.err;
    EXPECT_TRUE(says(r, "is an input")) << r.err;
  }
  // The same file under another name (a hard link): told apart by device and inode.
  ASSERT_EQ(link((s / "s.png").c_str(), (s / "link.png").c_str()), 0);
  const auto linked = tesselux(s, {s / "s.png", "-o", s / "link.png", "-y"});
  EXPECT_EQ(linked.status, 1) << linked.err;
  EXPECT_TRUE(says(linked, "is an input")) << linked.err;
  // A sequence written over itself.
  for (int k = 0; k < 3; ++k) writeStill(cli::sequenceName(s / "f%02d.png", k), k);
  const std::string frame1 = cli_test::slurp(s / "f01.png");
  const auto seq = tesselux(s, {s / "f%02d.png", "-o", s / "f%02d.png", "-y"});
  EXPECT_EQ(seq.status, 1) << seq.err;
  EXPECT_TRUE(says(seq, "is an input")) << seq.err;
  EXPECT_EQ(cli_test::slurp(s / "s.png"), before);
  EXPECT_EQ(cli_test::slurp(s / "f01.png"), frame1);
}

TEST(Overwrite, AnExistingOutputNeedsYesAndTheLastOfYesAndNoWins) {
  Scratch s;
  writeStill(s / "in.png");
  writeText(s / "o.png", "keep me");
  const auto plain = tesselux(s, {s / "in.png", "-o", s / "o.png"});
  EXPECT_EQ(plain.status, 1) << plain.err;
  EXPECT_EQ(lines(plain.err), 1) << plain.err;
  EXPECT_TRUE(says(plain, "already exists")) << plain.err;
  EXPECT_TRUE(says(plain, "-y")) << plain.err;
  const auto no = tesselux(s, {s / "in.png", "-o", s / "o.png", "-n"});
  EXPECT_EQ(no.status, 1) << no.err;
  EXPECT_TRUE(says(no, "not overwriting")) << no.err;
  const auto yesThenNo = tesselux(s, {s / "in.png", "-o", s / "o.png", "-y", "--no-overwrite"});
  EXPECT_EQ(yesThenNo.status, 1) << yesThenNo.err;
  EXPECT_EQ(cli_test::slurp(s / "o.png"), "keep me");
  const auto noThenYes = tesselux(s, {s / "in.png", "-o", s / "o.png", "-n", "--overwrite"});
  EXPECT_EQ(noThenYes.status, 0) << noThenYes.err;
  EXPECT_NE(cli_test::slurp(s / "o.png"), "keep me");
  // One existing frame of a sequence output is enough to refuse.
  writeText(s / "q01.png", "keep me too");
  const auto seq = tesselux(s, {s / "in.png", "-o", s / "q%02d.png", "--frames", "0-0"});
  EXPECT_EQ(seq.status, 0) << seq.err;  // frame 0 is q00.png, which is new
  const auto seq1 = tesselux(s, {s / "f%02d.png", "-o", s / "q%02d.png"});
  EXPECT_NE(seq1.status, 0);
  EXPECT_EQ(cli_test::slurp(s / "q01.png"), "keep me too");
}

namespace {

// Runs the command with a pseudo-terminal as stdin and stderr, answers
// `answer` once the question shows, and returns the exit status and what the
// terminal showed.
std::pair<int, std::string> runOnTerminal(const std::vector<std::string>& args, const std::string& answer) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return {-1, "no pty"};
  const std::string slaveName = ptsname(master);
  const pid_t pid = fork();
  if (pid == 0) {
    setsid();
    const int slave = open(slaveName.c_str(), O_RDWR);
    dup2(slave, 0);
    dup2(slave, 2);
    const int devnull = open("/dev/null", O_WRONLY);
    dup2(devnull, 1);
    std::vector<char*> argv{const_cast<char*>(kCli.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(kCli.c_str(), argv.data());
    _exit(127);
  }
  std::string shown;
  bool answered = false;
  for (int i = 0; i < 6000; ++i) {  // up to 60 s
    pollfd p{master, POLLIN, 0};
    ssize_t n = 0;
    char buf[256];
    // Once the terminal has no other end, reads fail at once: wait instead.
    if (poll(&p, 1, 10) > 0) n = read(master, buf, sizeof buf);
    if (n > 0) shown.append(buf, static_cast<size_t>(n));
    else usleep(10 * 1000);
    if (!answered && shown.find("Overwrite? [y/N]") != std::string::npos) {
      (void)!write(master, answer.data(), answer.size());
      answered = true;
    }
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
      close(master);
      return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), shown};
    }
  }
  int status = 0;
  kill(pid, SIGKILL);
  waitpid(pid, &status, 0);
  close(master);
  return {-2, shown};
}

}  // namespace

TEST(Overwrite, OnATerminalTheCommandAsksAsFfmpegDoes) {
  Scratch s;
  writeStill(s / "in.png");
  writeText(s / "o.png", "keep me");
  const std::vector<std::string> args{"render", s / "in.png", "-o", s / "o.png", "--quiet"};
  const auto [refused, shownNo] = runOnTerminal(args, "n\n");
  if (refused == -1) GTEST_SKIP() << "no pseudo-terminal on this machine";
  EXPECT_EQ(refused, 1) << shownNo;
  EXPECT_NE(shownNo.find("File '" + s / "o.png" + "' already exists. Overwrite? [y/N]"), std::string::npos)
      << shownNo;
  EXPECT_EQ(cli_test::slurp(s / "o.png"), "keep me");
  const auto [replaced, shownYes] = runOnTerminal(args, "y\n");
  EXPECT_EQ(replaced, 0) << shownYes;
  EXPECT_NE(cli_test::slurp(s / "o.png"), "keep me");
}

namespace {

// A refusal: the status, one line, naming `what`, and no output written.
void expectRefused(const Scratch& s, const std::vector<std::string>& args, int status, const std::string& what) {
  const auto r = tesselux(s, args);
  EXPECT_EQ(r.status, status) << r.err;
  EXPECT_EQ(lines(r.err), 1) << r.err;
  EXPECT_TRUE(says(r, what)) << "wanted: " << what << "\ngot: " << r.err;
  EXPECT_FALSE(std::filesystem::exists(s / "o.png"));
}

}  // namespace

TEST(OptionMessages, CountsFramesAndMaskSayWhatIsWrong) {
  Scratch s;
  writeStill(s / "in.png");
  for (int k = 0; k < 3; ++k) writeStill(cli::sequenceName(s / "f%02d.png", k), k);
  const std::string in = s / "in.png", o = s / "o.png";
  expectRefused(s, {in, "-o", o, "--threads", "0"}, 2, "--threads must be at least 1");
  expectRefused(s, {in, "-o", o, "--cache-mb", "0"}, 2, "--cache-mb must be at least 1");
  expectRefused(s, {in, "-o", o, "--threads", "abc"}, 2, "--threads abc: needs a whole number");
  expectRefused(s, {s / "f%02d.png", "-o", s / "o%02d.png", "--frames", "10-5"}, 2,
                "--frames 10-5: A must not exceed B");
  expectRefused(s, {in, "-o", o, "--mask", s / "nope.mp4"}, 1, "--mask: ");
  const auto many = tesselux(s, {in, "-o", o, "--threads", "1000"});
  EXPECT_EQ(many.status, 0) << many.err;
  EXPECT_TRUE(says(many, "warning: --threads 1000 is more than the")) << many.err;
}

TEST(OptionMessages, DecimalFrameRatesAreTheNtscRationals) {
  Scratch s;
  for (int k = 0; k < 3; ++k) writeStill(cli::sequenceName(s / "f%02d.png", k), k);
  const std::pair<std::string, cli::Rate> cases[] = {
      {"29.97", {30000, 1001}}, {"23.976", {24000, 1001}}, {"59.94", {60000, 1001}}, {"12.5", {25, 2}}};
  for (const auto& [text, want] : cases) {
    const std::string out = s / ("r" + text + ".mp4");
    const auto r = tesselux(s, {s / "f%02d.png", "-o", out, "--fps", text});
    ASSERT_EQ(r.status, 0) << text << ": " << r.err;
    const auto rate = cli::openSource(out)->rate();
    ASSERT_TRUE(rate.has_value()) << text;
    EXPECT_EQ(rate->num, want.num) << text;
    EXPECT_EQ(rate->den, want.den) << text;
  }
}

namespace {

void writeSequence(const std::string& pattern, int frames, int w, int h) {
  for (int k = 0; k < frames; ++k)
    cli::writeImage(cli::sequenceName(pattern, k),
                    cli::convert(cli::demoFrame(k, w, h, frames), cli::SampleType::U8));
}

}  // namespace

TEST(Signals, HangupAndTerminateLeaveNothingAndExitAsTheShellReportsThem) {
  Scratch s;
  std::filesystem::create_directory(s / "out");
  // Many small frames: the render must still be running when the signal comes.
  writeSequence(s / "in%03d.png", 200, 160, 120);
  for (const auto& [sig, status] : {std::pair<int, int>{SIGTERM, 143}, {SIGHUP, 129}}) {
    const pid_t pid = fork();
    if (pid == 0) {
      setsid();  // no terminal of the test's own to hang up
      const int devnull = open("/dev/null", O_WRONLY);
      dup2(devnull, 2);
      execl(kCli.c_str(), kCli.c_str(), "render", (s / "in%03d.png").c_str(), "-o", (s / "out/%03d.png").c_str(),
            "--threads", "1", "--time-frames", "16", "--quiet", static_cast<char*>(nullptr));
      _exit(127);
    }
    for (int i = 0; i < 4000 && s.list("out").empty(); ++i) usleep(5 * 1000);
    EXPECT_FALSE(s.list("out").empty()) << "the render wrote nothing within 20 s";
    kill(pid, sig);
    int st = 0;
    waitpid(pid, &st, 0);
    ASSERT_TRUE(WIFEXITED(st)) << "killed by signal " << WTERMSIG(st);
    EXPECT_EQ(WEXITSTATUS(st), status) << "signal " << sig;
    EXPECT_TRUE(s.list("out").empty()) << "signal " << sig;
  }
}

TEST(Signals, AFileSizeLimitEndsWithOneErrorLineAndLeavesNothing) {
  Scratch s;
  std::filesystem::create_directory(s / "out");
  writeSequence(s / "in%02d.png", 40, 320, 240);
  // (ulimit -f 500; tesselux render ...): 500 blocks, far less than the output.
  const std::string command = "ulimit -f 500; exec '" + kCli + "' render '" + s / "in%02d.png" + "' -o '" +
                              s / "out/o.mkv" + "' --quiet 2>'" + s / "err.txt" + "'";
  const int st = cli_test::shell(command);
  ASSERT_TRUE(WIFEXITED(st)) << "killed by signal " << WTERMSIG(st);
  EXPECT_EQ(WEXITSTATUS(st), 1);
  const std::string err = cli_test::slurp(s / "err.txt");
  EXPECT_EQ(lines(err), 1) << err;
  EXPECT_TRUE(s.list("out").empty());
}

TEST(OptionMessages, AMisspeltOptionIsNamedWithTheNearestOne) {
  Scratch s;
  writeStill(s / "in.png");
  expectRefused(s, {s / "in.png", "-o", s / "o.png", "--strengh", "0.5"}, 2,
                "unknown option --strengh; did you mean --strength?");
  expectRefused(s, {s / "in.png", "-o", s / "o.png", "--frobnicate"}, 2, "unknown option --frobnicate\n");
}

TEST(OptionMessages, CheckboxesTakeOnAndOffAndTheLastOneGivenWins) {
  Scratch s;
  cli::writeImage(s / "in.png", cli::convert(cli::demoFrame(3, 96, 64, 8), cli::SampleType::U8));
  auto renderWith = [&](const std::string& name, std::vector<std::string> extra) {
    std::vector<std::string> args{s / "in.png", "-o", s / name};
    args.insert(args.end(), extra.begin(), extra.end());
    const auto r = tesselux(s, args);
    EXPECT_EQ(r.status, 0) << name << ": " << r.err;
    return cli_test::slurp(s / name);
  };
  const std::string off = renderWith("off.png", {"--no-composite"});
  const std::string on = renderWith("on.png", {"--composite"});
  ASSERT_NE(off, on) << "the checkbox must change this picture for the test to mean anything";
  EXPECT_EQ(renderWith("a.png", {"--composite", "off"}), off);
  EXPECT_EQ(renderWith("b.png", {"--composite=off"}), off);
  EXPECT_EQ(renderWith("c.png", {"--composite", "on"}), on);
  EXPECT_EQ(renderWith("d.png", {"--no-composite", "--composite"}), on);
  EXPECT_EQ(renderWith("e.png", {"--composite", "--no-composite"}), off);
}

TEST(OptionMessages, OptionsWithoutEffectUnderTheOtherSettingsWarn) {
  Scratch s;
  writeStill(s / "in.png");
  writeStill(s / "m.png", 5);
  int n = 0;
  auto renderWith = [&](std::vector<std::string> extra) {
    std::vector<std::string> args{s / "in.png", "-o", s / ("o" + std::to_string(n++) + ".png")};
    args.insert(args.end(), extra.begin(), extra.end());
    const auto r = tesselux(s, args);
    EXPECT_EQ(r.status, 0) << r.err;
    return r.err;
  };
  EXPECT_EQ(renderWith({"--mask", s / "m.png"}),
            "tesselux render: warning: --mask has no effect while \"Intensity\" (--mask-intensity) is 0\n");
  EXPECT_EQ(renderWith({"--time-step-seconds", "0.5", "--exclusive"}),
            "tesselux render: warning: --time-step-seconds has no effect while \"Frames\" (--time-frames) is 0\n"
            "tesselux render: warning: --exclusive has no effect while \"Frames\" (--time-frames) is 0\n");
  EXPECT_EQ(renderWith({"--time-frames", "2", "--time-step-frames", "3"}),
            "tesselux render: warning: --time-step-frames has no effect while \"Stepping Unit\" "
            "(--stepping-unit) is second\n");
  // Settings where every option counts say nothing.
  EXPECT_EQ(renderWith({"--time-frames", "2", "--stepping-unit", "frame", "--time-step-frames", "3", "--mask",
                        s / "m.png", "--mask-intensity", "50"}),
            "");
}

TEST(OptionMessages, ADecimalSeedIsRoundedNotTruncated) {
  Scratch s;
  cli::writeImage(s / "in.png", cli::convert(cli::demoFrame(3, 96, 64, 8), cli::SampleType::U8));
  auto renderWith = [&](const std::string& seed) {
    const std::string out = s / ("seed" + seed + ".png");
    const auto r = tesselux(s, {s / "in.png", "-o", out, "--seed", seed, "--strength", "1"});
    EXPECT_EQ(r.status, 0) << r.err;
    return cli_test::slurp(out);
  };
  const std::string one = renderWith("1"), two = renderWith("2");
  ASSERT_NE(one, two);
  EXPECT_EQ(renderWith("1.6"), two);
  EXPECT_EQ(renderWith("1.4"), one);
}
