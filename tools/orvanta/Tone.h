// `orvanta tone`: short beeps on the default sound output, one at the start
// of every second after an epoch, in step with the flashes of the scene.
#pragma once

#include <string>
#include <vector>

namespace cli {

// Options: --epoch NS (as for the scene), --ready-fd FD.
int RunTone(const std::vector<std::string>& args);

}  // namespace cli
