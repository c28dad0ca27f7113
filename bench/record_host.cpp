// A minimal host for the recording benchmark: records the whole screen for a
// number of seconds through the public API, with the system's sound when
// asked, and prints the duration and size of what it made.
#include <orvanta/orvanta.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: record_host SECONDS FPS TEMP_FOLDER [SOUND 0|1]\n");
    return 2;
  }
  int seconds = std::atoi(argv[1]), fps = std::atoi(argv[2]);
  wchar_t folder[OV_MAX_PATH];
  std::swprintf(folder, OV_MAX_PATH, L"%s", argv[3]);
  ovInitialize();
  const DisplayInfo* display = GetDisplayInfo(0);
  if (!display) return 1;
  VideoOpt video{};
  video.bStream = 1;
  video.rcScreen = display->rcMonitor;
  video.CodecType = CodecType_H264;
  video.FrameRate = fps;
  video.videoQuality = 5;
  MouseOpt mouse{};
  AudioOpt audio{};
  audio.bRender = argc > 4 && std::atoi(argv[4]) != 0;
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder = ovVideoRecord(0, folder, &video, audio, &mouse, 0, &hr);
  if (!recorder) {
    std::fprintf(stderr, "record_host: ovVideoRecord failed (0x%x)\n", static_cast<unsigned>(hr));
    return 1;
  }
  // A window to leave out of the picture, for the composed capture's bench.
  if (const char* window = std::getenv("RECORD_EXCLUDE_WINDOW"))
    recorder->AddExcludeWindow(std::strtoull(window, nullptr, 10));
  recorder->Start();
  sleep(static_cast<unsigned>(seconds));
  recorder->Destroy();
  CapturedFile* file = GetCapturedFile();
  std::printf("duration %u s, %lld bytes\n", file->nDuration,
              static_cast<long long>(file->nFileBytes));
  FreeCapturedFile(0);
  ovUninitialize();
  return 0;
}
