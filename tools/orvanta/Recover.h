// orvanta recover: the final file of a recording whose process died, made
// from the temp files it left.
#pragma once

#include <string>
#include <vector>

namespace cli {

extern const char kRecoverUsage[];

int RunRecover(const std::vector<std::string>& args);

}  // namespace cli
