// The pointer in the picture and the moving region, driven by real pointer
// events from xdotool on the test's X server.
#include <gtest/gtest.h>

#include <functional>

#include "capture/PointerTracker.h"
#include "capture/RecordingCodec.h"
#include "core/Globals.h"

namespace {

bool WaitFor(const std::function<bool()>& done) {
  for (int i = 0; i < 100 && !done(); ++i) SleepMs(20);
  return done();
}

void Xdotool(const std::string& args) { ovtest::RunCapture("xdotool " + args + " 2>&1"); }

// Pixels that are not the scene's blue in a square around (x, y).
int Marked(const Frame& f, int x, int y, int half) {
  int n = 0;
  for (int j = y - half; j < y + half; ++j)
    for (int i = x - half; i < x + half; ++i) n += Pixel(f, i, j) != kBlue;
  return n;
}

class MouseOverlayTest : public CaptureTest {
 protected:
  void SetUp() override {
    CaptureTest::SetUp();
    video.FrameRate = 20;
  }
};

// Near the corner the centred region hangs over the display's edges, and
// the parts off the screen are black.
TEST_F(MouseOverlayTest, CentreModeFollowsThePointerAndTheCursorIsDrawn) {
  Xdotool("mousemove 300 200");
  video.rcScreen = {0, 0, 128, 128};
  mouse.Mode = MOUSE_MODE_CENTER;
  mouse.Flag = MOUSE_DRAW_CURSOR;
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  EXPECT_EQ(g_ptRegion.x, 300 - 64);
  EXPECT_EQ(g_ptRegion.y, 200 - 64);
  recorder->Start();
  SleepMs(200);
  Xdotool("mousemove 600 440");
  EXPECT_TRUE(WaitFor([] {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    return g_ptRegion.x == 600 - 64 && g_ptRegion.y == 440 - 64;
  }));
  SleepMs(200);
  recorder->Destroy();
  ASSERT_GE(recorded.frames.size(), 4u);
  // The pointer sits at the centre of every frame, with the cursor over it.
  const Frame& last = recorded.frames.back();
  EXPECT_GT(Marked(recorded.frames[2], 64, 64, 12), 10);
  EXPECT_GT(Marked(last, 64, 64, 12), 10);
  EXPECT_EQ(Marked(last, 20, 20, 10), 0);
  EXPECT_EQ(Pixel(last, 110, 20), 0u);
  EXPECT_EQ(Pixel(last, 20, 110), 0u);
}

TEST_F(MouseOverlayTest, WithoutFlagsNothingIsDrawnAndClicksLightTheDisc) {
  Xdotool("mousemove 100 100");
  video.rcScreen = {0, 0, 256, 256};
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(200);
  recorder->Destroy();
  EXPECT_EQ(Marked(recorded.frames.back(), 100, 100, 20), 0) << "no flags: the screen as it is";
  FreeCapturedFile(1);

  Recorded clicks;
  g_codec = &clicks;
  mouse.Flag = MOUSE_CLICK_HIGHLIGHT;
  mouse.clickColor = 0xFFFF00;
  recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(150);
  Xdotool("mousemove 60 70 click 1");
  ASSERT_TRUE(WaitFor([] {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    return g_ptClick.x == 60 && g_ptClick.y == 70;
  }));
  SleepMs(800);
  recorder->Destroy();
  int lit = 0, lastLit = 0;
  for (const Frame& f : clicks.frames) {
    int n = Marked(f, 60, 70, 14);
    lit += n > 0;
    lastLit = n;
  }
  EXPECT_GE(lit, 1) << "the disc shows after the click";
  EXPECT_EQ(lastLit, 0) << "and is gone 300 ms later";
}

}  // namespace
