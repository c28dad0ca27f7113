#include "capture/DisplayCatalogue.h"

#include <cstring>
#include <cwchar>
#include <mutex>
#include <string>

#include "core/Globals.h"
#include "core/Log.h"
#include "core/Rect.h"
#include "platform/Files.h"
#include "platform/VideoHardware.h"
#include "platform/XServer.h"

using ov::Height;
using ov::Width;

namespace {

DisplayInfo g_Displays[ov::kMaxDisplays];
int32_t g_nDisplayCount = 0;

// X has no adapters apart from its outputs: each RandR monitor is reported
// as one adapter would be, with the DRM driver standing for its driver.
bool WalkMonitors() {
  std::vector<ov::MonitorInfo> monitors = ov::Monitors();
  g_nDisplayCount = static_cast<int32_t>(std::min<size_t>(monitors.size(), ov::kMaxDisplays));
  LogFile("==============Adapter Count:%d====================\n", g_nDisplayCount);
  std::string driver = "X11";
  for (const auto& controller : ov::VideoControllers()) {
    for (const std::string& line : controller)
      if (line.rfind("DriverName=", 0) == 0 && line.size() > 11) driver = line.substr(11);
  }
  for (int32_t i = 0; i < g_nDisplayCount; ++i) {
    const ov::MonitorInfo& m = monitors[static_cast<size_t>(i)];
    DisplayInfo& record = g_Displays[i];
    std::swprintf(record.szDevice, 32, L"%hs", m.name);
    record.rcMonitor = m.rect;
    const RECT& r = m.rect;
    LogFile("%s: %s(%s)\n", m.name, driver.c_str(), m.primary ? "primary monitor" : "monitor");
    LogFile("\t%dx%d(%d) %d\n", Width(r), Height(r), ov::OutputRefreshRate(m.name),
            ov::ScreenDepth());
    LogFile("\tMonitor:{%dx%x-%dx%d}(%dx%d), Work:{%dx%x-%dx%d}(%dx%d), Flags=%d, Device=%ls\n",
            r.left, r.top, r.right, r.bottom, Width(r), Height(r), r.left, r.top, r.right, r.bottom,
            Width(r), Height(r), m.primary ? 1 : 0, record.szDevice);
  }
  LogFile("==================================\n");
  return g_nDisplayCount != 0;
}

void WriteObjects(const std::vector<std::vector<std::string>>& objects,
                  std::initializer_list<const char*> hidden) {
  for (const auto& object : objects) {
    for (const std::string& line : object) {
      bool hide = false;
      for (const char* word : hidden) hide = hide || line.find(word) != std::string::npos;
      if (!hide) WriteLog(ov::kMsg, "%ls\n", ov::FromUtf8(line).c_str());
    }
  }
}

}  // namespace

namespace ov {

void RebuildDisplayCatalogue(bool afterDisplayChange) {
  g_nDisplayCount = 0;
  if (afterDisplayChange) g_nDisplayIndex = 0;
  if (WalkMonitors()) {
    // The pointer hook clamps to the display under this lock.
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    g_rcDisplay = g_Displays[0].rcMonitor;
  }
}

void BuildDisplayCatalogue() { RebuildDisplayCatalogue(false); }

void ReportVideoHardware() {
  WriteObjects(VideoControllers(), {"DeviceID", "SystemName"});
  WriteObjects(DesktopMonitors(), {"SystemName"});
}

}  // namespace ov

extern "C" int32_t GetDisplayCount() { return g_nDisplayCount; }

extern "C" DisplayInfo* GetDisplayInfo(int32_t index) {
  return index >= 0 && index < g_nDisplayCount ? &g_Displays[index] : nullptr;
}

extern "C" void UseDisplay(int32_t index) {
  if (index < 0 || index >= g_nDisplayCount) return;
  g_nDisplayIndex = index;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    g_rcDisplay = g_Displays[index].rcMonitor;
  }
  const RECT& r = g_rcDisplay;
  WriteLog(ov::kMsg, "Use Display %d, Rect={%dx%d-%dx%d}\n", index, r.left, r.top, r.right,
           r.bottom);
}

// X11 desktops have no shared icon view or task bar to steer.
extern "C" void ShowDesktopWindow(BOOL show) {
  WriteLog(ov::kMsg, "ShowDesktopWindow(%d): nothing to do on this desktop\n", show);
}

extern "C" void AppbarAutohide(BOOL on) {
  WriteLog(ov::kMsg, "AppbarAutohide(%d): nothing to do on this desktop\n", on);
}
