// Running the `tesselux` command from tests, and scratch folders.
#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace cli_test {

struct RunResult {
  int status = -1;       // exit status, or 128 + signal
  std::string err;       // stderr
  std::string out;       // stdout
  long maxRssKb = 0;     // the child's peak resident set
};

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs `program args...` with stdout and stderr captured; waits for it.
inline RunResult run(const std::string& program, const std::vector<std::string>& args,
                     const std::string& scratch) {
  const std::string outPath = scratch + "/.stdout", errPath = scratch + "/.stderr";
  const pid_t pid = fork();
  if (pid == 0) {
    const int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(o, 1);
    dup2(e, 2);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  RunResult r;
  int status = 0;
  struct rusage usage = {};
  wait4(pid, &status, 0, &usage);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  r.maxRssKb = usage.ru_maxrss;
  r.out = slurp(outPath);
  r.err = slurp(errPath);
  std::filesystem::remove(outPath);
  std::filesystem::remove(errPath);
  return r;
}

inline int shell(const std::string& command) { return std::system(command.c_str()); }

// A fresh folder, removed with everything in it at the end of the test.
class Scratch {
 public:
  Scratch() {
    char tmpl[] = "/tmp/tesselux-cli-test-XXXXXX";
    path_ = mkdtemp(tmpl);
  }
  ~Scratch() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  // Names in the folder (hidden files included).
  std::vector<std::string> list(const std::string& sub = "") const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(sub.empty() ? path_ : path_ + "/" + sub))
      names.push_back(e.path().filename().string());
    return names;
  }

 private:
  std::string path_;
};

}  // namespace cli_test
