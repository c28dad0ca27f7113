// Drawing on the screen during a recording under xcompmgr, with real pointer
// and key events from xdotool: the shapes reach the frames, undo, redo and
// clear take them back and forth; the recorder box shows on the screen (as
// xwd reads it) in its record and pause colours but never in the frames;
// its grips move the region in the manual mode.
#include <pango/pangocairo.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "capture/RecordingCodec.h"
#include "core/Globals.h"
#include "platform/OverlayWindow.h"
#include "support/Servers.h"
// Last: Xlib's macros would break the test framework's headers.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace {

constexpr uint32_t kYellow = 0xFFFF00, kMagenta = 0xFF00FF, kWhite = 0xFFFFFF;

void Xdotool(const std::string& args) { ovtest::RunCapture("xdotool " + args + " 2>&1"); }

bool WaitFor(const std::function<bool()>& done) {
  for (int i = 0; i < 300 && !done(); ++i) SleepMs(10);
  return done();
}

// The root as xwd wrote it, 0xRRGGBB, 640 x 480.
std::vector<uint32_t> Xwd() {
  const std::string d = ovtest::RunCapture("xwd -root -silent");
  auto field = [&](size_t i) {
    const auto* p = reinterpret_cast<const uint8_t*>(d.data()) + i * 4;
    return uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
  };
  std::vector<uint32_t> out;
  if (d.size() < 100 || field(4) != 640 || field(12) < 640 * 4) return out;
  // With windows of several visuals on the screen, xwd writes 24-bit pixels.
  const size_t start = field(0) + field(19) * 12, pitch = field(12), size = field(11) / 8;
  for (size_t y = 0; y < 480 && start + (y + 1) * pitch <= d.size(); ++y)
    for (size_t x = 0; x < 640; ++x) {
      const auto* p = reinterpret_cast<const uint8_t*>(d.data()) + start + y * pitch + x * size;
      out.push_back((field(7) ? p[1] << 16 | p[2] << 8 | p[3] : p[2] << 16 | p[1] << 8 | p[0]));
    }
  return out;
}

struct Callback : CCanvasCallback {
  void OnUndoState(BOOL, BOOL) override { ++states; }
  void OnNumberChanged(int) override {}
  std::atomic<int> states{0};
};

class CanvasTest : public CaptureTest {
 protected:
  // The scene drawn so far becomes the desktop's picture, which the
  // compositing manager started here paints under the windows.
  void Compose() {
    m_display = XOpenDisplay(nullptr);
    ASSERT_NE(m_display, nullptr);
    const Window root = DefaultRootWindow(m_display);
    m_desktop = XCreatePixmap(m_display, root, 640, 480, DefaultDepth(m_display, 0));
    GC gc = XCreateGC(m_display, root, 0, nullptr);
    XCopyArea(m_display, root, m_desktop, gc, 0, 0, 640, 480, 0, 0);
    XFreeGC(m_display, gc);
    XChangeProperty(m_display, root, XInternAtom(m_display, "_XROOTPMAP_ID", False), XA_PIXMAP, 32,
                    PropModeReplace, reinterpret_cast<unsigned char*>(&m_desktop), 1);
    XSync(m_display, False);
    m_compositor = ovtest::Spawn({"xcompmgr"});
    ASSERT_TRUE(WaitFor([] { return ov::CompositingManagerRunning(); }));
  }
  void TearDown() override {
    ovtest::Stop(m_compositor);
    if (m_display) {
      XDeleteProperty(m_display, DefaultRootWindow(m_display),
                      XInternAtom(m_display, "_XROOTPMAP_ID", False));
      XFreePixmap(m_display, m_desktop);
      XCloseDisplay(m_display);
    }
    CaptureTest::TearDown();
  }
  // A drag with the left button, in screen coordinates.
  void Drag(int x0, int y0, int x1, int y1) {
    Xdotool("mousemove " + std::to_string(x0) + " " + std::to_string(y0) + " mousedown 1");
    SleepMs(50);
    Xdotool("mousemove " + std::to_string((x0 + x1) / 2) + " " + std::to_string((y0 + y1) / 2));
    Xdotool("mousemove " + std::to_string(x1) + " " + std::to_string(y1) + " mouseup 1");
  }
  // The last frame so far, taken well after the canvas's last change.
  size_t Settled() {
    SleepMs(400);
    return g_codec->Count() - 1;
  }
  pid_t m_compositor = -1;
  Display* m_display = nullptr;
  Pixmap m_desktop = 0;
};

double Variance(const Frame& f, int x0, int y0, int x1, int y1) {
  double sum = 0, squares = 0, n = 0;
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x, ++n) {
      const double g = (Pixel(f, x, y) >> 8) & 0xFF;
      sum += g;
      squares += g * g;
    }
  return squares / n - (sum / n) * (sum / n);
}

