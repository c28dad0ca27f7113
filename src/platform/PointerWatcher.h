// The pointer as the whole desktop sees it: raw motion and button events
// from XInput2 on a connection of its own, and the cursor's image from XFixes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

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

// The cursor shown now, as premultiplied BGRA rows without gaps.
struct CursorImage {
  uint64_t serial = 0;
  int32_t width = 0, height = 0;
  int32_t xHot = 0, yHot = 0;
  bool visible = true;
  std::vector<uint32_t> pixels;
};

// Follows the cursor's image on a connection of its own. Update is cheap
// when the cursor did not change: it only reads pending notifications.
class CursorMonitor {
 public:
  virtual ~CursorMonitor() = default;
  // Returns the current image, refreshed if the server announced a change.
  virtual const CursorImage& Current() = 0;
};

std::unique_ptr<CursorMonitor> CreateCursorMonitor();

}  // namespace ov
