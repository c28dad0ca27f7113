#include "Scene.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/cursorfont.h>
#include <cairo-xlib.h>
#include <cairo.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "Console.h"

namespace cli {

namespace {

constexpr double kPi = 3.14159265358979323846;

struct SceneOptions {
  long long epochNs = 0;
  int fps = 30;
  bool pointer = false;
  int readyFd = -1;
};

bool ParseSceneOptions(const std::vector<std::string>& args, SceneOptions* o) {
  o->epochNs = MonotonicNs();
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    bool hasValue = i + 1 < args.size();
    if (a == "--pointer") {
      o->pointer = true;
    } else if (a == "--epoch" && hasValue) {
      o->epochNs = std::atoll(args[++i].c_str());
    } else if (a == "--fps" && hasValue) {
      o->fps = std::atoi(args[++i].c_str());
    } else if (a == "--ready-fd" && hasValue) {
      o->readyFd = std::atoi(args[++i].c_str());
    } else {
      Error("scene: unknown argument '%s'", a.c_str());
      return false;
    }
  }
  if (o->fps < 1 || o->fps > 120) o->fps = 30;
  return true;
}

// Everything drawn for one moment t (seconds after the epoch).
void Draw(cairo_t* cr, int width, int height, double t, long frame) {
  double second = std::floor(t);
  bool flash = t >= 0 && (t - second) * 1000.0 < kFlashMs;
  if (flash)
    cairo_set_source_rgb(cr, 1, 1, 1);
  else
    cairo_set_source_rgb(cr, 0.11, 0.14, 0.19);
  cairo_paint(cr);

  double w = width, h = height, unit = std::min(w, h) / 720.0;

  // A sweep bar crosses the picture once a second: every frame differs.
  double phase = t - second;
  cairo_set_source_rgb(cr, 0.25, 0.55, 0.95);
  cairo_rectangle(cr, phase * w - 6 * unit, 0, 12 * unit, h);
  cairo_fill(cr);

  // A ball on a slow horizontal swing and a faster vertical bounce.
  double bx = w / 2 + w * 0.35 * std::sin(2 * kPi * t / 4.0);
  double by = h * 0.72 - h * 0.18 * std::fabs(std::sin(2 * kPi * t / 1.5));
  cairo_set_source_rgb(cr, 0.98, 0.62, 0.18);
  cairo_arc(cr, bx, by, 40 * unit, 0, 2 * kPi);
  cairo_fill(cr);

  // A square that turns a quarter a second.
  cairo_save(cr);
  cairo_translate(cr, w * 0.8, h * 0.3);
  cairo_rotate(cr, t * kPi / 2);
  cairo_set_source_rgb(cr, 0.35, 0.85, 0.45);
  cairo_rectangle(cr, -60 * unit, -60 * unit, 120 * unit, 120 * unit);
  cairo_fill(cr);
  cairo_restore(cr);

  // Twelve dots in a ring; the one of the current second is lit.
  for (int i = 0; i < 12; ++i) {
    double a = 2 * kPi * i / 12 - kPi / 2;
    bool lit = static_cast<long>(second) % 12 == i;
    cairo_set_source_rgb(cr, lit ? 1.0 : 0.4, lit ? 0.2 : 0.4, lit ? 0.2 : 0.45);
    cairo_arc(cr, w * 0.2 + std::cos(a) * 90 * unit, h * 0.3 + std::sin(a) * 90 * unit,
              (lit ? 14 : 8) * unit, 0, 2 * kPi);
    cairo_fill(cr);
  }

  // The clock and frame counter, dark on a flash so they stay readable.
  char text[64];
  long ms = t < 0 ? 0 : static_cast<long>(t * 1000);
  std::snprintf(text, sizeof text, "%02ld:%02ld.%03ld", ms / 60000, ms / 1000 % 60, ms % 1000);
  double ink = flash ? 0.0 : 1.0;
  cairo_set_source_rgb(cr, ink, ink, ink);
  cairo_select_font_face(cr, "monospace", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
  cairo_set_font_size(cr, 72 * unit);
  cairo_move_to(cr, w * 0.36, h * 0.22);
  cairo_show_text(cr, text);
  std::snprintf(text, sizeof text, "frame %ld", frame);
  cairo_set_font_size(cr, 36 * unit);
  cairo_move_to(cr, w * 0.36, h * 0.32);
  cairo_show_text(cr, text);
  cairo_set_font_size(cr, 22 * unit);
  cairo_move_to(cr, 20 * unit, h - 20 * unit);
  cairo_show_text(cr, "Orvanta demo - a white flash and a beep start every second");
}

// The pointer goes round a slow figure of eight, so that a recording with
// the cursor shows it moving.
void MovePointer(Display* display, Window root, int width, int height, double t) {
  int x = static_cast<int>(width / 2 + width * 0.3 * std::sin(2 * kPi * t / 6));
  int y = static_cast<int>(height / 2 + height * 0.25 * std::sin(4 * kPi * t / 6));
  XWarpPointer(display, None, root, 0, 0, 0, 0, x, y);
}

void SleepUntil(long long ns) {
  timespec when{static_cast<time_t>(ns / 1000000000LL), static_cast<long>(ns % 1000000000LL)};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &when, nullptr) != 0) {
  }
}

}  // namespace