// Pixels of colour in the rectangle.
int Count(const Frame& f, int x0, int y0, int x1, int y1, uint32_t colour) {
  int n = 0;
  for (int y = y0; y < y1; ++y)
    for (int x = x0; x < x1; ++x) n += Pixel(f, x, y) == colour;
  return n;
}

// The CPU time of the session's UI thread, which paints the box, in ticks.
long UiThreadTicks() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(task.path() / "comm"), stat(task.path() / "stat");
    std::string name, field;
    std::getline(comm, name);
    if (name != "ov-session-ui") continue;
    long utime = 0, stime = 0;
    for (int i = 1; i <= 15 && stat >> field; ++i) {
      if (i == 14) utime = std::stol(field);
      if (i == 15) stime = std::stol(field);
    }
    return utime + stime;
  }
  return -1;
}

TEST_F(CanvasTest, ShapesReachTheFramesAndTheBoxOnlyTheScreen) {
  // A checkered patch to blur.
  for (int y = 0; y < 64; y += 8)
    for (int x = 0; x < 80; x += 8)
      scene.Fill(300 + x, 220 + y, 8, 8, (x + y) % 16 ? kRed : kGreen);
  scene.Sync();
  Compose();
  video.rcScreen = {100, 80, 420, 320};
  CScreenRecoderObject* recorder = Record(1);
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  Callback callback;
  CScreenCanvas* canvas = recorder->SetCanvasCallback(&callback);
  ASSERT_NE(canvas, nullptr);
  auto shapes = [&](int n) { return WaitFor([&] { return canvas->GetShapeCount() == n; }); };

  canvas->Start(1, 4, 0xFFFFFF00, 0, nullptr, 0);
  Drag(120, 100, 220, 160);
  ASSERT_TRUE(shapes(1)) << "rectangle";
  canvas->Start(3, 3, 0xFF00FF, 0, nullptr, 0);  // alpha 0 counts as opaque
  Drag(130, 280, 250, 280);
  ASSERT_TRUE(shapes(2)) << "arrow";
  canvas->Start(8, 20, 0xFFFFFFFF, 0, L"Sans", 0);
  Xdotool("mousemove 140 190 click 1");
  SleepMs(200);
  Xdotool("type --delay 20 Orvantx");
  Xdotool("key BackSpace type a");
  canvas->Start(12, 4, 0, 0, nullptr, 0);  // the text ends when another tool starts
  ASSERT_TRUE(shapes(3)) << "text";
  SleepMs(300);
  Drag(305, 225, 375, 280);
  ASSERT_TRUE(shapes(4)) << "blur";
  canvas->Stop();
  const size_t drawn = Settled();
  const std::vector<uint32_t> shot = Xwd();
  recorder->Pause();
  SleepMs(400);
  const std::vector<uint32_t> paused = Xwd();
  recorder->Resume();
  const long ticks = UiThreadTicks();
  SleepMs(2000);
  std::printf("box repaint on a still screen: %ld ticks of %ld in 2 s\n", UiThreadTicks() - ticks,
              sysconf(_SC_CLK_TCK));
  canvas->Undo();
  const size_t undone = Settled();
  canvas->Redo();
  const size_t redone = Settled();
  canvas->Clear();
  const size_t cleared = Settled();
  EXPECT_EQ(callback.states.load(), 4 + 3);
  recorder->Destroy();

  const auto& frames = recorded.frames;
  ASSERT_GT(frames.size(), cleared);
  const Frame& f = frames[drawn];
  EXPECT_EQ(Pixel(f, 20, 50), kYellow) << "rectangle's left side";
  EXPECT_EQ(Pixel(f, 70, 50), kBlue) << "and not its inside";
  EXPECT_EQ(Pixel(f, 140, 200), kMagenta) << "arrow's head";
  EXPECT_EQ(Pixel(f, 120, 200), kMagenta) << "arrow's shaft";
  // The text's ink where pango puts "Orvanta" at the click.
  cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
  cairo_t* g = cairo_create(s);
  PangoLayout* layout = pango_cairo_create_layout(g);
  PangoFontDescription* font = pango_font_description_from_string("Sans 27px");
  pango_layout_set_font_description(layout, font);
  pango_layout_set_text(layout, "Orvanta", -1);
  PangoRectangle ink;
  pango_layout_get_pixel_extents(layout, &ink, nullptr);
  pango_font_description_free(font);
  g_object_unref(layout);
  cairo_destroy(g);
  cairo_surface_destroy(s);
  const int tx = 40 + ink.x, ty = 110 + ink.y;
  EXPECT_GT(Count(f, tx, ty, tx + ink.width, ty + ink.height, kWhite), ink.width * ink.height / 20);
  EXPECT_EQ(Count(f, tx - 6, ty - 6, tx + ink.width + 6, ty - 1, kWhite), 0) << "ink above";
  EXPECT_EQ(Count(f, tx + ink.width + 1, ty, tx + ink.width + 6, ty + ink.height, kWhite), 0);
  // The blur: the checkers' variance falls, and comes back with undo.
  const double checkers = Variance(frames.front(), 215, 155, 265, 185);
  EXPECT_LT(Variance(f, 215, 155, 265, 185), checkers / 10);
  EXPECT_EQ(Variance(frames[undone], 215, 155, 265, 185), checkers) << "undo";
  EXPECT_EQ(Pixel(frames[undone], 20, 50), kYellow) << "undo takes the last shape only";
  EXPECT_LT(Variance(frames[redone], 215, 155, 265, 185), checkers / 10) << "redo";
  EXPECT_EQ(Pixel(frames[cleared], 20, 50), kBlue) << "clear";
  EXPECT_EQ(Pixel(frames[cleared], 140, 200), kBlue);
  EXPECT_EQ(Count(frames[cleared], 0, 0, 320, 240, kWhite), 0);

  // The frame one pixel outside the region: on the screen, never in frames.
  ASSERT_EQ(shot.size(), 640u * 480u);
  ASSERT_EQ(paused.size(), shot.size());
  std::set<uint32_t> running, still;
  for (int x = 99; x < 421; ++x) {
    running.insert(shot[79 * 640 + x]);
    running.insert(shot[320 * 640 + x]);
    still.insert(paused[79 * 640 + x]);
  }
  for (int y = 79; y < 321; ++y) running.insert(shot[y * 640 + 99]);
  EXPECT_EQ(running, (std::set<uint32_t>{0xA67C40, 0xFFD700}));
  EXPECT_EQ(still, (std::set<uint32_t>{0xFFFF00, 0x808000}));
  for (const Frame& frame : frames)
    for (int x = 0; x < 320; ++x) {
      const uint32_t edge[] = {Pixel(frame, x, 0), Pixel(frame, x, 239), Pixel(frame, 0, x % 240)};
      for (uint32_t c : edge) ASSERT_TRUE(c != 0xA67C40 && c != 0xFFD700 && c != 0xFFFF00);
    }
}

