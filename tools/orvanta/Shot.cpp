#include "Shot.h"

#include <orvanta/orvanta.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "Console.h"
#include "Engine.h"
#include "Interrupts.h"
#include "XDisplay.h"
#include "platform/Text.h"

namespace cli {

const char kShotUsage[] =
    "usage: orvanta shot [options] [FILE]\n"
    "\n"
    "The screen freezes: click a window or drag a rectangle (Escape cancels).\n"
    "FILE's extension picks the format: .png, .jpg, .jpeg, .bmp, .gif, .tif, .tiff.\n"
    "  --copy             put the picture on the clipboard too (or only, without\n"
    "                     FILE); it is offered until another program takes the\n"
    "                     clipboard or Ctrl-C\n"
    "  --all-displays     freeze every display, not only the first\n"
    "  --tool NAME        draw on the selection before the picture is taken: rect,\n"
    "                     ellipse, arrow, brush, line, airbrush, number, text,\n"
    "                     restore, restore-box, blur, blur-box\n"
    "  --shapes N         with --tool, take the picture after N shapes (default 1);\n"
    "                     Ctrl-C takes it at once\n"
    "  --size N           the pen's width or the text's size (default 4)\n"
    "  --color RRGGBB     the pen's colour (default ff0000)\n";

namespace {

struct ShotOptions {
  std::string file;
  int encoder = -1;
  bool copy = false, allDisplays = false;
  int tool = 0, shapes = 1, size = 4;
  uint32_t color = 0xFF0000;
};

int EncoderOf(const std::string& file) {
  const size_t dot = file.rfind('.');
  if (dot == std::string::npos) return -1;
  std::string ext = file.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
  const char* names[] = {"png", "jpg", "jpeg", "bmp", "gif", "tif", "tiff"};
  const int encoders[] = {0, 1, 1, 2, 3, 4, 4};
  for (int i = 0; i < 7; ++i)
    if (ext == names[i]) return encoders[i];
  return -1;
}

bool ParseNumber(const std::string& text, int low, int high, int* value) {
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end || v < low || v > high) return false;
  *value = static_cast<int>(v);
  return true;
}

bool Parse(const std::vector<std::string>& args, ShotOptions* o, std::string* error) {
  static const char* tools[] = {"rect",   "ellipse", "arrow",   "brush",       "line", "airbrush",
                                "number", "text",    "restore", "restore-box", "blur", "blur-box"};
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool hasValue = i + 1 < args.size();
    if (a == "--copy") {
      o->copy = true;
    } else if (a == "--all-displays") {
      o->allDisplays = true;
    } else if (a == "--tool" || a == "--shapes" || a == "--size" || a == "--color") {
      if (!hasValue) {
        *error = a + " needs a value";
        return false;
      }
      const std::string& v = args[++i];
      bool ok = true;
      if (a == "--tool") {
        o->tool = 0;
        for (int t = 0; t < 12; ++t)
          if (v == tools[t]) o->tool = t + 1;
        ok = o->tool != 0;
      } else if (a == "--shapes") {
        ok = ParseNumber(v, 1, 1000, &o->shapes);
      } else if (a == "--size") {
        ok = ParseNumber(v, 1, 200, &o->size);
      } else {
        char* end = nullptr;
        o->color = static_cast<uint32_t>(std::strtoul(v.c_str(), &end, 16));
        ok = v.size() == 6 && !*end;
      }
      if (!ok) {
        *error = "bad value '" + v + "' for " + a;
        return false;
      }
    } else if (a.rfind("--", 0) == 0) {
      *error = "unknown option " + a;
      return false;
    } else if (!o->file.empty()) {
      *error = "one picture file only: " + a;
      return false;
    } else {
      o->file = a;
      o->encoder = EncoderOf(a);
      if (o->encoder < 0) {
        *error = "no picture format for " + a + " (.png, .jpg, .bmp, .gif or .tif)";
        return false;
      }
    }
  }
  if (o->file.empty() && !o->copy) {
    *error = "a picture file or --copy is needed";
    return false;
  }
  return true;
}

// What the capture told us, read by the main thread between its waits.
struct Progress : CImageCaptureCallback {
  void OnUndoState(BOOL, BOOL) override {
    std::lock_guard<std::mutex> lock(mutex);
    ++committed;
  }
  void OnNumberChanged(int) override {}
  void OnCancelled() override {
    std::lock_guard<std::mutex> lock(mutex);
    cancelled = true;
  }
  void OnClosed() override {}
  void OnSelected(const RECT* rc) override {
    std::lock_guard<std::mutex> lock(mutex);
    selected = true;
    selection = *rc;
  }
  void OnAdjustBegin() override {}
  void OnAdjusting(const RECT*) override {}
  void OnAdjustEnd() override {}

  std::mutex mutex;
  bool selected = false, cancelled = false;
  int committed = 0;
  RECT selection{};
};

}  // namespace

int RunShot(const std::vector<std::string>& args) {
  ShotOptions o;
  std::string error;
  if (!Parse(args, &o, &error)) {
    Error("%s", error.c_str());
    return kExitUsage;
  }
  if (!DisplayAnswers()) {
    const char* display = std::getenv("DISPLAY");
    Error("cannot open the X display '%s'", display ? display : "");
    return kExitFailed;
  }
  Engine engine;
  Progress progress;
  CImageCaptureObject* capture = CreateImageCapture(&progress, o.allDisplays);
  if (!capture) {
    Error("the screen could not be frozen (see %s)", EngineLogPath().c_str());
    return kExitFailed;
  }
  Note("Click a window or drag a rectangle; Escape cancels.");
  // A signal while selecting cancels; while drawing, it takes the picture
  // as it stands.
  bool drawing = false;
  for (;;) {
    const int signal = Interrupts::Wait(100);
    bool cancelled, selected;
    int committed;
    {
      std::lock_guard<std::mutex> lock(progress.mutex);
      cancelled = progress.cancelled, selected = progress.selected;
      committed = progress.committed;
    }
    if (cancelled || (signal && !drawing)) {
      if (!cancelled) capture->Release();  // a cancelled capture is gone already
      Error("the selection was cancelled");
      return kExitFailed;
    }
    if (drawing) {
      if (signal || committed >= o.shapes) break;
    } else if (selected) {
      if (!o.tool) break;
      drawing = true;
      capture->Start(o.tool, o.size, o.color, 0, L"Sans", 0);
      Note("Draw %d shape%s on the selection (Ctrl-C takes the picture now).", o.shapes,
           o.shapes == 1 ? "" : "s");
    }
  }
  capture->Stop();
  int status = kExitOk;
  if (!o.file.empty()) {
    const HRESULT hr = capture->SaveToFile(o.encoder, ov::FromUtf8(o.file).c_str());
    if (hr != S_OK) {
      Error("cannot write %s", o.file.c_str());
      status = kExitFailed;
    } else {
      const RECT& r = progress.selection;
      Note("The picture (%dx%d) is in %s", r.right - r.left, r.bottom - r.top, o.file.c_str());
    }
  }
  if (o.copy) capture->CopyToClipboard();
  capture->Release();
  if (o.copy) {
    const uint64_t owner = ClipboardOwner();
    if (!owner) {
      Error("the clipboard could not be taken");
      return kExitFailed;
    }
    Note("The picture is on the clipboard until another program takes it (Ctrl-C ends).");
    while (ClipboardOwner() == owner && !Interrupts::Wait(200)) {
    }
  }
  return status;
}

}  // namespace cli
