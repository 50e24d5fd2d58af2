// tesselux: runs the effect in the headless host.
#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"

namespace {

struct Subcommand {
  const char* name;
  int (*run)(const std::vector<std::string>& args);
  const char* summary;
};

const Subcommand kSubcommands[] = {
    {"info", cli::runInfo, "register the effect and list its version, flags and controls"},
    {"render", cli::runRender, "render an image, sequence or video through the effect"},
    {"demo", cli::runDemo, "make a generated clip, render it with a preset, write a contact sheet"},
};

void printUsage(std::FILE* to) {
  std::fprintf(to,
               "usage: tesselux [COMMAND] [OPTIONS]\n"
               "       tesselux render INPUT -o OUTPUT [OPTIONS]\n"
               "       tesselux demo [-o DIR]\n"
               "\n"
               "Loads the Tesselux effect into a headless After Effects / Premiere Pro host.\n"
               "\n"
               "Commands (default: info):\n");
  for (const Subcommand& s : kSubcommands) std::fprintf(to, "  %-8s %s\n", s.name, s.summary);
  std::fprintf(to, "\n'tesselux COMMAND --help' shows each command's options.\n\n"
                   "info options:\n%s", cli::kInfoUsage);
}

}  // namespace

#if defined(TESSELUX_ASAN)
// libpng reports a truncated file by longjmp, which skips the destructor of a
// std::string inside OpenImageIO's PNG reader: one small leak per failed read,
// not ours, whose stack (libstdc++ has no frame pointers) ends in _M_assign.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >::_M_assign\n";
}
// Errors stay one line: no table of the suppressions used at exit.
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

int main(int argc, char** argv) {
  // Frames are megabytes each and come and go many times a second. glibc
  // would map and unmap each one, and every fresh mapping costs a page fault
  // per 4 KiB on first touch; kept in the heap they are reused instead.
  // One arena: per-thread arenas live in 64 MiB heaps that are unmapped when
  // they empty, which brings the faults back.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);  // the largest glibc takes
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_ARENA_MAX, 1);
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty() && args[0] == "--version") {
    std::printf("tesselux %s\n", TESSELUX_VERSION);
    return 0;
  }
  const Subcommand* command = &kSubcommands[0];
  bool named = false;
  if (!args.empty() && !args[0].empty() && args[0][0] != '-') {
    command = nullptr;
    for (const Subcommand& s : kSubcommands)
      if (args[0] == s.name) command = &s;
    if (!command) {
      if (args[0] == "help") {
        printUsage(stdout);
        return 0;
      }
      std::fprintf(stderr, "tesselux: unknown command '%s'\nTry 'tesselux --help'.\n",
                   args[0].c_str());
      return 2;
    }
    args.erase(args.begin());
    named = true;
  }
  // Each named command prints its own help.
  if (!named)
    for (const std::string& a : args)
      if (a == "--help" || a == "-h") {
        printUsage(stdout);
        return 0;
      }
  return command->run(args);
}
