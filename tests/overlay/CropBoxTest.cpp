// The crop boxes driven by XTest: handles, edges and the move picture
// adjust the rectangle and the host hears the final one; a kept ratio sets
// the other side. The window crop shows its target live inside the host's
// window and follows the target's resizing, hiding and closing.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "capture/MagnifierHost.h"
#include "orvanta/boxes.h"
#include "orvanta/recorder.h"
#include "platform/DesktopMirror.h"
#include "support/LogMark.h"
#include "support/Servers.h"
#include "support/TestEnv.h"

// After gtest, whose names Xlib's macros would take.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

namespace {

bool Same(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

uint32_t ScreenPixel(Display* d, int x, int y) {
  XImage* image = XGetImage(d, DefaultRootWindow(d), x, y, 1, 1, AllPlanes, ZPixmap);
  const uint32_t p = XGetPixel(image, 0, 0) & 0xFFFFFF;
  XDestroyImage(image);
  return p;
}

// What the boxes report, on their own threads.
struct Heard : CCropCallback, CWindowCropCallback {
  void OnCropBegin() override {
    Note([&] { ++begins; });
  }
  void OnCropEnd() override {
    Note([&] { ++ends; });
  }
  void OnCropChanged(const RECT* r) override {
    Note([&] { crop = *r, ++changes; });
  }
  void OnTargetResized(int w, int h, const RECT* r) override {
    Note([&] { size = {0, 0, w, h}, crop = *r, ++resizes; });
  }
  void OnTargetClosed() override {
    Note([&] { ++closes; });
  }
  void OnTargetMinimized() override {
    Note([&] { ++minimized; });
  }
  void OnTargetRestored() override {
    Note([&] { ++restored; });
  }
  template <typename F>
  void Note(F f) {
    std::lock_guard<std::mutex> lock(mutex);
    f();
    changed.notify_all();
  }
  template <typename F>
  bool WaitFor(F f) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), f);
  }
  RECT Crop() {
    std::lock_guard<std::mutex> lock(mutex);
    return crop;
  }
  std::mutex mutex;
  std::condition_variable changed;
  RECT crop{}, size{};
  int begins = 0, ends = 0, changes = 0, resizes = 0, closes = 0, minimized = 0, restored = 0;
};

// With the zoom glass (under a compositing manager) a press puts the
// pointer on the grabbed edge, which then follows the pointer exactly.
void AdjustScreenCrop(bool glass) {
  const int snap = glass ? 2 : 0;
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  Window desktop = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 640, 480, 0, 0, 0x204060);
  XMapRaised(d, desktop);
  XSync(d, False);
  Heard heard;
  const RECT outside{600, 400, 700, 500};
  EXPECT_EQ(ovShowScreenCropBox(&heard, &outside, 0, 0), nullptr);
  const RECT start{100, 100, 300, 200};
  CScreenCropObject* box = ovShowScreenCropBox(&heard, &start, 0, 0);
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(ScreenPixel(d, 200, 130), 0x204060u) << "the desktop inside the box stays seen";

  // The lower right corner, by 100 x 50.
  ovtest::RunCapture("xdotool mousemove 302 202 mousedown 1 mousemove 350 230 mousemove 402 252");
  if (glass) {
    // The glass's corner is 48 pixels past the pointer; from (100, 68) in it
    // it magnifies the desktop from the pointer on, without the box's rings.
    Window red = XCreateSimpleWindow(d, DefaultRootWindow(d), 410, 240, 10, 30, 0, 0, 0xFF0000);
    XMapRaised(d, red);
    XSync(d, False);
    ovtest::RunCapture("xdotool mousemove 401 252 mousemove 402 252");
    auto cell = [&](int k) { return ScreenPixel(d, 450 + 100 + 4 * k + 2, 300 + 68 + 4 + 2); };
    for (int i = 0; i < 50 && cell(10) != 0xFF0000; ++i) usleep(100000);
    EXPECT_EQ(cell(10), 0xFF0000u);
    EXPECT_EQ(cell(3), 0x204060u) << "under the ring";
    XDestroyWindow(d, red);
  }
  ovtest::RunCapture("xdotool mouseup 1");
  ASSERT_TRUE(heard.WaitFor([&] { return heard.ends == 1; }));
  EXPECT_EQ(heard.begins, 1);
  EXPECT_TRUE(Same(heard.Crop(), {100, 100, 400 + snap, 250 + snap}));
  // The move picture in the middle, back by 100 x 50: the top stays on the display.
  ovtest::RunCapture(
      "xdotool mousemove 250 175 mousedown 1 mousemove 200 150 mousemove 150 10 "
      "mouseup 1");
  ASSERT_TRUE(heard.WaitFor([&] { return heard.ends == 2; }));
  EXPECT_TRUE(Same(heard.Crop(), {0, 0, 300 + snap, 150 + snap}));

  // With the ratio kept (2:1), the right edge sets the height too.
  box->Reset(&start, 1);
  // The glass's pointer jump on the press lands before the drag goes on.
  ovtest::RunCapture("xdotool mousemove 299 150 mousedown 1");
  ASSERT_TRUE(heard.WaitFor([&] { return heard.begins == 3; }));
  ovtest::RunCapture("xdotool mousemove 349 150 mouseup 1");
  ASSERT_TRUE(heard.WaitFor([&] { return heard.ends == 3; }));
  EXPECT_TRUE(Same(heard.Crop(), {100, 100, 350 - snap / 2, 225 - snap / 2}));
  box->Destroy();
  XDestroyWindow(d, desktop);
  XCloseDisplay(d);
}

