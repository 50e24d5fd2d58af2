// Makes malloc fail for the plug-in module, as a host short of memory would:
// the test binary's own malloc stands in front of the C library's, and while
// armed it refuses the n-th request made from inside the module's code.
// Only for builds without a sanitizer, which brings its own allocator.
#pragma once

#include <cstddef>
#include <string>

namespace malloc_failure {

// From now on, the n-th malloc called from code of the loaded module whose
// path ends with `moduleSuffix` returns null (once). Returns false when no
// such module is loaded.
bool arm(const std::string& moduleSuffix, int nth);
void disarm();
// Module mallocs seen since arm(), and whether the failure happened.
int seen();
bool fired();

}  // namespace malloc_failure
