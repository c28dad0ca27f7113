// A small moving area for the recording benchmark: a 200 x 200 window at
// (400, 300) showing a textured picture scrolled at 30 steps a second, the
// rest of the screen still. With the argument "window" a plain window covers
// half of the area, and its id is printed.
#include <X11/Xlib.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

static volatile sig_atomic_t g_stop = 0;

int main(int argc, char** argv) {
  signal(SIGTERM, [](int) { g_stop = 1; });
  signal(SIGINT, [](int) { g_stop = 1; });
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    std::fprintf(stderr, "box_scene: no display\n");
    return 1;
  }
  const int screen = DefaultScreen(display), side = 200;
  Window root = RootWindow(display, screen);
  Pixmap texture = XCreatePixmap(display, root, side * 4, side,
                                 static_cast<unsigned>(DefaultDepth(display, screen)));
  GC gc = XCreateGC(display, texture, 0, nullptr);
  std::srand(11);
  for (int i = 0; i < 800; ++i) {
    XSetForeground(display, gc, static_cast<unsigned long>(std::rand()) & 0xFFFFFF);
    XFillRectangle(display, texture, gc, std::rand() % (side * 4), std::rand() % side,
                   static_cast<unsigned>(4 + std::rand() % 40),
                   static_cast<unsigned>(4 + std::rand() % 30));
  }
  // An application's window, as what moves on a desktop is.
  XSetWindowAttributes scene;
  scene.override_redirect = True;
  Window area = XCreateWindow(display, root, 400, 300, side, side, 0, CopyFromParent, InputOutput,
                              CopyFromParent, CWOverrideRedirect, &scene);
  XMapRaised(display, area);
  if (argc > 1 && std::string(argv[1]) == "window") {
    XSetWindowAttributes a;
    a.background_pixel = 0xFFFFFF;
    a.override_redirect = True;
    Window window = XCreateWindow(display, root, 500, 300, 100, 200, 0, CopyFromParent, InputOutput,
                                  CopyFromParent, CWBackPixel | CWOverrideRedirect, &a);
    XMapRaised(display, window);
    std::printf("%lu\n", window);
    std::fflush(stdout);
  }
  for (int step = 0; !g_stop; ++step) {
    XCopyArea(display, texture, area, gc, (step * 5) % (side * 3), 0, side, side, 0, 0);
    XSync(display, False);
    usleep(33333);
  }
  XFreePixmap(display, texture);
  XCloseDisplay(display);
  return 0;
}
