// Temp sets found on disk rather than made by a recording of this process:
// the leftovers of a process that died, made into a record again.
#pragma once

#include <string>

namespace ov {

// The name of the first file of a temp set in folder, or empty when the
// folder holds none.
std::wstring FindTempSetFile(const std::wstring& folder);

}  // namespace ov
