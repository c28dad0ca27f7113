// The display catalogue against RandR monitors of the test's X server.
#include <gtest/gtest.h>

#include "capture/DisplayCatalogue.h"
#include "capture/RecordingCodec.h"
#include "core/Globals.h"

namespace {

std::string Xrandr(const std::string& args) {
  return ovtest::RunCapture("xrandr " + args + " 2>&1");
}

class DisplayCatalogueTest : public CaptureTest {
 protected:
  void TearDown() override {
    CaptureTest::TearDown();
    Xrandr("--delmonitor left");
    Xrandr("--delmonitor right");
    Xrandr("--fb 640x480");
    ov::RebuildDisplayCatalogue(true);
  }
};

TEST_F(DisplayCatalogueTest, MonitorsBecomeDisplaysAndAChangeFallsBackToTheFirst) {
  Xrandr("--setmonitor left 320/100x480/100+0+0 screen");  // takes the output's place
  Xrandr("--setmonitor right 320/100x480/100+320+0 none");
  ov::RebuildDisplayCatalogue(false);
  ASSERT_EQ(GetDisplayCount(), 2);
  EXPECT_EQ(GetDisplayInfo(2), nullptr);
  EXPECT_EQ(GetDisplayInfo(1)->rcMonitor.left, 320);
  EXPECT_STREQ(GetDisplayInfo(1)->szDevice, L"right");
  UseDisplay(1);
  EXPECT_EQ(g_nDisplayIndex, 1);
  EXPECT_EQ(g_rcDisplay.left, 320);

  // A region on the second display is valid once it is in use.
  video.rcScreen = {330, 10, 630, 300};
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  EXPECT_EQ(recorded.width, 300);
  // A session's UI thread hears of layout changes.
  Xrandr("--delmonitor right");
  Xrandr("--fb 600x400");  // a layout change the server announces
  for (int i = 0; i < 100 && g_nDisplayIndex != 0; ++i) SleepMs(20);
  EXPECT_EQ(g_nDisplayIndex, 0);
  recorder->Destroy();
}

}  // namespace
