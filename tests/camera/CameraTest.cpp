// Camera previews on a private X server. Without a camera the list is empty
// and opening fails; the built-in pattern cameras (YUYV, NV12, MJPEG, I420) show
// their picture in a test window, centred and then scaled, save it as a
// snapshot, and end with a log line and the callback when they vanish. A
// real V4L2 camera is previewed where the machine has one.
#include <gtest/gtest.h>
#include <png.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "camera/CameraDevice.h"
#include "platform/Text.h"
#include "platform/VideoCaptureDevice.h"
#include "support/Engine.h"

// After gtest, whose names Xlib's macros would take.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, false}));

bool WaitUntil(const std::function<bool()>& done) {
  for (int i = 0; i < 500; ++i) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return done();
}

bool Near(uint32_t seen, uint32_t expected) {
  for (int shift = 0; shift < 24; shift += 8)
    if (std::abs(int((seen >> shift) & 0xFF) - int((expected >> shift) & 0xFF)) > 12) return false;
  return true;
}

// The pattern's 8 blocks at the centres they have in a picture of w x h at
// (x, y), read by at(x, y) as 0xRRGGBB.
bool ShowsPattern(const std::function<uint32_t(int, int)>& at, int x, int y, int w, int h) {
  for (int block = 0; block < 8; ++block)
    if (!Near(at(x + (block % 4 * 2 + 1) * w / 8, y + (block / 4 * 2 + 1) * h / 4),
              ov::kTestCameraColours[block]))
      return false;
  return true;
}

struct Callback : CCameraCallback {
  std::atomic<int> width{0}, height{0}, ends{0};
  void OnVideoSize(int w, int h) override { width = w, height = h; }
  void OnGraphEnd() override { ++ends; }
};

class CameraTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_display = XOpenDisplay(nullptr);
    ASSERT_NE(m_display, nullptr);
    m_window = XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0, 480, 360, 0, 0,
                                   0xFFFFFF);
    XMapWindow(m_display, m_window);
    XSync(m_display, False);
  }
  void TearDown() override {
    XDestroyWindow(m_display, m_window);
    XCloseDisplay(m_display);
  }

  bool WindowShowsPattern(int x, int y, int w, int h) {
    XWindowAttributes a{};
    XGetWindowAttributes(m_display, m_window, &a);
    XImage* image = XGetImage(m_display, m_window, 0, 0, a.width, a.height, AllPlanes, ZPixmap);
    if (!image) return false;
    const bool shown = ShowsPattern(
        [&](int px, int py) { return uint32_t(XGetPixel(image, px, py)) & 0xFFFFFF; }, x, y, w, h);
    XDestroyImage(image);
    return shown;
  }

  Display* m_display = nullptr;
  Window m_window = 0;
};

void UsePatternCameras(bool use) {
  if (use)
    setenv("ORVANTA_TEST_CAMERA", "1", 1);
  else
    unsetenv("ORVANTA_TEST_CAMERA");
  RefreshCameraDevices();
}

TEST_F(CameraTest, IndexOutsideTheListFailsWithItsMessage) {
  UsePatternCameras(false);
  const int count = GetCameraDeviceCount();
  if (ovtest::RunCapture("ls /dev/video* 2>/dev/null").empty()) {
    EXPECT_EQ(count, 0);
  }
  ovtest::LogMark mark;
  EXPECT_EQ(OpenCamera(m_window, count, nullptr), nullptr);
  EXPECT_EQ(OpenCamera(m_window, -1, nullptr), nullptr);
  const std::string expected =
      "Error Camera Index=" + std::to_string(count) + ", Camera Device=" + std::to_string(count);
  EXPECT_NE(mark.Text().find(expected), std::string::npos) << mark.Text();
  EXPECT_EQ(GetCameraDevice(kMaxCameraDevices), nullptr);
}

