// The change-driven stream through a change of the screen's size, and the
// composed stream leaving an excluded window out of the picture while the
// screen, under a compositing manager, still shows it.
#include "capture/MagnifierHost.h"
#include "capture/RecordingCodec.h"
#include "core/Globals.h"
#include "platform/DesktopMirror.h"
#include "platform/Text.h"
#include "support/FrameIndexFile.h"
#include "support/Servers.h"
// Last: Xlib's macros would break the test framework's headers.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <unistd.h>

namespace {

using ChangeDrivenTest = CaptureTest;

TEST_F(ChangeDrivenTest, ScreenSizeChangeIsAccessLostAndTheStreamComesBack) {
  video.rcScreen = {0, 0, 200, 100};
  ovtest::LogMark mark;
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(300);
  ovtest::RunCapture("xrandr --fb 600x400 2>&1");
  SleepMs(400);
  ovtest::RunCapture("xrandr --fb 640x480 2>&1");
  SleepMs(400);
  const size_t before = g_codec->Count();
  scene.Fill(0, 0, 640, 480, kBlue);  // the server cleared the screen
  scene.Fill(0, 0, 50, 50, kGreen);
  scene.Sync();
  SleepMs(400);
  recorder->Destroy();
  const std::string log = mark.Text();
  EXPECT_NE(log.find("Use Desktop duplication"), std::string::npos);
  EXPECT_NE(log.find("Desktop lost, Recreate!"), std::string::npos);
  EXPECT_NE(log.find("Desktop Changed: (0,0-600,400)<-->(0,0-640,480)"), std::string::npos);
  ASSERT_GT(recorded.frames.size(), before);
  EXPECT_EQ(Pixel(recorded.frames.back(), 10, 10), kGreen) << "frames again after the change";
  EXPECT_EQ(Pixel(recorded.frames.back(), 100, 10), kBlue);
  EXPECT_EQ(recorded.finishes, 1);
}

// With the real encoder: a still screen leaves nothing in the video but its
// key frames and the last frame.
TEST_F(ChangeDrivenTest, StillScreenWritesKeyFramesOnly) {
  CScreenCapture::s_codecFactoryForTesting = nullptr;
  video.rcScreen = {0, 0, 640, 480};
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(2300);
  recorder->Destroy();
  const auto entries =
      ovtest::ReadFrameIndex(ov::ToUtf8(GetCapturedFile()->szScreenCaptureFile) + ".idx").entries;
  ASSERT_GE(entries.size(), 3u) << "key frames at 0 and 1 s at least, and the last frame";
  for (size_t i = 0; i + 1 < entries.size(); ++i)
    EXPECT_NE(entries[i].pictureType, uint32_t{ov::kPicturePredicted}) << i;
}

struct Windows {
  Windows() : display(XOpenDisplay(nullptr)) {}
  ~Windows() {
    for (Window w : made) XDestroyWindow(display, w);
    XCloseDisplay(display);
  }
  // ours: marked with this process's id, as toolkits mark their windows.
  Window Make(int x, int y, int w, int h, uint32_t colour, bool ours = false) {
    XSetWindowAttributes a;
    a.background_pixel = colour;
    a.override_redirect = True;
    Window window =
        XCreateWindow(display, DefaultRootWindow(display), x, y, w, h, 0, CopyFromParent,
                      InputOutput, CopyFromParent, CWBackPixel | CWOverrideRedirect, &a);
    if (ours) {
      const unsigned long pid = static_cast<unsigned long>(getpid());
      XChangeProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), XA_CARDINAL, 32,
                      PropModeReplace, reinterpret_cast<const unsigned char*>(&pid), 1);
    }
    XMapRaised(display, window);
    XSync(display, False);
    made.push_back(window);
    return window;
  }
  uint32_t Screen(int x, int y) {
    XImage* image = XGetImage(display, DefaultRootWindow(display), x, y, 1, 1, AllPlanes, ZPixmap);
    uint32_t p = XGetPixel(image, 0, 0) & 0xFFFFFF;
    XDestroyImage(image);
    return p;
  }
  Display* display;
  std::vector<Window> made;
};

TEST_F(ChangeDrivenTest, ExcludedWindowIsLeftOutAndCoveredWindowsStay) {
  constexpr uint32_t kYellow = 0xFFFF00, kWhite = 0xFFFFFF;
  Windows windows;
  windows.Make(0, 0, 640, 480, kYellow);  // the desktop
  const Window covered = windows.Make(100, 100, 200, 150, kGreen);
  const Window excluded = windows.Make(200, 150, 200, 150, kRed);
  windows.Make(350, 200, 100, 50, kWhite);  // above the excluded one
  const pid_t manager = ovtest::Spawn({"xcompmgr"});
  ASSERT_GT(manager, 0);
  ASSERT_TRUE([&] {
    for (int i = 0; i < 100 && !ov::CompositionManagerRunning(); ++i) SleepMs(20);
    return ov::CompositionManagerRunning();
  }());
  ov::ProbeHardwareCapture();
  EXPECT_TRUE(SupportHarderwareScreenCapture());

  video.rcScreen = {0, 0, 640, 480};
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->AddExcludeWindow(excluded);
  const Window included = windows.Make(500, 50, 50, 50, kWhite, true);
  recorder->AddIncludeWindow(included);
  recorder->Start();
  SleepMs(200);
  windows.Make(500, 400, 50, 50, kWhite, true);  // the process's own, mapped while recording
  SleepMs(300);
  recorder->Destroy();

  // A window's own picture, whatever lies over it.
  MagnifierHost host;
  ASSERT_EQ(InitializeMagnifier(&host, 200, 150), S_OK);
  ASSERT_EQ(SetMagnifierSource(&host, {100, 100, 300, 250}, covered), S_OK);
  std::vector<uint32_t> picture(200 * 150);
  ASSERT_EQ(GetMagnifierFrame(&host, reinterpret_cast<uint8_t*>(picture.data()), 800), S_OK);
  EXPECT_EQ(picture[100 * 200 + 150] & 0xFFFFFF, kGreen);
  CloseMagnifier(&host);
  ovtest::Stop(manager);
  ov::ProbeHardwareCapture();
  EXPECT_FALSE(SupportHarderwareScreenCapture()) << "no compositing manager, no composed capture";

  ASSERT_FALSE(recorded.frames.empty());
  const Frame& f = recorded.frames.back();
  EXPECT_EQ(Pixel(f, 350, 170), kYellow) << "the desktop under the excluded window";
  EXPECT_EQ(Pixel(f, 250, 200), kGreen) << "the covered window under it";
  EXPECT_EQ(Pixel(f, 380, 220), kWhite) << "the window above it";
  EXPECT_EQ(Pixel(f, 520, 420), kYellow) << "the process's own window is left out";
  EXPECT_EQ(Pixel(f, 520, 70), kWhite) << "unless included";
  for (auto [x, y] : {std::pair{150, 120}, {50, 50}, {380, 220}})
    EXPECT_EQ(Pixel(f, x, y), windows.Screen(x, y)) << x << "," << y;
  EXPECT_EQ(windows.Screen(350, 170), kRed);
}

}  // namespace
