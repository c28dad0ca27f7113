// What the two crop boxes share: the arithmetic of a drag on a handle, an
// edge or the move area, and the thread each box lives on.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

#include "orvanta/types.h"
#include "platform/MessageQueue.h"

namespace ov {

// A rectangle being dragged by its zone hit (the hit codes of BoxStyles.h),
// within (0, 0, width, height).
struct CropDrag {
  int32_t hit = 0;
  RECT start = {};  // the rectangle at the press
  POINT press = {};
  bool keepRatio = false;
  int32_t ratioWidth = 1, ratioHeight = 1;
};

inline constexpr int32_t kMinCropSide = 8;

// The rectangle when the pointer stands at point. Sides never fall under
// kMinCropSide; a move keeps the whole rectangle inside; with keepRatio the
// moved edge sets the other side from the proportion, cut to what fits.
RECT DragCrop(const CropDrag& drag, POINT point, int32_t width, int32_t height);

// The thread a box runs on, with its message queue: the box's windows are
// served there and its callbacks are called from there.
class BoxThread {
 public:
  BoxThread() = default;
  BoxThread(const BoxThread&) = delete;
  BoxThread& operator=(const BoxThread&) = delete;
  ~BoxThread() { Stop(); }

  // Runs setUp on the new thread and waits for it; when it succeeds, the
  // thread then serves its queue and runs tearDown when the queue quits. False (the thread ended)
  // when setUp failed; tearDown runs in both cases.
  bool Start(std::function<bool(MessageQueue&)> setUp, std::function<void()> tearDown);
  // Runs work on the thread and waits for it (at once on the thread itself).
  void Call(const std::function<void()>& work);
  bool OnOwnThread() const { return std::this_thread::get_id() == m_thread.get_id(); }
  // Quits the queue and waits for the thread. From the thread itself (a
  // callback ending its box) the thread is let go instead, and afterLast
  // runs on it once the queue is gone.
  void Stop(std::function<void()> afterLast = nullptr);
  // Deletes the box this thread serves, from any thread; from the thread
  // itself the box goes after its last message.
  template <class Box>
  void DeleteBox(Box* box) {
    if (!OnOwnThread()) {
      Stop();
      delete box;
      return;
    }
    Stop([box] { delete box; });
  }

 private:
  void Post(uint32_t message, uint64_t wParam = 0);

  std::thread m_thread;
  uint32_t m_threadId = 0;
  std::function<void()> m_afterLast;
};

}  // namespace ov
