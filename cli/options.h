// Options every subcommand of the `tesselux` command shares.
#pragma once

#include <string>
#include <vector>

#include "thost/host.h"

namespace cli {

struct HostOptions {
  std::string plugin;  // empty: the built module (or $TESSELUX_PLUGIN)
  thost::App app = thost::App::AfterEffects;
  thost::ApiVersion version{13, 28};
  bool help = false;
  bool json = false;  // info: print JSON
};

// A bad command line; the message says what was wrong.
struct UsageError {
  std::string message;
};

// Parses --plugin PATH, --host ae|premiere, --api MAJOR.MINOR, --json and --help
// (also in the --name=value form). Throws UsageError.
HostOptions parseHostOptions(const std::vector<std::string>& args);

const char* appName(thost::App app);

}  // namespace cli
