// `orvanta displays` and `orvanta devices`: what the engine reports.
#pragma once

namespace cli {

int RunDisplays();
int RunDevices();

}  // namespace cli
