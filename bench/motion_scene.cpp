// Full-screen motion for the recording benchmark: a picture twice the
// screen's width, scrolled across the root window. Every pixel of it differs
// from its neighbour to the left (a saw in blue, lines of text-like marks,
// boxes with a gradient), so every pixel on the screen changes at every step,
// as with a page scrolling or a video played full screen. The server does
// the copying, so the scene itself costs the recorders nothing.
// Usage: motion_scene [STEPS_PER_SECOND]   (60 by default)
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

static volatile sig_atomic_t g_stop = 0;

int main(int argc, char** argv) {
  signal(SIGTERM, [](int) { g_stop = 1; });
  signal(SIGINT, [](int) { g_stop = 1; });
  const int steps = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    std::fprintf(stderr, "motion_scene: no display\n");
    return 1;
  }
  int screen = DefaultScreen(display);
  Window root = RootWindow(display, screen);
  const int width = DisplayWidth(display, screen), height = DisplayHeight(display, screen);
  const int textureWidth = width * 2;
  std::vector<uint32_t> pixels(static_cast<size_t>(textureWidth) * height);
  std::srand(7);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < textureWidth; ++x) {
      const uint32_t r = static_cast<uint32_t>(x * 255 / textureWidth);
      const uint32_t g = static_cast<uint32_t>(y * 255 / height);
      const uint32_t b = static_cast<uint32_t>(x * 3) & 255;
      // Lines of marks like text: 12 rows of every 24, in runs of words.
      const bool ink = y % 24 >= 6 && y % 24 < 18 && (x / 40) % 7 != 6 &&
                       ((x * 7 + y * 13) ^ (x / 3 * 31 + y / 3 * 17)) % 5 < 2;
      pixels[static_cast<size_t>(y) * textureWidth + x] = ink ? 0x202020 : r << 16 | g << 8 | b;
    }
  }
  for (int i = 0; i < 300; ++i) {
    const uint32_t colour = static_cast<uint32_t>(std::rand()) & 0xFFFFFF;
    const int bx = std::rand() % textureWidth, by = std::rand() % height;
    const int bw = 40 + std::rand() % 300, bh = 30 + std::rand() % 200;
    for (int y = by; y < std::min(by + bh, height); ++y)
      for (int x = bx; x < std::min(bx + bw, textureWidth); ++x)
        pixels[static_cast<size_t>(y) * textureWidth + x] = colour ^ ((x * 5) & 63);
  }
  Pixmap texture = XCreatePixmap(display, root, static_cast<unsigned>(textureWidth),
                                 static_cast<unsigned>(height),
                                 static_cast<unsigned>(DefaultDepth(display, screen)));
  GC gc = XCreateGC(display, texture, 0, nullptr);
  XImage* image = XCreateImage(
      display, DefaultVisual(display, screen), static_cast<unsigned>(DefaultDepth(display, screen)),
      ZPixmap, 0, reinterpret_cast<char*>(pixels.data()), static_cast<unsigned>(textureWidth),
      static_cast<unsigned>(height), 32, 0);
  XPutImage(display, texture, gc, image, 0, 0, 0, 0, static_cast<unsigned>(textureWidth),
            static_cast<unsigned>(height));
  image->data = nullptr;  // the vector owns the pixels
  XDestroyImage(image);
  XSetSubwindowMode(display, gc, IncludeInferiors);
  for (int step = 0; !g_stop; ++step) {
    const int x = (step * 7) % width;
    XCopyArea(display, texture, root, gc, x, 0, static_cast<unsigned>(width),
              static_cast<unsigned>(height), 0, 0);
    XSync(display, False);
    usleep(static_cast<useconds_t>(1000000 / steps));
  }
  XFreePixmap(display, texture);
  XCloseDisplay(display);
  return 0;
}
