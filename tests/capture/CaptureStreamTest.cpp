// The screen capture stream on a real X server, with an encoder double that
// keeps what it was handed; the display catalogue against RandR monitors;
// the pointer in the picture and the moving region, driven by real pointer
// events from xdotool.
#include <cairo.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <functional>

#include "capture/DisplayCatalogue.h"
#include "capture/PointerTracker.h"
#include "capture/RecordingCodec.h"
#include "core/Globals.h"
#include "core/Resources.h"
#include "platform/Files.h"
#include "support/LogMark.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, false}));

// Between changes the stream hands over only the key frames, and counts the
// unchanged frames it did not wake for. Also: the still saved as a PNG of
// the region.
TEST_F(CaptureTest, StillRegionGivesStampedFramesKeyFramesAndOneLastFrame) {
  scene.Fill(100, 50, 65, 33, kRed);
  scene.Sync();
  video.rcScreen = {100, 50, 165, 83};
  ovtest::LogMark mark;
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  EXPECT_EQ(g_codec->width, 65);
  EXPECT_EQ(g_codec->height, 33);
  EXPECT_EQ(g_codec->Count(), 0u) << "nothing is taken before Start";
  recorder->Start();
  SleepMs(1600);
  const std::string png = folder.Path() + "/still.png";
  recorder->SaveFrameToFile(ov::FromUtf8(png).c_str());
  recorder->SaveFrameToFile(nullptr);
  recorder->Destroy();

  cairo_surface_t* image = cairo_image_surface_create_from_png(png.c_str());
  ASSERT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(image), 65);
  EXPECT_EQ(cairo_image_surface_get_height(image), 33);
  EXPECT_EQ(*reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(image)) & 0xFFFFFF,
            kRed);
  cairo_surface_destroy(image);
  EXPECT_EQ(g_nGdiplusBitmaps.load(), 0);

  Recorded& codec = *g_codec;
  ASSERT_GE(codec.frames.size(), 3u);
  long long counted = 0;
  const std::string log = mark.Text();
  const size_t at = log.find("Frame count=");
  ASSERT_NE(at, std::string::npos);
  std::sscanf(log.c_str() + at, "Frame count=%lld", &counted);
  EXPECT_GE(counted, 12) << "1.6 s at 10 frames a second";
  EXPECT_EQ(codec.finishes, 1);
  EXPECT_EQ(codec.framesAtFinish, codec.frames.size());
  EXPECT_EQ(codec.finishThread, codec.writeThread);
  EXPECT_NE(codec.finishThread, std::this_thread::get_id());

  const Frame& first = codec.frames.front();
  EXPECT_EQ(first.time, 0);
  EXPECT_TRUE(first.key);
  EXPECT_FALSE(first.unchanged);
  EXPECT_EQ(first.stride, 128 * 4);
  EXPECT_EQ(Pixel(first, 0, 0), kRed);
  EXPECT_EQ(Pixel(first, 64, 32), kRed);
  EXPECT_EQ(Pixel(first, 65, 0), 0u) << "right margin stays black";
  EXPECT_EQ(Pixel(first, 0, 33), 0u) << "bottom margin stays black";

  int keys = 0;
  for (size_t i = 1; i < codec.frames.size(); ++i) {
    const Frame& f = codec.frames[i];
    EXPECT_GT(f.time, codec.frames[i - 1].time);
    EXPECT_EQ(f.time % 10000, 0) << "stamps have millisecond steps";
    if (f.key) {
      ++keys;
      EXPECT_GE(f.time, kKeySpacing);
    }
    if (i + 1 < codec.frames.size()) {
      EXPECT_TRUE(f.unchanged) << "frame " << i;
      EXPECT_TRUE(f.key) << "frame " << i;
    }
  }
  EXPECT_EQ(keys, 1) << "a still screen still gets a key frame after the spacing";
  const Frame& last = codec.frames.back();
  EXPECT_FALSE(last.unchanged) << "the last frame always counts as a change";
  EXPECT_EQ(Pixel(last, 10, 10), kRed);
  EXPECT_EQ(GetCapturedFile()->nScreenDuration, last.time);
  EXPECT_EQ(GetCapturedFile()->nDuration, static_cast<uint32_t>((last.time + 10000001) / 10000000));
}

TEST_F(CaptureTest, ChangesAreSeenAndStopWhilePausedMakesNoLastFrame) {
  video.rcScreen = {0, 0, 200, 100};
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(350);
  scene.Fill(20, 20, 10, 10, kGreen);
  scene.Sync();
  SleepMs(350);
  recorder->Pause();
  SleepMs(150);
  size_t atPause = g_codec->Count();
  SleepMs(300);
  EXPECT_EQ(g_codec->Count(), atPause) << "no frames while paused";
  recorder->Destroy();

  Recorded& codec = *g_codec;
  EXPECT_EQ(codec.frames.size(), atPause) << "a stop while paused makes no last frame";
  EXPECT_EQ(codec.finishes, 1);
  int changes = 0;
  for (size_t i = 1; i < codec.frames.size(); ++i) {
    if (!codec.frames[i].unchanged) {
      ++changes;
      EXPECT_EQ(Pixel(codec.frames[i], 25, 25), kGreen);
      EXPECT_EQ(Pixel(codec.frames[i - 1], 25, 25), kBlue);
    }
  }
  EXPECT_EQ(changes, 1);
}

