// Catches X errors for one scope instead of letting Xlib end the process.
#pragma once

#include <X11/Xlib.h>

namespace ov {

// The engine's shared connection; null without a server.
Display* SharedXDisplay();

class XErrorTrap {
 public:
  explicit XErrorTrap(Display* display);
  ~XErrorTrap();
  XErrorTrap(const XErrorTrap&) = delete;
  XErrorTrap& operator=(const XErrorTrap&) = delete;

  // Syncs with the server and tells whether an error arrived in the scope.
  bool Failed();
  int ErrorCode() const;

 private:
  Display* m_display;
  int (*m_previous)(Display*, XErrorEvent*);
};

}  // namespace ov