TEST(ScreenCropBox, HandlesEdgesAndTheMovePictureAdjustTheRectangle) { AdjustScreenCrop(false); }

// Red and green columns, 16 pixels wide, from the target's corner.
uint32_t Pattern(int x) { return x % 32 < 16 ? 0xFF0000 : 0x00FF00; }

// A half-covered target whose copy shows in the host's window.
void CropCoveredTarget(const char* method) {
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  const Window root = DefaultRootWindow(d);
  Pixmap tile = XCreatePixmap(d, root, 32, 8, DefaultDepth(d, DefaultScreen(d)));
  GC gc = XCreateGC(d, tile, 0, nullptr);
  for (int x = 0; x < 32; x += 16) {
    XSetForeground(d, gc, Pattern(x));
    XFillRectangle(d, tile, gc, x, 0, 16, 8);
  }
  Window host = XCreateSimpleWindow(d, root, 0, 0, 400, 300, 0, 0, 0x808080);
  Window target = XCreateSimpleWindow(d, root, 450, 300, 160, 120, 0, 0, 0);
  XSetWindowBackgroundPixmap(d, target, tile);
  Window cover = XCreateSimpleWindow(d, root, 440, 290, 80, 140, 0, 0, 0xFFFFFF);
  for (Window w : {host, target, cover}) XMapRaised(d, w);
  XSync(d, False);
  Heard heard;
  const RECT empty{10, 10, 10, 50};
  EXPECT_EQ(ovCreateWindowCrop(host, &heard, target, &empty, 0), nullptr);
  ovtest::LogMark mark;
  const RECT part{20, 10, 120, 90};
  CWindowCropObject* crop = ovCreateWindowCrop(host, &heard, target, &part, 0);
  ASSERT_NE(crop, nullptr);
  // The target's copy at (8, 8) in the host, its covered part too: bright
  // inside the rectangle, dimmed outside it.
  for (int i = 0; i < 50 && ScreenPixel(d, 8 + 40, 8 + 30) != Pattern(40); ++i) usleep(100000);
  for (int x : {24, 40, 60, 110}) EXPECT_EQ(ScreenPixel(d, 8 + x, 8 + 30), Pattern(x)) << x;
  const uint32_t dim = ScreenPixel(d, 8 + 140, 8 + 30);
  EXPECT_NE(dim, Pattern(140));
  EXPECT_NE(dim, 0x808080u);

  // The lower right corner, by 20 x 10.
  ovtest::RunCapture(
      "xdotool mousemove 129 99 mousedown 1 mousemove 140 104 mousemove 149 109 "
      "mouseup 1");
  ASSERT_TRUE(heard.WaitFor([&] { return Same(heard.crop, {20, 10, 140, 100}); }));

  // Narrower than the rectangle: it is pulled in and reported once.
  const int changes = heard.changes;
  XResizeWindow(d, target, 100, 120);
  XSync(d, False);
  ASSERT_TRUE(heard.WaitFor([&] { return heard.resizes == 1; }));
  EXPECT_TRUE(Same(heard.size, {0, 0, 100, 120}));
  EXPECT_TRUE(Same(heard.Crop(), {20, 10, 100, 100}));
  EXPECT_EQ(heard.changes, changes);

  XUnmapWindow(d, target);
  XSync(d, False);
  ASSERT_TRUE(heard.WaitFor([&] { return heard.minimized == 1; }));
  XMapWindow(d, target);
  XSync(d, False);
  ASSERT_TRUE(heard.WaitFor([&] { return heard.restored == 1; }));
  XDestroyWindow(d, target);
  XSync(d, False);
  ASSERT_TRUE(heard.WaitFor([&] { return heard.closes >= 2; })) << "until the host ends it";
  crop->Destroy();
  EXPECT_NE(mark.Text().find(method), std::string::npos);
  for (Window w : {host, cover}) XDestroyWindow(d, w);
  XFreeGC(d, gc);
  XFreePixmap(d, tile);
  XCloseDisplay(d);
}

TEST(WindowCrop, ShowsTheTargetAndFollowsItUntilItCloses) {
  CropCoveredTarget("Window crop method: 0");
}

// Under a compositing manager the desktop is composed up to the target;
// the screen crop box has its glass.
TEST(WindowCrop, ComposedCopyDoesTheSame) {
  const pid_t manager = ovtest::Spawn({"xcompmgr"});
  ASSERT_GT(manager, 0);
  // The manager ends with the test however it ends: the tests after this
  // one are on a desktop without one.
  struct Ending {
    pid_t manager;
    ~Ending() {
      ovtest::Stop(manager);
      ov::ProbeHardwareCapture();
    }
  } ending{manager};
  for (int i = 0; i < 100 && !ov::CompositionManagerRunning(); ++i) usleep(20000);
  // The start-up probe wants something other than black in the corner,
  // which a manager that has just started may not have painted yet.
  Display* d = XOpenDisplay(nullptr);
  Window corner = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 64, 64, 0, 0, 0x808080);
  XMapWindow(d, corner);
  XSync(d, False);
  ov::ProbeHardwareCapture();
  for (int i = 0; i < 20 && !SupportHarderwareScreenCapture(); ++i) {
    usleep(100000);
    ov::ProbeHardwareCapture();
  }
  XDestroyWindow(d, corner);
  XCloseDisplay(d);
  ASSERT_TRUE(SupportHarderwareScreenCapture());
  CropCoveredTarget("Window crop method: 3");
  AdjustScreenCrop(true);
}

}  // namespace
