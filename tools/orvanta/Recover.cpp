#include "Recover.h"

#include <orvanta/orvanta.h>

#include <algorithm>
#include <filesystem>

#include "Assembly.h"
#include "Console.h"
#include "Engine.h"
#include "platform/Text.h"

namespace cli {

const char kRecoverUsage[] =
    "usage: orvanta recover FOLDER OUT\n"
    "\n"
    "Makes OUT from the temp files that a recording left in FOLDER when it\n"
    "could not finish (the program was killed, the machine lost power...).\n"
    "Everything that reached the disk is kept; a frame or sound block torn at\n"
    "the end is cut off. The temp files stay in FOLDER.\n";

namespace {

double Seconds(REFERENCE_TIME t) { return static_cast<double>(t) / REF_TIME_UNITS; }

}  // namespace

int RunRecover(const std::vector<std::string>& args) {
  if (args.size() != 2) {
    Error("recover takes a temp folder and an output file (see 'orvanta help recover')");
    return kExitUsage;
  }
  namespace fs = std::filesystem;
  std::error_code ec;
  const std::string folder = fs::absolute(args[0], ec).string();
  const std::string out = fs::absolute(args[1], ec).string();
  if (!fs::is_directory(folder, ec)) {
    Error("'%s' is not a folder", args[0].c_str());
    return kExitUsage;
  }
  Engine engine;
  HRESULT hr = RecoverCapturedFile(ov::FromUtf8(folder).c_str());
  CapturedFile* file = GetCapturedFile();
  if (FAILED(hr) || !file) {
    Error("no recording to recover in %s (0x%08x); see %s", folder.c_str(),
          static_cast<unsigned>(hr), EngineLogPath().c_str());
    return kExitFailed;
  }
  const int32_t codec = file->bScreenStream ? file->CodecType : CodecType_H264;
  std::string extension = fs::path(out).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension != OutputExtension(codec)) {
    Error("OUT must end in %s for this recording", OutputExtension(codec));
    FreeCapturedFile(0);
    return kExitUsage;
  }
  Note("Found %s video, %s system sound, %s microphone",
       FormatSeconds(Seconds(file->nScreenDuration)).c_str(),
       FormatSeconds(Seconds(file->nWaveOutDuration)).c_str(),
       FormatSeconds(Seconds(file->nWaveInDuration)).c_str());
  if (std::string missing = AssemblyMissing(codec); !missing.empty()) {
    Error("%s", missing.c_str());
    FreeCapturedFile(0);
    return kExitNotAssembled;
  }
  int32_t result = 0;
  Assembled assembled = Assemble(codec, out, &result);
  FreeCapturedFile(0);
  if (assembled != Assembled::Done) {
    Error("assembly %s (0x%08x); see %s",
          assembled == Assembled::Cancelled ? "cancelled" : "failed", static_cast<unsigned>(result),
          EngineLogPath().c_str());
    return kExitFailed;
  }
  std::printf("Saved %s\n", out.c_str());
  return kExitOk;
}

}  // namespace cli
