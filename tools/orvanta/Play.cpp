#include "Play.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <orvanta/orvanta.h>

#include <algorithm>
#include <atomic>
#include <filesystem>

#include "Console.h"
#include "Engine.h"
#include "Interrupts.h"
#include "XDisplay.h"
#include "platform/Text.h"

namespace cli {

const char kPlayUsage[] =
    "usage: orvanta play FOLDER\n"
    "\n"
    "Plays the temp files of a recording in FOLDER (as a recording leaves them,\n"
    "or a killed one) in a window, with its sound, before anything is made of\n"
    "them. Keys: space pauses and plays, Left and Right go 5 s back and\n"
    "forward, Home goes to the start, q or Escape quits. The files stay.\n";

namespace {

struct EndOfPlay : CPlayerCallback {
  std::atomic<bool> ended{false};
  void OnPlayEnd() override { ended = true; }
};

}  // namespace

int RunPlay(const std::vector<std::string>& args) {
  if (args.size() != 1) {
    Error("play takes a temp folder (see 'orvanta help play')");
    return kExitUsage;
  }
  namespace fs = std::filesystem;
  std::error_code ec;
  const std::string folder = fs::absolute(args[0], ec).string();
  if (!fs::is_directory(folder, ec)) {
    Error("'%s' is not a folder", args[0].c_str());
    return kExitUsage;
  }
  if (!DisplayAnswers()) {
    Error("no X display to play in ($DISPLAY)");
    return kExitFailed;
  }
  Engine engine;
  CapturedFile* file = nullptr;
  if (FAILED(RecoverCapturedFile(ov::FromUtf8(folder).c_str())) || !(file = GetCapturedFile())) {
    Error("no recording in %s; see %s", folder.c_str(), EngineLogPath().c_str());
    return kExitFailed;
  }
  Display* display = XOpenDisplay(nullptr);
  const int screen = DefaultScreen(display);
  const int width =
      std::min(file->bScreenStream ? file->nWidth : 640, DisplayWidth(display, screen));
  const int height =
      std::min(file->bScreenStream ? file->nHeight : 360, DisplayHeight(display, screen));
  const Window window =
      XCreateSimpleWindow(display, RootWindow(display, screen), 0, 0, static_cast<unsigned>(width),
                          static_cast<unsigned>(height), 0, 0, 0);
  XStoreName(display, window, ("Orvanta play - " + folder).c_str());
  Atom closing = XInternAtom(display, "WM_DELETE_WINDOW", False);
  XSetWMProtocols(display, window, &closing, 1);
  XSelectInput(display, window, KeyPressMask | StructureNotifyMask | ExposureMask);
  XMapWindow(display, window);
  XSync(display, False);

  EndOfPlay end;
  CVideoPlayerObject* player = PlayCapturedVideo(window, &end);
  int result = kExitOk;
  if (!player) {
    Error("the recording cannot be played; see %s", EngineLogPath().c_str());
    result = kExitFailed;
  } else {
    Note("space: pause/play, Left/Right: 5 s back/forward, Home: start, q: quit");
    player->Play();
    bool playing = true, quit = false;
    auto seek = [&](int seconds) {
      player->BeginSeek();
      player->Seek(std::max(seconds, 0));
      player->EndSeek();
    };
    while (!quit) {
      if (end.ended.exchange(false)) playing = false;
      while (XPending(display)) {
        XEvent event;
        XNextEvent(display, &event);
        if (event.type == KeyPress) {
          const KeySym key = XLookupKeysym(&event.xkey, 0);
          if (key == XK_space) {
            playing ? player->Pause() : player->Play();
            playing = !playing;
          } else if (key == XK_Left || key == XK_Right) {
            seek(player->GetPosition() + (key == XK_Left ? -5 : 5));
          } else if (key == XK_Home) {
            seek(0);
          } else if (key == XK_q || key == XK_Escape) {
            quit = true;
          }
        } else if (event.type == ConfigureNotify) {
          player->Resize();
        } else if (event.type == Expose) {
          player->Repaint();
        } else if (event.type == ClientMessage &&
                   static_cast<Atom>(event.xclient.data.l[0]) == closing) {
          quit = true;
        }
      }
      if (Interrupts::Wait(20) != 0) quit = true;
    }
    player->Destroy();
  }
  XDestroyWindow(display, window);
  XCloseDisplay(display);
  FreeCapturedFile(0);
  return result;
}

}  // namespace cli
