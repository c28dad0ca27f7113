// orvanta play: a recording's temp files played in a window of their own,
// before anything is assembled.
#pragma once

#include <string>
#include <vector>

namespace cli {

extern const char kPlayUsage[];

int RunPlay(const std::vector<std::string>& args);

}  // namespace cli
