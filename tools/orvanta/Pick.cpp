#include "Pick.h"

#include <orvanta/orvanta.h>

#include <condition_variable>
#include <mutex>

namespace {

struct Answer : CSelectionCallback, CWindowSelectCallback {
  void OnSelectionChanged(HWND w, const RECT* screen, const RECT*) override {
    std::lock_guard<std::mutex> lock(mutex);
    window = w, rect = *screen;
  }
  void OnSelectionFinished(BOOL bCancelled) override { End(bCancelled != 0); }
  void OnWindowChanged(HWND w, const RECT* screen) override {
    OnSelectionChanged(w, screen, nullptr);
  }
  void OnWindowSelectionEnded() override { End(window == 0); }
  void End(bool cancel) {
    std::lock_guard<std::mutex> lock(mutex);
    cancelled = cancel, ended = true;
    done.notify_all();
  }
  std::mutex mutex;
  std::condition_variable done;
  HWND window = 0;
  RECT rect{};
  bool cancelled = false, ended = false;
};

}  // namespace

namespace cli {

bool PickTarget(RecordOptions* o, std::string* error) {
  Answer answer;
  if (o->pickWindow)
    ovSelectWindow(&answer);
  else
    ovSelectScreen(0, &answer);
  std::unique_lock<std::mutex> lock(answer.mutex);
  answer.done.wait(lock, [&] { return answer.ended; });
  if (answer.cancelled) {
    *error = o->pickWindow ? "no window was picked" : "the selection was cancelled";
    return false;
  }
  if (answer.window) {
    o->window = answer.window;
  } else {
    const RECT& r = answer.rect;
    o->hasRegion = true;
    o->region = {r.left, r.top, r.right - r.left, r.bottom - r.top};
  }
  return true;
}

}  // namespace cli
