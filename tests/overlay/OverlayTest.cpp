// Overlay windows on a real X server under xcompmgr, read back with xwd: a
// box in every style over a dimmed picture, and clicks that pass through
// the window or stop at it; the zoom glass. The composing kernels' plain
// and SSE2 forms give the same bytes.
#include <cairo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <random>
#include <thread>

#include "overlay/BoxStyles.h"
#include "overlay/VideoRender.h"
#include "overlay/ZoomTips.h"
#include "pixels/OverlayKernels.h"
#include "platform/OverlayWindow.h"
#include "support/Engine.h"

// After gtest, whose names Xlib's macros would take.
#include <X11/Xlib.h>
#include <X11/extensions/XTest.h>

namespace {

constexpr int kWidth = 640, kHeight = 480;
constexpr uint32_t kDesktop = 0x20A040, kPicture = 0xFF3070B0;

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{kWidth, kHeight, false}));

// The root as `xwd` wrote it, 0xRRGGBB.
struct Screenshot {
  std::vector<uint32_t> pixels;
  uint32_t At(int x, int y) const { return pixels[static_cast<size_t>(y) * kWidth + x] & 0xFFFFFF; }
};

Screenshot Xwd() {
  const std::string d = ovtest::RunCapture("xwd -root -silent");
  auto field = [&](size_t i) {
    const auto* p = reinterpret_cast<const uint8_t*>(d.data()) + i * 4;
    return uint32_t(p[0]) << 24 | p[1] << 16 | p[2] << 8 | p[3];
  };
  Screenshot shot;
  if (d.size() < 100 || field(4) != kWidth || field(5) != kHeight || field(11) != 32) return shot;
  const size_t start = field(0) + field(19) * 12, pitch = field(12);
  const bool msb = field(7) != 0;
  if (d.size() < start + pitch * kHeight) return shot;
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x) {
      const auto* p = reinterpret_cast<const uint8_t*>(d.data()) + start + y * pitch + x * 4;
      shot.pixels.push_back(msb ? p[0] << 24 | p[1] << 16 | p[2] << 8 | p[3]
                                : p[3] << 24 | p[2] << 16 | p[1] << 8 | p[0]);
    }
  return shot;
}

// The picture muted and darkened as outside the kept rectangle, in the
// units the design gives it: ((r + g + b) * 0.3 + channel) * 0.25 + 0.1.
uint32_t Dimmed(uint32_t c) {
  const double sum = ((c >> 16) & 0xFF) / 255.0 + ((c >> 8) & 0xFF) / 255.0 + (c & 0xFF) / 255.0;
  uint32_t out = 0;
  for (int shift = 0; shift < 24; shift += 8)
    out |= uint32_t(std::lround(((sum * 0.3 + ((c >> shift) & 0xFF) / 255.0) * 0.25 + 0.1) * 255))
           << shift;
  return out;
}

// A straight 0xAARRGGBB colour laid over an opaque one.
uint32_t Over(uint32_t base, uint32_t c) {
  const double a = (c >> 24) / 255.0;
  uint32_t out = 0;
  for (int shift = 0; shift < 24; shift += 8)
    out |= uint32_t(std::lround(((base >> shift) & 0xFF) * (1 - a) + ((c >> shift) & 0xFF) * a))
           << shift;
  return out;
}

::testing::AssertionResult Near(uint32_t seen, uint32_t expected) {
  for (int shift = 0; shift < 24; shift += 8)
    if (std::abs(int((seen >> shift) & 0xFF) - int((expected >> shift) & 0xFF)) > 1)
      return ::testing::AssertionFailure()
             << ::testing::PrintToString(seen) << " is not " << ::testing::PrintToString(expected);
  return ::testing::AssertionSuccess();
}

