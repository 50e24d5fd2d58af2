#include "options.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace cli {

namespace {

bool parseShort(const std::string& text, A_short& out) {
  if (text.empty() || text.size() > 5) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  const long v = std::strtol(text.c_str(), nullptr, 10);
  if (v > std::numeric_limits<A_short>::max()) return false;
  out = static_cast<A_short>(v);
  return true;
}

thost::ApiVersion parseApi(const std::string& text) {
  const size_t dot = text.find('.');
  thost::ApiVersion v;
  if (dot == std::string::npos || !parseShort(text.substr(0, dot), v.major) ||
      !parseShort(text.substr(dot + 1), v.minor))
    throw UsageError{"--api needs MAJOR.MINOR, e.g. 13.28, not '" + text + "'"};
  return v;
}

thost::App parseApp(const std::string& text) {
  if (text == "ae" || text == "aftereffects") return thost::App::AfterEffects;
  if (text == "premiere" || text == "ppro") return thost::App::PremierePro;
  throw UsageError{"--host needs 'ae' or 'premiere', not '" + text + "'"};
}

}  // namespace

HostOptions parseHostOptions(const std::vector<std::string>& args) {
  HostOptions o;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string arg = args[i];
    std::string value;
    bool inlineValue = false;
    if (arg.rfind("--", 0) == 0) {
      const size_t eq = arg.find('=');
      if (eq != std::string::npos) {
        value = arg.substr(eq + 1);
        arg = arg.substr(0, eq);
        inlineValue = true;
      }
    }
    auto takeValue = [&]() -> std::string {
      if (inlineValue) return value;
      if (i + 1 >= args.size()) throw UsageError{arg + " needs a value"};
      return args[++i];
    };
    if (arg == "--help" || arg == "-h") {
      o.help = true;
    } else if (arg == "--json") {
      o.json = true;
    } else if (arg == "--plugin") {
      o.plugin = takeValue();
      if (o.plugin.empty()) throw UsageError{"--plugin needs a path"};
    } else if (arg == "--host") {
      o.app = parseApp(takeValue());
    } else if (arg == "--api") {
      o.version = parseApi(takeValue());
    } else if (!arg.empty() && arg[0] == '-') {
      throw UsageError{"unknown option '" + args[i] + "'"};
    } else {
      throw UsageError{"unexpected argument '" + args[i] + "'"};
    }
  }
  return o;
}

const char* appName(thost::App app) {
  return app == thost::App::PremierePro ? "Premiere Pro" : "After Effects";
}

}  // namespace cli
