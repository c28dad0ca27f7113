// orvanta shot: an annotated screenshot, saved to a file or put on the
// clipboard.
#pragma once

#include <string>
#include <vector>

namespace cli {

extern const char kShotUsage[];
int RunShot(const std::vector<std::string>& args);

}  // namespace cli
