// Invisible windows that take the pointer (and, while text is typed, the
// keyboard) over a part of the screen: the drawing surface while a tool is
// chosen and the grips of the recorder box. Each has a connection of its
// own whose descriptor a thread's message queue watches.
#pragma once

#include <cstdint>
#include <memory>

#include "orvanta/types.h"

namespace ov {

struct PointerShape;

struct InputEvent {
  enum Type { kNone, kButtonDown, kButtonUp, kMotion, kKey, kFocusLost };
  Type type = kNone;
  int32_t x = 0, y = 0;  // in the window
  int32_t rootX = 0, rootY = 0;
  int32_t button = 0;
  uint32_t keysym = 0;  // X key symbol of a key
  bool shift = false, control = false;
  char text[8] = {};  // UTF-8 of a key that types
};

class InputWindow {
 public:
  virtual ~InputWindow() = default;
  virtual HWND Handle() const = 0;
  // Readable when events wait.
  virtual int Fd() const = 0;
  // The next waiting event; false when none waits. Runs of motion are
  // reported as their last.
  virtual bool NextEvent(InputEvent* event) = 0;
  virtual void Show(bool show) = 0;
  virtual void Move(const RECT& rect) = 0;
  // The pointer's shape over the window; null hides it.
  virtual void SetCursor(const PointerShape* shape) = 0;
  // Keeps the pointer's events while a button is held outside the window.
  virtual void Capture(bool capture) = 0;
  // Takes the keyboard for typing.
  virtual void TakeFocus() = 0;
};

// Null without a server or for an empty rectangle (root coordinates, or
// the parent's for a child of parent).
std::unique_ptr<InputWindow> CreateInputWindow(const RECT& rect, HWND parent = 0);

// A periodic timer whose descriptor a message queue watches.
class PeriodicTimer {
 public:
  virtual ~PeriodicTimer() = default;
  virtual int Fd() const = 0;
  // 0 stops it.
  virtual void Set(uint32_t periodMs) = 0;
  // Reads the expirations; the number since the last call.
  virtual uint64_t Drain() = 0;
};
std::unique_ptr<PeriodicTimer> CreatePeriodicTimer();

}  // namespace ov
