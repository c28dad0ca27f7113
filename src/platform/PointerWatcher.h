// The pointer as the whole desktop sees it: raw motion and button events
// from XInput2 on a connection of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace ov {

enum class PointerEvent { Move, LeftDown, LeftUp, RightDown, RightUp };

class PointerWatcher {
 public:
  virtual ~PointerWatcher() = default;
  // Serves events until Stop is called from any thread; calls onEvent with
  // the pointer's position in root coordinates for each of them.
  virtual void Run(const std::function<void(PointerEvent, int32_t x, int32_t y)>& onEvent) = 0;
  virtual void Stop() = 0;
};

// Null without a server or without XInput2.
std::unique_ptr<PointerWatcher> CreatePointerWatcher();

// The pointer's current position; false without a server.
bool QueryPointer(int32_t* x, int32_t* y);
// Puts the pointer at (x, y), root coordinates.
void MovePointer(int32_t x, int32_t y);
}  // namespace ov
