// Full-screen motion for the recording benchmark: a textured picture twice
// the screen's width, scrolled across the root window at 60 steps a second.
// The server does the copying, so the scene itself costs little CPU and both
// recorders see the same pixels change everywhere in every frame.
#include <X11/Xlib.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

static volatile sig_atomic_t g_stop = 0;

int main() {
  signal(SIGTERM, [](int) { g_stop = 1; });
  signal(SIGINT, [](int) { g_stop = 1; });
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    std::fprintf(stderr, "motion_scene: no display\n");
    return 1;
  }
  int screen = DefaultScreen(display);
  Window root = RootWindow(display, screen);
  int width = DisplayWidth(display, screen), height = DisplayHeight(display, screen);
  Pixmap texture =
      XCreatePixmap(display, root, static_cast<unsigned>(width * 2), static_cast<unsigned>(height),
                    static_cast<unsigned>(DefaultDepth(display, screen)));
  GC gc = XCreateGC(display, texture, 0, nullptr);
  std::srand(7);
  // Blocks of many sizes and colours: detail an encoder has to work for.
  for (int i = 0; i < 6000; ++i) {
    XSetForeground(display, gc, static_cast<unsigned long>(std::rand()) & 0xFFFFFF);
    int w = 4 + std::rand() % 120, h = 4 + std::rand() % 90;
    XFillRectangle(display, texture, gc, std::rand() % (width * 2), std::rand() % height,
                   static_cast<unsigned>(w), static_cast<unsigned>(h));
  }
  XSetSubwindowMode(display, gc, IncludeInferiors);
  for (int step = 0; !g_stop; ++step) {
    int x = (step * 7) % width;
    XCopyArea(display, texture, root, gc, x, 0, static_cast<unsigned>(width),
              static_cast<unsigned>(height), 0, 0);
    XSync(display, False);
    usleep(16667);
  }
  XFreePixmap(display, texture);
  XCloseDisplay(display);
  return 0;
}