TEST_F(CanvasTest, FullDisplayFrameRunsOnTheOuterPixelsOfTheScreenOnly) {
  Compose();
  video.rcScreen = {0, 0, 640, 480};
  CScreenRecoderObject* recorder = Record(1);
  ASSERT_NE(recorder, nullptr);
  EXPECT_TRUE(g_bUnborder);
  recorder->Start();
  SleepMs(600);
  const std::vector<uint32_t> shot = Xwd();
  recorder->Destroy();
  ASSERT_EQ(shot.size(), 640u * 480u);
  std::set<uint32_t> edge;
  for (int x = 0; x < 639; ++x) edge.insert(shot[x]);
  EXPECT_EQ(edge, (std::set<uint32_t>{0xA67C40, 0xFFD700}));
  EXPECT_EQ(shot[640 + 1], kBlue);
  for (const Frame& frame : recorded.frames)
    for (int x = 0; x < 640; ++x) ASSERT_EQ(Pixel(frame, x, 0), kBlue) << x;
}

TEST_F(CanvasTest, DraggingAGripMovesTheRecordedRegion) {
  scene.Fill(400, 300, 60, 60, kGreen);
  scene.Sync();
  Compose();
  video.rcScreen = {100, 100, 260, 220};
  mouse.Mode = MOUSE_MODE_MANUAL;
  CScreenRecoderObject* recorder = Record(1);
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(300);
  const std::vector<uint32_t> shot = Xwd();
  Drag(272, 232, 472, 382);  // the bottom-right handle, by (200, 150)
  SleepMs(500);
  recorder->Destroy();
  EXPECT_EQ(g_ptRegion.x, 300);
  EXPECT_EQ(g_ptRegion.y, 250);
  ASSERT_FALSE(recorded.frames.empty());
  EXPECT_EQ(Pixel(recorded.frames.front(), 100, 50), kBlue);
  EXPECT_EQ(Pixel(recorded.frames.back(), 110, 60), kGreen) << "the scene under the new place";
  EXPECT_EQ(Pixel(recorded.frames.back(), 90, 60), kBlue);
  ASSERT_EQ(shot.size(), 640u * 480u);
  EXPECT_NE(shot[232 * 640 + 272], kBlue) << "the handle's picture shows on the screen";
}

}  // namespace
