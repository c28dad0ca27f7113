// The cursor's image as the X server shows it, from XFixes.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace ov {

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
