// `orvanta cameras` and `orvanta camera [N]`: the cameras the engine found,
// and a live preview of one in a window of its own.
#pragma once

#include <string>
#include <vector>

namespace cli {

extern const char kCameraUsage[];

int RunCameras();
int RunCamera(const std::vector<std::string>& args);

}  // namespace cli
