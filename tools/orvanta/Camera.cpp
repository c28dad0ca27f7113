#include "Camera.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <orvanta/orvanta.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "Console.h"
#include "Engine.h"
#include "Interrupts.h"
#include "XDisplay.h"
#include "platform/Text.h"

namespace cli {

const char kCameraUsage[] =
    "usage: orvanta camera [N]\n"
    "\n"
    "Shows camera N (0 unless given; see 'orvanta cameras') in a window of its\n"
    "own. Keys: s saves a snapshot as a PNG file in the current folder, q or\n"
    "Escape quits. The preview also ends when the camera is unplugged.\n";

namespace {

struct PreviewEvents : CCameraCallback {
  std::atomic<int> width{0}, height{0};
  std::atomic<bool> ended{false};
  void OnVideoSize(int w, int h) override { width = w, height = h; }
  void OnGraphEnd() override { ended = true; }
};

std::string SnapshotName() {
  const std::time_t now = std::time(nullptr);
  char stamp[32];
  std::strftime(stamp, sizeof(stamp), "%Y%m%d-%H%M%S", std::localtime(&now));
  std::string name = std::string("camera-") + stamp + ".png";
  for (int n = 2; std::filesystem::exists(name); ++n)
    name = std::string("camera-") + stamp + "-" + std::to_string(n) + ".png";
  return std::filesystem::absolute(name).string();
}

}  // namespace

int RunCameras() {
  Engine engine;
  const int count = GetCameraDeviceCount();
  if (count == 0) {
    std::printf("No cameras found\n");
    return kExitOk;
  }
  std::printf("Cameras\n");
  for (int i = 0; i < count; ++i) {
    const CameraDevice* device = GetCameraDevice(i);
    std::printf("  %d  %-40s %s\n", i, ov::ToUtf8(device->Name).c_str(),
                ov::ToUtf8(device->DisplayNameName).c_str());
  }
  return kExitOk;
}

int RunCamera(const std::vector<std::string>& args) {
  int index = 0;
  if (args.size() > 1 ||
      (args.size() == 1 &&
       (args[0].empty() || args[0].find_first_not_of("0123456789") != std::string::npos))) {
    Error("camera takes one camera number (see 'orvanta help camera')");
    return kExitUsage;
  }
  if (args.size() == 1) index = std::stoi(args[0]);
  if (!DisplayAnswers()) {
    Error("no X display to show the camera in ($DISPLAY)");
    return kExitFailed;
  }
  Engine engine;
  if (index >= GetCameraDeviceCount()) {
    Error("there is no camera %d (%d found; see 'orvanta cameras')", index, GetCameraDeviceCount());
    return kExitFailed;
  }
  Display* display = XOpenDisplay(nullptr);
  const int screen = DefaultScreen(display);
  const Window window =
      XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, 640, 480, 0, 0, 0);
  const std::string name = ov::ToUtf8(GetCameraDevice(index)->Name);
  XStoreName(display, window, ("Orvanta camera - " + name).c_str());
  Atom closing = XInternAtom(display, "WM_DELETE_WINDOW", False);
  XSetWMProtocols(display, window, &closing, 1);
  XSelectInput(display, window, KeyPressMask | StructureNotifyMask);
  XMapWindow(display, window);
  XSync(display, False);

  PreviewEvents events;
  CCameraObject* camera = OpenCamera(window, index, &events);
  int result = kExitOk;
  if (!camera) {
    Error("camera %d (%s) cannot be shown; see %s", index, name.c_str(), EngineLogPath().c_str());
    result = kExitFailed;
  } else {
    // The window takes the frame's size where the screen has room for it.
    const int width = std::min<int>(events.width, DisplayWidth(display, screen));
    const int height = std::min<int>(events.height, DisplayHeight(display, screen));
    if (width > 0 && height > 0)
      XResizeWindow(display, window, static_cast<unsigned>(width), static_cast<unsigned>(height));
    Note("%s, %dx%d; s: snapshot, q: quit", name.c_str(), events.width.load(),
         events.height.load());
    bool quit = false;
    while (!quit) {
      while (XPending(display)) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == KeyPress) {
          const KeySym key = XLookupKeysym(&event.xkey, 0);
          if (key == XK_s) {
            const std::string file = SnapshotName();
            if (SUCCEEDED(camera->SaveImage(0, ov::FromUtf8(file).c_str())))
              Note("saved %s", file.c_str());
            else
              Error("no snapshot (no picture yet?); see %s", EngineLogPath().c_str());
          } else if (key == XK_q || key == XK_Escape) {
            quit = true;
          }
        } else if (event.type == ConfigureNotify) {
          camera->Resize();
        } else if (event.type == ClientMessage &&
                   static_cast<Atom>(event.xclient.data.l[0]) == closing) {
          quit = true;
        }
      }
      if (events.ended) {
        Error("the camera stopped (unplugged?); see %s", EngineLogPath().c_str());
        result = kExitFailed;
        quit = true;
      }
      if (Interrupts::Wait(20) != 0) quit = true;
    }
    camera->Destroy();
  }
  XDestroyWindow(display, window);
  XCloseDisplay(display);
  return result;
}

}  // namespace cli