long long MonotonicNs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

int RunScene(const std::vector<std::string>& args) {
  SceneOptions o;
  if (!ParseSceneOptions(args, &o)) return kExitUsage;
  Display* display = XOpenDisplay(nullptr);
  if (!display) {
    Error("scene: cannot open the X display");
    return kExitFailed;
  }
  int screen = DefaultScreen(display);
  Window root = RootWindow(display, screen);
  int width = DisplayWidth(display, screen), height = DisplayHeight(display, screen);
  XSetWindowAttributes attributes{};
  attributes.override_redirect = True;  // no window manager needed to cover the screen
  attributes.cursor = XCreateFontCursor(display, XC_left_ptr);
  Window window = XCreateWindow(display, root, 0, 0, static_cast<unsigned>(width),
                                static_cast<unsigned>(height), 0, CopyFromParent, InputOutput,
                                CopyFromParent, CWOverrideRedirect | CWCursor, &attributes);
  XStoreName(display, window, "Orvanta demo scene");
  XMapRaised(display, window);
  // Each picture is drawn off screen and copied in one go, so no capture
  // ever sees half of one.
  Pixmap pixmap =
      XCreatePixmap(display, window, static_cast<unsigned>(width), static_cast<unsigned>(height),
                    static_cast<unsigned>(DefaultDepth(display, screen)));
  cairo_surface_t* surface =
      cairo_xlib_surface_create(display, pixmap, DefaultVisual(display, screen), width, height);
  cairo_t* cr = cairo_create(surface);
  GC gc = XCreateGC(display, window, 0, nullptr);

  // Frames sit on a grid counted from the epoch, so that one frame begins
  // exactly at each whole second, where the flash and the beep begin.
  auto gridTime = [&](long long g) { return o.epochNs + g * 1000000000LL / o.fps; };
  auto gridAfter = [&](long long ns) {
    long long g = (ns - o.epochNs) * o.fps / 1000000000LL;
    while (gridTime(g) < ns) ++g;
    return g;
  };
  bool first = true;
  for (long long g = gridAfter(MonotonicNs());;) {
    double t = static_cast<double>(g) / o.fps;
    Draw(cr, width, height, t, static_cast<long>(g < 0 ? 0 : g));
    cairo_surface_flush(surface);
    XSync(display, False);  // drawn ahead; only the copy waits for the moment
    SleepUntil(gridTime(g));
    XCopyArea(display, pixmap, window, gc, 0, 0, static_cast<unsigned>(width),
              static_cast<unsigned>(height), 0, 0);
    if (o.pointer) MovePointer(display, root, width, height, t);
    XSync(display, False);
    if (first && o.readyFd >= 0) {
      (void)!write(o.readyFd, "ready\n", 6);
      close(o.readyFd);
    }
    first = false;
    // A late frame skips ahead on the grid rather than running behind it.
    g = std::max(g + 1, gridAfter(MonotonicNs()));
  }
}

}  // namespace cli
