#include "platform/XServer.h"
#include "session/Globals.h"
#include "session/Subsystems.h"

namespace ov {

void BuildDisplayCatalogue() {
  std::vector<MonitorInfo> monitors = Monitors();
  if (monitors.empty()) return;
  g_rcDisplay = monitors.front().rect;
  g_nDisplayIndex = 0;
}

}  // namespace ov
