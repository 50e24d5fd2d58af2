// Whether an OUTPUT name names something the command can write, checked
// before anything is read, so a wrong name gets its own reason rather than
// whatever the first write runs into.
#pragma once

#include <string>

namespace cli {

// Throws MediaError saying what is wrong: standard output, a directory, a
// device or other non-regular file, a name without an extension, or an
// extension that no image writer or video muxer knows.
void checkOutputName(const std::string& output, const std::string& format);

}  // namespace cli