TEST_F(CaptureTest, FullDisplayWithBoxReplacesTheOuterPixels) {
  scene.Fill(0, 0, 640, 480, kRed);
  scene.Fill(1, 1, 638, 478, kGreen);
  scene.Sync();
  video.rcScreen = {0, 0, 640, 480};
  CScreenRecoderObject* recorder = Record(/*showBox=*/1);
  ASSERT_NE(recorder, nullptr);
  EXPECT_TRUE(g_bUnborder);
  recorder->Start();
  SleepMs(300);
  recorder->Destroy();
  const Frame& f = g_codec->frames.front();
  for (auto [x, y] : {std::pair{0, 0}, {320, 0}, {0, 240}, {639, 240}})
    EXPECT_EQ(Pixel(f, x, y), kGreen) << x << "," << y;
  // 480 rows round to 512: the replaced bottom row is in the black margin,
  // and the display's own last row keeps what shows there: the box's frame.
  EXPECT_TRUE(Pixel(f, 320, 479) == 0xA67C40 || Pixel(f, 320, 479) == 0xFFD700);
  EXPECT_EQ(Pixel(f, 320, 511), 0u);
  g_bUnborder = 0;
}

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

// Near the corner the centred region hangs over the display's edges, and
// the parts off the screen are black.
TEST_F(CaptureTest, CentreModeFollowsThePointerAndTheCursorIsDrawn) {
  video.FrameRate = 20;
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

// With two displays, a pointer on the other one is kept on the recorded
// display's edge for the region's sake, but its cursor is not drawn there.
TEST_F(DisplayCatalogueTest, CursorOnTheOtherDisplayIsNotDrawn) {
  Xrandr("--setmonitor left 320/100x480/100+0+0 screen");
  Xrandr("--setmonitor right 320/100x480/100+320+0 none");
  ov::RebuildDisplayCatalogue(false);
  ASSERT_EQ(GetDisplayCount(), 2);
  video.FrameRate = 20;
  video.rcScreen = {0, 0, 320, 480};
  mouse.Flag = MOUSE_DRAW_CURSOR;
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  Xdotool("mousemove 520 220");
  SleepMs(300);
  size_t away;
  {
    std::lock_guard<std::mutex> lock(recorded.mutex);
    away = recorded.frames.size();
  }
  Xdotool("mousemove 300 220");
  SleepMs(300);
  recorder->Destroy();
  ASSERT_GT(away, 0u);
  ASSERT_GT(recorded.frames.size(), away);
  EXPECT_EQ(Marked(recorded.frames[away - 1], 313, 220, 6), 0) << "on the other display";
  EXPECT_GT(Marked(recorded.frames.back(), 300, 220, 12), 10) << "back on this one";
}

TEST_F(CaptureTest, WithoutFlagsNothingIsDrawnClicksLightTheDiscAndShowTheButton) {
  video.FrameRate = 20;
  Xdotool("mousemove 100 100");
  video.rcScreen = {0, 0, 256, 256};
  CScreenRecoderObject* recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(200);
  recorder->Destroy();
  EXPECT_EQ(Marked(recorded.frames.back(), 100, 100, 20), 0) << "no flags: the screen as it is";
  FreeCapturedFile(1);

  // The click pictures come from the resource folder at 16 x 16; the
  // right button's is missing there.
  ovtest::ScratchFolder resources{"ovresources"};
  ASSERT_EQ(mkdir((resources.Path() + "/Images").c_str(), 0755), 0);
  cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 40, 40);
  cairo_t* cr = cairo_create(image);
  cairo_set_source_rgb(cr, 0, 1, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_write_to_png(image, (resources.Path() + "/Images/Mouse-Left-Click.png").c_str());
  cairo_surface_destroy(image);
  const std::wstring defaultFolder = g_szResourcePath;
  SetResourceFilePath((resources.WidePath() + L"/").c_str());
  ovtest::LogMark mark;

  Recorded clicks;
  g_codec = &clicks;
  mouse.Flag = MOUSE_CLICK_HIGHLIGHT | MOUSE_DRAW_CLICKS;
  mouse.clickColor = 0xFFFF00;
  recorder = Record();
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(150);
  Xdotool("mousemove 60 70 mousedown 1");
  ASSERT_TRUE(WaitFor([] {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    return g_ptClick.x == 60 && g_ptClick.y == 70;
  }));
  SleepMs(300);
  Xdotool("mouseup 1");
  SleepMs(800);
  recorder->Destroy();
  SetResourceFilePath(defaultFolder.c_str());
  EXPECT_NE(
      mark.Text().find("Failed to load file:" + resources.Path() + "/Images/Mouse-Right-Click.png"),
      std::string::npos);
  int lit = 0, lastLit = 0, pictured = 0;
  for (const Frame& f : clicks.frames) {
    int n = Marked(f, 60, 70, 14);
    lit += n > 0;
    lastLit = n;
    // The held button's picture: 16 x 16 at the pointer + (16, 16).
    int green = 0, inPlace = 0;
    for (int y = 0; y < 256; ++y)
      for (int x = 0; x < 256; ++x)
        if (Pixel(f, x, y) == kGreen) {
          ++green;
          inPlace += x >= 76 && x < 92 && y >= 86 && y < 102;
        }
    pictured += green == 256 && inPlace == 256;
  }
  EXPECT_GE(lit, 1) << "the disc shows after the click";
  EXPECT_EQ(lastLit, 0) << "and is gone 300 ms later";
  EXPECT_GE(pictured, 1) << "the held button's picture";
}

}  // namespace
