// Pictures shown for a host, read back from the screen: stretched to their
// window, swapped in place, kept when a swap fails, gone with the object.
#include <cairo.h>
#include <gtest/gtest.h>

#include "core/Resources.h"
#include "orvanta/pictures.h"
#include "platform/Text.h"
#include "support/Engine.h"

// After gtest, whose names Xlib's macros would take.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace {

constexpr uint32_t kDesktop = 0x20A040;

uint32_t ScreenPixel(int x, int y) {
  Display* d = XOpenDisplay(nullptr);
  XImage* image = XGetImage(d, DefaultRootWindow(d), x, y, 1, 1, AllPlanes, ZPixmap);
  const uint32_t p = XGetPixel(image, 0, 0) & 0xFFFFFF;
  XDestroyImage(image);
  XCloseDisplay(d);
  return p;
}

std::wstring FlatPng(const ovtest::ScratchFolder& folder, const char* name, uint32_t rgb) {
  const std::string path = folder.Path() + "/" + name;
  cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 8, 8);
  cairo_t* cr = cairo_create(s);
  cairo_set_source_rgb(cr, (rgb >> 16) / 255.0, ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_write_to_png(s, path.c_str());
  cairo_surface_destroy(s);
  return ov::FromUtf8(path);
}

TEST(Picture, ShownStretchedSwappedKeptOnABadSwapAndGoneWithTheObject) {
  // A desktop window of the test's own, which repaints when uncovered.
  Display* d = XOpenDisplay(nullptr);
  ASSERT_NE(d, nullptr);
  XMapRaised(d, XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1280, 720, 0, 0, kDesktop));
  XSync(d, False);
  ovtest::ScratchFolder folder;
  const std::wstring red = FlatPng(folder, "red.png", 0xE03020);
  const std::wstring blue = FlatPng(folder, "blue.png", 0x2040E0);

  // Centred on the 1280 x 720 display: 540,310 to 740,410.
  CPictureObject* picture = ShowPictureOnScreen(red.c_str(), 200, 100);
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(ScreenPixel(541, 311), 0xE03020u);
  EXPECT_EQ(ScreenPixel(738, 408), 0xE03020u);
  EXPECT_EQ(ScreenPixel(539, 360), kDesktop);
  EXPECT_EQ(ScreenPixel(640, 411), kDesktop);

  ovtest::LogMark mark;
  picture->ChangePicture(L"/nowhere/3.png");
  EXPECT_NE(mark.Text().find("Failed to ChangePicture:/nowhere/3.png"), std::string::npos);
  EXPECT_EQ(ScreenPixel(640, 360), 0xE03020u);
  picture->ChangePicture(blue.c_str());
  EXPECT_EQ(ScreenPixel(640, 360), 0x2040E0u);
  picture->Destroy();
  EXPECT_EQ(ScreenPixel(640, 360), kDesktop);

  // The countdown's own digits, hanging over the display's corner.
  const std::wstring digit = ov::FromUtf8(ov::ImagePath("Countdown3.png"));
  const RECT corner{-64, -64, 192, 192};
  picture = ShowPictureOnScreenEx(digit.c_str(), &corner);
  ASSERT_NE(picture, nullptr);
  EXPECT_NE(ScreenPixel(64, 64), kDesktop) << "the digit's disc";
  EXPECT_EQ(ScreenPixel(200, 64), kDesktop);
  picture->Destroy();
  XCloseDisplay(d);
}

}  // namespace
