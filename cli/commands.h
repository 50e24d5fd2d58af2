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

// Renders INPUT through the effect into OUTPUT (see `tesselux render --help`).
int runRender(const std::vector<std::string>& args);

// Generates the built-in clip and mask, renders them with the demo preset and
// writes input, output and a contact sheet into a folder.
int runDemo(const std::vector<std::string>& args);

}  // namespace cli
