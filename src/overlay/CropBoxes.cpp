#include "overlay/CropBoxes.h"

#include <algorithm>
#include <future>
#include <memory>

#include "overlay/BoxStyles.h"

namespace ov {

RECT DragCrop(const CropDrag& drag, POINT point, int32_t width, int32_t height) {
  const RECT& s = drag.start;
  const int32_t dx = point.x - drag.press.x, dy = point.y - drag.press.y;
  RECT r = s;
  auto top = [&] {
    r.top = std::max(s.top + dy, 0);
    if (r.bottom - r.top < kMinCropSide) r.top = r.bottom - kMinCropSide;
  };
  auto bottom = [&] {
    r.bottom = std::min(s.bottom + dy, height);
    if (r.bottom - r.top < kMinCropSide) r.bottom = r.top + kMinCropSide;
  };
  auto left = [&] {
    r.left = std::max(s.left + dx, 0);
    if (r.right - r.left < kMinCropSide) r.left = r.right - kMinCropSide;
  };
  auto right = [&] {
    r.right = std::min(s.right + dx, width);
    if (r.right - r.left < kMinCropSide) r.right = s.left + kMinCropSide;
  };
  switch (drag.hit) {
    case kHitTop:
      top();
      break;
    case kHitBottom:
      bottom();
      break;
    case kHitLeft:
      left();
      break;
    case kHitRight:
      right();
      break;
    case kHitTopLeft:
      top();
      left();
      break;
    case kHitTopRight:
      top();
      right();
      break;
    case kHitBottomLeft:
      bottom();
      left();
      break;
    case kHitBottomRight:
      bottom();
      right();
      break;
    case kHitMove: {
      int32_t mx = std::max(dx, -s.left), my = std::max(dy, -s.top);
      mx = std::min(mx, width - s.right);
      my = std::min(my, height - s.bottom);
      return {s.left + mx, s.top + my, s.right + mx, s.bottom + my};
    }
    default:
      return s;
  }
  if (!drag.keepRatio || drag.ratioWidth <= 0 || drag.ratioHeight <= 0) return r;
  // Only right and bottom follow the proportion, whichever edge moved.
  if (drag.hit == kHitTop || drag.hit == kHitBottom) {
    int64_t w = std::max<int64_t>(int64_t{r.bottom - r.top} * drag.ratioWidth / drag.ratioHeight,
                                  kMinCropSide);
    w = std::min<int64_t>(w, width - r.left);
    r.right = r.left + static_cast<int32_t>(w);
  } else if (drag.hit == kHitLeft || drag.hit == kHitRight) {
    int64_t h = std::max<int64_t>(int64_t{r.right - r.left} * drag.ratioHeight / drag.ratioWidth,
                                  kMinCropSide);
    h = std::min<int64_t>(h, height - r.top);
    r.bottom = r.top + static_cast<int32_t>(h);
  }
  return r;
}

namespace {

constexpr uint32_t kCall = WM_USER + 1;

// Shared by the caller and the thread, so that neither outlives what the
// other still touches.
struct CallWork {
  std::function<void()> work;
  std::promise<void> done;
};

}  // namespace

bool BoxThread::Start(std::function<bool(MessageQueue&)> setUp, std::function<void()> tearDown) {
  // The queue's thread id, 0 when setUp failed.
  auto started = std::make_shared<std::promise<uint32_t>>();
  std::future<uint32_t> ready = started->get_future();
  m_thread = std::thread([this, started, setUp = std::move(setUp), tearDown = std::move(tearDown)] {
    std::function<void()> afterLast;
    {
      MessageQueue queue;
      if (!setUp(queue)) {
        tearDown();
        started->set_value(0);
        return;
      }
      started->set_value(queue.ThreadId());
      Message msg;
      while (queue.Get(&msg)) {
        if (msg.message != kCall) continue;
        std::unique_ptr<std::shared_ptr<CallWork>> call(
            reinterpret_cast<std::shared_ptr<CallWork>*>(msg.wParam));
        (*call)->work();
        (*call)->done.set_value();
      }
      tearDown();
      afterLast = std::move(m_afterLast);
    }
    if (afterLast) afterLast();
  });
  m_threadId = ready.get();
  if (m_threadId == 0) {
    m_thread.join();
    return false;
  }
  return true;
}

void BoxThread::Post(uint32_t message, uint64_t wParam) {
  if (m_threadId) MessageQueue::PostThreadMessage(m_threadId, message, wParam, 0);
}

void BoxThread::Call(const std::function<void()>& work) {
  if (OnOwnThread()) return work();
  if (!m_threadId) return;
  auto call = std::make_shared<CallWork>(CallWork{work, {}});
  std::future<void> done = call->done.get_future();
  Post(kCall, reinterpret_cast<uint64_t>(new std::shared_ptr<CallWork>(call)));
  done.wait();
}

void BoxThread::Stop(std::function<void()> afterLast) {
  if (!m_thread.joinable()) return;
  if (OnOwnThread()) {
    m_afterLast = std::move(afterLast);
    m_thread.detach();
    Post(WM_QUIT);
    return;
  }
  Post(WM_QUIT);
  m_thread.join();
  m_threadId = 0;
}

}  // namespace ov
