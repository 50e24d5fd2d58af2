// The subcommands of the `tesselux` command. Each gets the arguments after its
// name and returns the process exit status.
#pragma once

#include <string>
#include <vector>

namespace cli {

// Loads the plug-in, registers it, runs global and parameter setup, prints
// the registration, version, flags and the controls, then runs one instance
// through sequence setup and setdown and reports contract breaks.
int runInfo(const std::vector<std::string>& args);
extern const char* const kInfoUsage;

}  // namespace cli
