// orvanta: records the screen with sound through liborvanta, from a terminal.
#include <orvanta/orvanta.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Camera.h"
#include "Console.h"
#include "Demo.h"
#include "Interrupts.h"
#include "Listing.h"
#include "Play.h"
#include "RecordOptions.h"
#include "Recording.h"
#include "Recover.h"
#include "Scene.h"
#include "Shot.h"
#include "Tone.h"

namespace {

const char kUsage[] =
    "usage: orvanta COMMAND [options]\n"
    "\n"
    "Commands:\n"
    "  record [options] OUT   record the screen, a region or a window into OUT\n"
    "  displays               list the displays that can be recorded\n"
    "  devices                list sound endpoints and video encoders\n"
    "  shot [options] FILE    an annotated screenshot, saved or copied to the clipboard\n"
    "  recover FOLDER OUT     make OUT from the temp files a killed recording left\n"
    "  play FOLDER            play the temp files of a recording in a window\n"
    "  cameras                list the cameras\n"
    "  camera [N]             show camera N in a window; s saves a snapshot\n"
    "  demo [OUT]             record a ten-second demo with sound (needs no desktop)\n"
    "  scene                  show the demo's moving scene on the current display\n"
    "  tone                   play the demo's beeps on the default sound output\n"
    "  help [COMMAND]         show this text, or the options of a command\n"
    "\n"
    "Ctrl-C ends a recording cleanly; the final file is then assembled.\n";

int Help(const std::vector<std::string>& args) {
  std::string topic = args.empty() ? "" : args[0];
  if (topic == "record")
    std::fputs(cli::kRecordUsage, stdout);
  else if (topic == "shot")
    std::fputs(cli::kShotUsage, stdout);
  else if (topic == "recover")
    std::fputs(cli::kRecoverUsage, stdout);
  else if (topic == "play")
    std::fputs(cli::kPlayUsage, stdout);
  else if (topic == "camera")
    std::fputs(cli::kCameraUsage, stdout);
  else if (topic == "demo")
    std::fputs(cli::kDemoUsage, stdout);
  else
    std::fputs(kUsage, stdout);
  return cli::kExitOk;
}

bool AsksForHelp(const std::vector<std::string>& args) {
  for (const std::string& a : args)
    if (a == "--help" || a == "-h") return true;
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (args.empty()) {
    std::fputs(kUsage, stderr);
    return cli::kExitUsage;
  }
  std::string command = args[0];
  args.erase(args.begin());
  // The scene and the beeps run until a signal ends them, as a plain program does.
  if (command == "scene") return cli::RunScene(args);
  if (command == "tone") return cli::RunTone(args);
  cli::Interrupts::Install();
  if (command == "help" || command == "--help" || command == "-h") return Help(args);
  if (command == "--version") {
    std::puts("orvanta " ORVANTA_VERSION);
    return cli::kExitOk;
  }
  if (AsksForHelp(args)) return Help({command});
  if (command == "record") {
    cli::RecordOptions options;
    std::string error;
    if (!cli::ParseRecordOptions(args, &options, &error)) {
      cli::Error("%s", error.c_str());
      return cli::kExitUsage;
    }
    return cli::RunRecording(options);
  }
  if (command == "displays" || command == "devices") {
    if (!args.empty()) {
      cli::Error("%s takes no arguments", command.c_str());
      return cli::kExitUsage;
    }
    return command == "displays" ? cli::RunDisplays() : cli::RunDevices();
  }
  if (command == "cameras") {
    if (!args.empty()) {
      cli::Error("cameras takes no arguments");
      return cli::kExitUsage;
    }
    return cli::RunCameras();
  }
  if (command == "camera") return cli::RunCamera(args);
  if (command == "demo") return cli::RunDemo(args);
  if (command == "shot") return cli::RunShot(args);
  if (command == "recover") return cli::RunRecover(args);
  if (command == "play") return cli::RunPlay(args);
  cli::Error("unknown command '%s' (see 'orvanta help')", command.c_str());
  return cli::kExitUsage;
}
