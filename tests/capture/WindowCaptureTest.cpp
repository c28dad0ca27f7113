// A window recorded while it moves, grows and is half covered, until it is
// closed: every frame holds the window's own pattern, and the closing ends
// the video.
#include "capture/MagnifierHost.h"
#include "capture/RecordingCodec.h"
#include "core/Globals.h"
#include "platform/DesktopMirror.h"
#include "platform/Text.h"
#include "support/FrameIndexFile.h"
#include "support/LogMark.h"
#include "support/Media.h"
#include "support/Servers.h"
// Last: Xlib's macros would break the test framework's headers.
#include <X11/Xlib.h>

namespace {

// Red and green columns, 16 pixels wide, from the window's corner.
uint32_t Pattern(int x) { return x % 32 < 16 ? kRed : kGreen; }

class WindowCaptureTest : public CaptureTest {
 protected:
  void RecordMovingCoveredWindow(const char* method);
  void CloseWithTheRealEncoder();
};

// The window closed mid-recording leaves an index and a video that agree
// and decode to their last frame.
void WindowCaptureTest::CloseWithTheRealEncoder() {
  FreeCapturedFile(1);  // the record of the recording before
  CScreenCapture::s_codecFactoryForTesting = nullptr;
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  Window target = XCreateSimpleWindow(d, DefaultRootWindow(d), 100, 100, 160, 120, 0, 0, kGreen);
  XMapWindow(d, XCreateSimpleWindow(d, target, 0, 0, 80, 120, 0, 0, kRed));  // not one colour
  XMapWindow(d, target);
  XSync(d, False);
  video.hWindow = target;
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(1200);
  XDestroyWindow(d, target);
  XCloseDisplay(d);
  SleepMs(300);
  recorder->Destroy();
  const std::string file = ov::ToUtf8(GetCapturedFile()->szScreenCaptureFile);
  const size_t indexed = ovtest::ReadFrameIndex(file + ".idx").entries.size();
  EXPECT_GE(indexed, 2u) << "a still window: its key frames";
  EXPECT_EQ(ovtest::DecodeErrors(file), "");
  EXPECT_EQ(ovtest::Probe(file, "-count_frames -show_entries stream=nb_read_frames"),
            std::to_string(indexed) + "\n");
}

void WindowCaptureTest::RecordMovingCoveredWindow(const char* method) {
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  const Window root = DefaultRootWindow(d);
  const int depth = DefaultDepth(d, DefaultScreen(d));
  // The server paints the tiled background itself whenever it is needed.
  Pixmap tile = XCreatePixmap(d, root, 32, 8, depth);
  GC gc = XCreateGC(d, tile, 0, nullptr);
  for (int x = 0; x < 32; x += 16) {
    XSetForeground(d, gc, Pattern(x));
    XFillRectangle(d, tile, gc, x, 0, 16, 8);
  }
  XSetWindowAttributes a;
  a.background_pixmap = tile;
  Window target = XCreateWindow(d, root, 100, 100, 160, 120, 0, CopyFromParent, InputOutput,
                                CopyFromParent, CWBackPixmap, &a);
  a.background_pixel = 0xFFFFFF;
  Window cover = XCreateWindow(d, root, 300, 200, 80, 120, 0, CopyFromParent, InputOutput,
                               CopyFromParent, CWBackPixel, &a);
  XMapWindow(d, target);
  XSync(d, False);

  video.hWindow = target;
  video.rcWindow = {0, 0, 160, 120};
  ovtest::LogMark mark;
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(300);
  XMoveWindow(d, target, 300, 200);
  XSync(d, False);
  SleepMs(300);
  XMapRaised(d, cover);
  XSync(d, False);
  SleepMs(300);
  XMoveResizeWindow(d, target, 250, 150, 200, 150);
  XSync(d, False);
  SleepMs(300);
  XDestroyWindow(d, target);
  XSync(d, False);
  SleepMs(300);
  const size_t atClose = g_codec->Count();
  SleepMs(300);
  recorder->Destroy();
  XDestroyWindow(d, cover);
  XFreeGC(d, gc);
  XFreePixmap(d, tile);
  XCloseDisplay(d);

  const std::string log = mark.Text();
  EXPECT_NE(log.find(method), std::string::npos);
  EXPECT_NE(log.find("The window not exist."), std::string::npos);
  EXPECT_EQ(recorded.finishes, 1);
  EXPECT_EQ(recorded.framesAtFinish, atClose) << "no frames after the window closed";
  ASSERT_GE(recorded.frames.size(), 8u);
  for (size_t i = 0; i < recorded.frames.size(); ++i)
    for (int y = 2; y < 120; y += 13)
      for (int x = 3; x < 160; x += 7)
        ASSERT_EQ(Pixel(recorded.frames[i], x, y), Pattern(x)) << i << ": " << x << "," << y;
}

TEST_F(WindowCaptureTest, FollowsTheWindowAndShowsItWhenCoveredUntilItCloses) {
  RecordMovingCoveredWindow("Window capture method: 0");
  CloseWithTheRealEncoder();
}

// Under a compositing manager the desktop is composed up to the window.
TEST_F(WindowCaptureTest, ComposedPictureDoesTheSame) {
  const pid_t manager = ovtest::Spawn({"xcompmgr"});
  ASSERT_GT(manager, 0);
  for (int i = 0; i < 100 && !ov::CompositionManagerRunning(); ++i) SleepMs(20);
  ov::ProbeHardwareCapture();
  ASSERT_TRUE(SupportHarderwareScreenCapture());
  RecordMovingCoveredWindow("Window capture method: 3");
  CloseWithTheRealEncoder();
  ovtest::Stop(manager);
  ov::ProbeHardwareCapture();
}

}  // namespace
