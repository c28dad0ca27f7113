#include "platform/linux/XErrorTrap.h"

#include <mutex>

namespace ov {

namespace {

// Xlib's handler is process-wide; one trap at a time owns it.
std::recursive_mutex g_trapMutex;
thread_local int t_errorCode = 0;

int RecordError(Display*, XErrorEvent* event) {
  t_errorCode = event->error_code;
  return 0;
}

}  // namespace

XErrorTrap::XErrorTrap(Display* display) : m_display(display) {
  g_trapMutex.lock();
  t_errorCode = 0;
  m_previous = XSetErrorHandler(RecordError);
}

XErrorTrap::~XErrorTrap() {
  XSync(m_display, False);
  XSetErrorHandler(m_previous);
  g_trapMutex.unlock();
}

bool XErrorTrap::Failed() {
  XSync(m_display, False);
  return t_errorCode != 0;
}

int XErrorTrap::ErrorCode() const { return t_errorCode; }

}  // namespace ov
