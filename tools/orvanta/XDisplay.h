// The little the command asks the X server itself: whether it answers, and
// the size of a window that is to be recorded.
#pragma once

#include <cstdint>

namespace cli {

// True when $DISPLAY names a server that accepts a connection.
bool DisplayAnswers();

struct WindowSize {
  bool exists = false;
  bool viewable = false;
  int32_t width = 0;  // with the border: the engine measures from the outer corner
  int32_t height = 0;
};

WindowSize QueryWindowSize(uint64_t window);

// The window that owns the CLIPBOARD selection now, or 0.
uint64_t ClipboardOwner();

}  // namespace cli
