// `orvanta demo [--seconds N] [--size WxH] [OUT]`: a ten-second recording
// with sound that needs no desktop. Without DISPLAY it brings up its own X
// server with a moving scene and its own sound server playing beeps, and
// ends every process it started, by pid, whatever way the demo ends.
#pragma once

#include <string>
#include <vector>

namespace cli {

int RunDemo(const std::vector<std::string>& args);

extern const char kDemoUsage[];

}  // namespace cli
