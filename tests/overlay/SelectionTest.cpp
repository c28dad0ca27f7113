// The screen selection driven by XTest: a drag gives the dragged rectangle,
// a click the window under it (clipped by the display's edge), Escape
// cancels; the zoom glass shows the pixels under the pointer four times. The
// window picker, and the static box.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "orvanta/boxes.h"
#include "orvanta/selection.h"
#include "support/TestEnv.h"

// After gtest, whose names Xlib's macros would take.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

namespace {

struct Choice : CSelectionCallback {
  void OnSelectionChanged(HWND w, const RECT* s, const RECT* in) override {
    std::lock_guard<std::mutex> lock(mutex);
    window = w, screen = *s, inWindow = *in, ++changes;
    done.notify_all();
  }
  void OnSelectionFinished(BOOL c) override {
    std::lock_guard<std::mutex> lock(mutex);
    cancelled = c, finished = true;
    done.notify_all();
  }
  bool WaitFor(const bool& flag) {
    std::unique_lock<std::mutex> lock(mutex);
    return done.wait_for(lock, std::chrono::seconds(20), [&] { return flag; });
  }
  // Runs an episode and waits for its first offer.
  void Start() {
    ovSelectScreen(0, this);
    std::unique_lock<std::mutex> lock(mutex);
    done.wait_for(lock, std::chrono::seconds(20), [&] { return changes > 0; });
  }
  std::mutex mutex;
  std::condition_variable done;
  HWND window = 1;
  RECT screen{}, inWindow{};
  int changes = 0;
  BOOL cancelled = -1;
  bool finished = false;
};

struct Picked : CWindowSelectCallback {
  void OnWindowChanged(HWND w, const RECT* r) override {
    std::lock_guard<std::mutex> lock(mutex);
    window = w, rect = *r;
  }
  void OnWindowSelectionEnded() override {
    std::lock_guard<std::mutex> lock(mutex);
    ended = true;
    done.notify_all();
  }
  std::mutex mutex;
  std::condition_variable done;
  HWND window = 0;
  RECT rect{};
  bool ended = false;
};

bool Same(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

uint32_t ScreenPixel(Display* d, int x, int y) {
  XImage* image = XGetImage(d, DefaultRootWindow(d), x, y, 1, 1, AllPlanes, ZPixmap);
  const uint32_t p = XGetPixel(image, 0, 0) & 0xFFFFFF;
  XDestroyImage(image);
  return p;
}

TEST(ScreenSelection, DragClickEscapeAndTheZoomGlass) {
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  auto make = [&](int x, int y, int w, int h, unsigned long colour) {
    Window window = XCreateSimpleWindow(d, DefaultRootWindow(d), x, y, w, h, 0, 0, colour);
    XMapRaised(d, window);
    return window;
  };
  make(0, 0, 640, 480, 0x204060);
  const Window hanging = make(540, 400, 200, 150, 0x00FF00);
  make(90, 90, 40, 40, 0xFF0000);
  XSync(d, False);

  Choice drag;
  drag.Start();
  ovtest::RunCapture(
      "xdotool mousemove 50 60 mousedown 1 mousemove 120 90 mousemove 250 170 "
      "mouseup 1");
  ASSERT_TRUE(drag.WaitFor(drag.finished));
  EXPECT_FALSE(drag.cancelled);
  EXPECT_EQ(drag.window, 0u);
  EXPECT_TRUE(Same(drag.screen, {50, 60, 250, 170}));

  Choice click;
  click.Start();
  ovtest::RunCapture("xdotool mousemove 600 450 click 1");
  ASSERT_TRUE(click.WaitFor(click.finished));
  EXPECT_FALSE(click.cancelled);
  EXPECT_EQ(click.window, hanging);
  EXPECT_TRUE(Same(click.screen, {540, 400, 640, 480}));
  EXPECT_TRUE(Same(click.inWindow, {0, 0, 200, 150}));

  Choice escape;
  escape.Start();
  ovtest::RunCapture("xdotool mousemove 120 100");
  // The glass's corner is 48 pixels past the pointer; its lower right
  // quarter, from (100, 68) in it, magnifies the screen from the pointer on.
  auto cell = [&](int k) { return ScreenPixel(d, 168 + 100 + 4 * k + 2, 148 + 68 + 4 + 2); };
  for (int i = 0; i < 50 && cell(0) != 0xFF0000; ++i) usleep(100000);
  EXPECT_EQ(cell(0), 0xFF0000u);
  EXPECT_EQ(cell(9), 0xFF0000u) << "the red window's last column";
  EXPECT_EQ(cell(11), 0x204060u) << "the desktop beyond it";
  ovtest::RunCapture("xdotool key Escape");
  ASSERT_TRUE(escape.WaitFor(escape.finished));
  EXPECT_TRUE(escape.cancelled);

  // On the live desktop the window under the pointer is offered whole.
  Picked picked;
  ovSelectWindow(&picked);
  ovtest::RunCapture("xdotool mousemove 300 300 sleep 0.3 mousemove 600 450 sleep 0.3 click 1");
  std::unique_lock<std::mutex> lock(picked.mutex);
  ASSERT_TRUE(picked.done.wait_for(lock, std::chrono::seconds(20), [&] { return picked.ended; }));
  EXPECT_EQ(picked.window, hanging);
  EXPECT_TRUE(Same(picked.rect, {540, 400, 740, 550}));
  XCloseDisplay(d);
}

// The static box frames its region and hides nothing inside it, with or
// without a compositing manager; a region off the display is refused.
TEST(StaticBox, FramesTheRegionAndLeavesItSeen) {
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  Window desktop = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 640, 480, 0, 0, 0x204060);
  XMapRaised(d, desktop);
  XSync(d, False);
  const RECT outside{600, 400, 700, 500};
  EXPECT_EQ(ovShowStaticBox(0, &outside, 1), nullptr);
  const RECT region{100, 100, 300, 200};
  CBaseClassObject* box = ovShowStaticBox(0, &region, 1);
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(ScreenPixel(d, 99, 150), 0xFFFFFFu) << "the ring";
  EXPECT_EQ(ScreenPixel(d, 200, 150), 0x204060u) << "the region itself";
  box->Destroy();
  XSync(d, False);
  EXPECT_EQ(ScreenPixel(d, 99, 150), 0x204060u);
  XDestroyWindow(d, desktop);
  XCloseDisplay(d);
}

}  // namespace
