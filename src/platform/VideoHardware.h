// The machine's graphics adapters and monitors, as the kernel tells them.
#pragma once

#include <string>
#include <vector>

#include "platform/NonCopyable.h"

namespace ov {

// Each entry is a list of "Name=Value" lines describing one object.
std::vector<std::vector<std::string>> VideoControllers();
std::vector<std::vector<std::string>> DesktopMonitors();

// Refresh rate in Hz of the mode shown on the named RandR output; 0 unknown.
int OutputRefreshRate(const char* outputName);
// The screen's colour depth in bits.
int ScreenDepth();

// Watches RandR for changes of the screen's layout on a connection of its own.
class DisplayChangeWatcher : private NonCopyable {
 public:
  DisplayChangeWatcher();
  ~DisplayChangeWatcher();
  // Descriptor to poll; -1 without a server.
  int Fd() const;
  // Reads what arrived; true when the layout changed.
  bool Drain();
  // True once the server went away; the descriptor then stays readable and
  // should no longer be polled.
  bool Lost() const;

 private:
  void* m_display = nullptr;
  int m_eventBase = 0;
};

}  // namespace ov
