// Catches X errors for one scope instead of letting Xlib end the process.
#pragma once

#include <X11/Xlib.h>

#include "platform/NonCopyable.h"

namespace ov {

// The engine's shared connection; null without a server.
Display* SharedXDisplay();

class XErrorTrap : private NonCopyable {
 public:
  explicit XErrorTrap(Display* display);
  ~XErrorTrap();

  // Syncs with the server and tells whether an error arrived in the scope.
  bool Failed();
  int ErrorCode() const;

 private:
  Display* m_display;
  int (*m_previous)(Display*, XErrorEvent*);
};

}  // namespace ov