class OverlayTest : public ::testing::Test {
 protected:
  // A desktop window under the overlays that reports the clicks it gets,
  // and a compositing manager, as on a user's desktop.
  static void SetUpTestSuite() {
    s_display = XOpenDisplay(nullptr);
    ASSERT_NE(s_display, nullptr);
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = kDesktop;
    attributes.event_mask = ButtonPressMask;
    s_desktop = XCreateWindow(s_display, DefaultRootWindow(s_display), 0, 0, kWidth, kHeight, 0,
                              CopyFromParent, InputOutput, CopyFromParent,
                              CWOverrideRedirect | CWBackPixel | CWEventMask, &attributes);
    XMapWindow(s_display, s_desktop);
    XSync(s_display, False);
    {
      ovtest::LogMark mark;
      CVideoRender opaque;
      ASSERT_EQ(opaque.Initialize({0, 0, 64, 64}, true), S_OK);
      EXPECT_FALSE(opaque.Translucent());
      EXPECT_NE(mark.Text().find("No compositing manager"), std::string::npos);
    }
    s_compositor = ovtest::Spawn({"xcompmgr"});
    for (int i = 0; i < 250 && !ov::CompositingManagerRunning(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(ov::CompositingManagerRunning()) << "xcompmgr did not start";
  }
  static void TearDownTestSuite() {
    ovtest::Stop(s_compositor);
    if (s_display) XCloseDisplay(s_display);
  }

  static Display* s_display;
  static Window s_desktop;
  static pid_t s_compositor;
};

Display* OverlayTest::s_display = nullptr;
Window OverlayTest::s_desktop = 0;
pid_t OverlayTest::s_compositor = -1;

TEST_F(OverlayTest, EveryStyleShowsItsRingsDashesAndHandlesOverTheDimmedPicture) {
  CVideoRender render;
  ASSERT_EQ(render.Initialize({0, 0, kWidth, kHeight}, true), S_OK);
  ASSERT_TRUE(render.Translucent());
  std::vector<uint32_t> picture(kWidth * kHeight);
  const RECT box{200, 150, 440, 330};
  const float crop[4] = {200.f / kWidth, 150.f / kHeight, 439.f / kWidth, 329.f / kHeight};
  render.SetCropRect(crop);

  // A host's style of its own: translucent colours, dashes of 2 in 6.
  BoxStyle own{{{3, 2, 0x80FF0000, 0xFF00FF00}, {2, 7, 0x40FFFFFF, 0}, {5, 0, 0xFFFFFFFF, 0}}};
  const HandleStyle ownHandle{8, 0xFF0000FF, 0xFFFFFF00};
  SetScreenCropBox(&own, &ownHandle);
  SetDashValue(6, 2);
  struct Case {
    const BoxStyle& style;
    const HandleStyle* handle;
  };
  const Case cases[] = {{ov::g_StaticBoxStyle, nullptr},
                        {ov::g_ScreenBoxStyle, nullptr},
                        {ov::g_ScreenCropBoxStyle, &ov::g_ScreenCropHandle},
                        {ov::g_WindowBoxStyle, nullptr},
                        {ov::g_WindowCropBoxStyle, &ov::g_WindowCropHandle},
                        {ov::g_ZoomGlassStyle, nullptr},
                        {ov::g_ImageBoxStyle, nullptr},
                        {ov::g_ImageCropBoxStyle, &ov::g_ImageCropHandle}};
  for (size_t n = 0; n < std::size(cases); ++n) {
    SCOPED_TRACE(n);
    const int period = n == 2 ? 6 : 8, on = n == 2 ? 2 : 4;
    SetDashValue(period, on);
    // A picture of its own for each box, so that the screenshot shows when
    // the compositing manager has put this one on the screen.
    const uint32_t shown = kPicture + uint32_t(n) * 0x020000;
    std::fill(picture.begin(), picture.end(), shown);
    render.SetPicture(reinterpret_cast<const uint8_t*>(picture.data()), kWidth * 4);
    std::fill_n(render.Overlay(), kWidth * kHeight, 0u);
    ov::DrawRings(render.Overlay(), render.OverlayStride(), kWidth, kHeight, cases[n].style, box);
    if (cases[n].handle) {
      cairo_surface_t* s =
          cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(render.Overlay()),
                                              CAIRO_FORMAT_ARGB32, kWidth, kHeight, kWidth * 4);
      cairo_t* cr = cairo_create(s);
      ov::DrawHandles(cr, *cases[n].handle, box.left, box.top, 240, 180, false);
      cairo_destroy(cr);
      cairo_surface_destroy(s);
    }
    ASSERT_EQ(render.Draw(), S_OK);
    Screenshot shot = Xwd();
    for (int i = 0; i < 100 && !shot.pixels.empty() && shot.At(320, 240) != (shown & 0xFFFFFF); ++i)
      shot = Xwd();
    ASSERT_EQ(shot.pixels.size(), size_t(kWidth) * kHeight);
    const uint32_t dim = Dimmed(shown);
    EXPECT_TRUE(Near(shot.At(320, 240), shown & 0xFFFFFF)) << "inside: the picture";
    EXPECT_TRUE(Near(shot.At(20, 20), dim)) << "outside: dimmed";
    // The straight colours of the style as the host gave them (the tables
    // hold them premultiplied; ours was set above).
    const BoxStyle& given = n == 2 ? own : cases[n].style;
    int a = box.left - 1, b = box.top - 1;
    for (const BoxRing& ring : given.rings) {
      if (ring.nType == 0) break;
      const int w = ring.nWidth;
      auto straight = [&](uint32_t c) {
        const uint32_t alpha = c >> 24;
        if (n == 2 || alpha == 0) return c;
        uint32_t out = c & 0xFF000000u;
        for (int s = 0; s < 24; s += 8)
          out |= std::min<uint32_t>(255, ((c >> s) & 0xFF) * 255 / alpha) << s;
        return out;
      };
      // The ring's dash counter starts at its top-left corner; k steps on,
      // past the corner handle, a dash begins.
      const int k = 40 - 40 % period;
      EXPECT_TRUE(Near(shot.At(a - w + 1 + k, b), Over(dim, straight(ring.color1))));
      if (ring.nType == 2) {
        EXPECT_TRUE(Near(shot.At(a - w + 1 + k + on, b), Over(dim, straight(ring.color2))));
      }
      a -= w;
      b -= w;
    }
    if (cases[n].handle) {
      const HandleStyle& h = *cases[n].handle;
      const int left = box.left - 1 + (240 - h.nSize) / 2, top = box.top - 1;
      EXPECT_TRUE(Near(shot.At(left + h.nSize / 2, top + h.nSize / 2), h.fillColor & 0xFFFFFF));
      EXPECT_TRUE(Near(shot.At(left, top + h.nSize / 2), h.penColor & 0xFFFFFF));
      EXPECT_TRUE(
          Near(shot.At(box.right - h.nSize / 2, box.bottom - h.nSize / 2), h.fillColor & 0xFFFFFF))
          << "bottom-right corner handle";
    }
  }
  SetDashValue(8, 4);
  SetDashValue(0, 4);  // refused
  EXPECT_EQ(ov::g_nDashPeriod, 8);
}

TEST_F(OverlayTest, ClicksPassThroughAClickThroughOverlayOnly) {
  CVideoRender through, solid;
  ASSERT_EQ(through.Initialize({0, 0, 320, kHeight}, true), S_OK);
  ASSERT_EQ(solid.Initialize({320, 0, kWidth, kHeight}, false), S_OK);
  auto click = [&](int x, int y) {
    XTestFakeMotionEvent(s_display, -1, x, y, CurrentTime);
    XTestFakeButtonEvent(s_display, 1, True, CurrentTime);
    XTestFakeButtonEvent(s_display, 1, False, CurrentTime);
    XSync(s_display, False);
    XEvent event;
    for (int i = 0; i < 50; ++i) {
      if (XCheckWindowEvent(s_display, s_desktop, ButtonPressMask, &event)) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  };
  EXPECT_TRUE(click(100, 100)) << "the desktop got the click through the overlay";
  EXPECT_FALSE(click(500, 100)) << "an overlay that is not click-through keeps it";
  ASSERT_EQ(solid.Resize({320, 0, 400, kHeight}), S_OK);
  EXPECT_EQ(solid.Draw(), S_OK);
  EXPECT_TRUE(click(500, 100)) << "until it shrinks out of the way";
}

// The glass magnifies the cells round the pointer four times, black beyond
// the picture, with the crosshair in the inverse of what it covers; near the
// display's far edges it moves to the pointer's other side.
TEST(ZoomGlass, MagnifiesRoundThePointerAndFlipsAtTheEdges) {
  std::vector<uint32_t> source(100 * 80), target(kWidth * kHeight, 0);
  for (int y = 0; y < 80; ++y)
    for (int x = 0; x < 100; ++x) source[y * 100 + x] = 0xFF0000C0 | (x * 2) << 16 | (y * 3) << 8;
  ov::ZoomRecord record;
  record.target = target.data();
  record.targetStride = record.targetWidth = kWidth;
  record.targetHeight = kHeight;
  record.source = source.data();
  record.sourceWidth = 100;
  record.sourceHeight = 80;
  const POINT at = ov::DrawZoomGlass(record, 50, 50, 10, 5, {0, 0, 10, 10});
  ASSERT_EQ(at.x, 50 + 48);
  ASSERT_EQ(at.y, 50 + 48);
  auto shown = [&](int x, int y) { return target[(at.y + y) * kWidth + at.x + x]; };
  EXPECT_EQ(shown(96 + 1, 64 + 3), source[5 * 100 + 10]) << "the pointer's cell";
  EXPECT_EQ(shown(100 + 12, 68 + 9), source[7 * 100 + 13]) << "lower right: from the pointer on";
  EXPECT_EQ(shown(4 * 20 + 2, 4 * 15), source[4 * 100 + 6]) << "upper left: before it";
  EXPECT_EQ(shown(1, 1), 0xFF000000u) << "beyond the picture";
  EXPECT_EQ(shown(97, 2), 0xFFFFFFFFu) << "the inverse of a black cell";
  EXPECT_EQ(shown(100 + 21, 65), 0xFFFFFF00u) << "the inverse of " << source[5 * 100 + 15];
  const POINT flipped = ov::DrawZoomGlass(record, 600, 450, 10, 5, {0, 0, 10, 10});
  EXPECT_EQ(flipped.x, 600 - (2 * 4 + 196) - 48);
  EXPECT_EQ(flipped.y, 450 - (2 * 4 + 172) - 48);
  EXPECT_EQ(ov::FormatTip(L"%d%%%s %d", {5, 6, 25, 36}), L"20%%s 30") << "only %d is filled";

  // The size tip: a label on the brush with a black frame and black text.
  cairo_surface_t* s =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(target.data()),
                                          CAIRO_FORMAT_ARGB32, kWidth, kHeight, kWidth * 4);
  cairo_t* cr = cairo_create(s);
  ov::Font font = ov::MakeFont("Tahoma", 14);
  std::fill(target.begin(), target.end(), 0u);
  ov::DrawSizeTip(cr, font.get(), 0xFFFFFFE0, 300, 300, {0, 0, 1280, 720});
  cairo_destroy(cr);
  cairo_surface_destroy(s);
  EXPECT_EQ(target[300 * kWidth + 300], 0xFF000000u) << "the frame";
  EXPECT_EQ(target[303 * kWidth + 303], 0xFFFFFFE0u) << "the brush";
  int text = 0;
  for (int x = 302; x < 340; ++x) text += target[312 * kWidth + x] != 0xFFFFFFE0u;
  EXPECT_GT(text, 3) << "the text";
}

class KernelParity : public ::testing::TestWithParam<int> {};

TEST_P(KernelParity, PlainAndSse2GiveTheSameBytes) {
  const int width = GetParam();
  std::mt19937 random(width);
  std::vector<uint32_t> picture(width), overlay(width), plain(width), vector(width);
  for (int x = 0; x < width; ++x) {
    picture[x] = random();
    // Premultiplied, no channel above alpha; clear and opaque runs too.
    const uint32_t a = x % 8 < 4 ? (x % 16 < 8 ? 0 : 255) : random() & 0xFF;
    overlay[x] =
        a << 24 | (random() % (a + 1)) << 16 | (random() % (a + 1)) << 8 | random() % (a + 1);
  }
  const auto &p = ov::pixels::PlainOverlayKernels(), &v = ov::pixels::Sse2OverlayKernels();
  p.dimRow(plain.data(), picture.data(), 0, width);
  v.dimRow(vector.data(), picture.data(), 0, width);
  EXPECT_EQ(plain, vector) << "dimmed";
  p.overRow(plain.data(), picture.data(), overlay.data(), 0, width);
  v.overRow(vector.data(), picture.data(), overlay.data(), 0, width);
  EXPECT_EQ(plain, vector) << "overlaid";
}

INSTANTIATE_TEST_SUITE_P(Widths, KernelParity, ::testing::Values(1, 3, 4, 7, 64, 1001));

}  // namespace