TEST_F(CameraTest, PatternShowsCentredThenScaledAndSnapshotsDecodeToIt) {
  UsePatternCameras(true);
  ASSERT_EQ(GetCameraDeviceCount(), 4);
  EXPECT_EQ(OpenCamera(0, 0, nullptr), nullptr);  // no window
  ovtest::ScratchFolder folder("ovcamera");
  for (int index = 0; index < 4; ++index) {
    SCOPED_TRACE(ov::ToUtf8(GetCameraDevice(index)->Name));
    XResizeWindow(m_display, m_window, 480, 360);
    XSync(m_display, False);
    Callback callback;
    CCameraObject* camera = OpenCamera(m_window, index, &callback);
    ASSERT_NE(camera, nullptr);
    EXPECT_EQ(callback.width, 320);
    EXPECT_EQ(callback.height, 240);
    EXPECT_EQ(camera->CheckFormat(), 0);
    const CameraDevice* record = GetCameraDevice(index);
    EXPECT_EQ(record->frameRate, 30);
    EXPECT_TRUE(WaitUntil([&] { return WindowShowsPattern(80, 60, 320, 240); }));

    // Smaller than the frame: the whole width, scaled down.
    XResizeWindow(m_display, m_window, 160, 200);
    XSync(m_display, False);
    camera->Resize();
    EXPECT_TRUE(WaitUntil([&] { return WindowShowsPattern(0, 40, 160, 120); }));

    const std::string path = folder.Path() + "/shot" + std::to_string(index) + ".png";
    ASSERT_EQ(camera->SaveImage(0, ov::FromUtf8(path).c_str()), S_OK);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, path.c_str()));
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgb.data(), 0, nullptr));
    ASSERT_EQ(image.width, 320u);
    ASSERT_EQ(image.height, 240u);
    EXPECT_TRUE(ShowsPattern(
        [&](int x, int y) {
          const uint8_t* p = &rgb[(size_t(y) * 320 + x) * 3];
          return uint32_t(p[0]) << 16 | p[1] << 8 | p[2];
        },
        0, 0, 320, 240));
    camera->Destroy();
    EXPECT_EQ(callback.ends, 0);
  }
}

TEST_F(CameraTest, VanishingCameraEndsThePreviewWithALogLineAndTheCallback) {
  UsePatternCameras(true);
  Callback callback;
  CCameraObject* camera = OpenCamera(m_window, 1, &callback);
  ASSERT_NE(camera, nullptr);
  ASSERT_TRUE(WaitUntil([&] { return WindowShowsPattern(80, 60, 320, 240); }));
  EXPECT_EQ(camera->Pause(), S_OK);
  EXPECT_EQ(camera->Run(), S_OK);
  ovtest::LogMark mark;
  ov::SetTestCamerasPresent(false);
  EXPECT_TRUE(WaitUntil([&] { return callback.ends == 1; }));
  EXPECT_NE(mark.Text().find("Camera device lost:pattern:NV12"), std::string::npos) << mark.Text();
  EXPECT_EQ(camera->Run(), E_FAIL);
  camera->Destroy();
  EXPECT_EQ(callback.ends, 1);

  // Gone from the list too: opening it again fails.
  EXPECT_EQ(RefreshCameraDevices(), 1);
  EXPECT_EQ(GetCameraDeviceCount(), 0);
  EXPECT_EQ(OpenCamera(m_window, 1, &callback), nullptr);
  ov::SetTestCamerasPresent(true);
}

TEST_F(CameraTest, RealCameraPreviewsWhereTheMachineHasOne) {
  UsePatternCameras(false);
  if (GetCameraDeviceCount() == 0)
    GTEST_SKIP() << "no V4L2 capture device here (no /dev/video*, no vivid or v4l2loopback)";
  Callback callback;
  CCameraObject* camera = OpenCamera(m_window, 0, &callback);
  ASSERT_NE(camera, nullptr);
  EXPECT_GT(callback.width, 0);
  ovtest::ScratchFolder folder("ovcamera");
  const std::string path = folder.Path() + "/real.png";
  EXPECT_TRUE(WaitUntil([&] { return camera->SaveImage(0, ov::FromUtf8(path).c_str()) == S_OK; }));
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_TRUE(png_image_begin_read_from_file(&image, path.c_str()));
  EXPECT_EQ(int(image.width), GetCameraDevice(0)->width);
  png_image_free(&image);
  camera->Destroy();
}

}  // namespace
