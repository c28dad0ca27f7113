// A host as an application developer writes one: only the public header,
// linked through pkg-config. It drives an audio-only session through its
// whole life and exits non-zero on the first surprise.
#include <orvanta/orvanta.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

static int Fail(const char* what) {
  std::fprintf(stderr, "host: %s\n", what);
  return 1;
}

int main(int argc, char** argv) {
  if (argc < 2) return Fail("usage: host TEMP_FOLDER");
  wchar_t folder[OV_MAX_PATH];
  std::swprintf(folder, OV_MAX_PATH, L"%s", argv[1]);

  if (ovInitialize() != 0) return Fail("ovInitialize");
  VideoOpt video{};
  video.FrameRate = 30;
  AudioOpt audio{};
  audio.bRender = 1;
  MouseOpt mouse{};
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder = ovVideoRecord(0, folder, &video, audio, &mouse, 0, &hr);
  if (!recorder || hr != S_OK) return Fail("ovVideoRecord");
  recorder->Start();
  usleep(300 * 1000);
  recorder->Pause();
  recorder->Resume();
  uint32_t seconds = 1;
  int64_t bytes = -1;
  recorder->GetProgress(&seconds, &bytes);
  // The sound of those 300 ms may be written already: it counts in bytes.
  if (seconds != 0 || bytes < 0) return Fail("GetProgress");
  recorder->Destroy();
  CapturedFile* file = GetCapturedFile();
  if (!file || file->nDuration != 1 || !file->bWaveOutStream) return Fail("GetCapturedFile");
  FreeCapturedFile(1);
  if (GetCapturedFile()) return Fail("FreeCapturedFile");
  WriteLog(1, "host done\n");
  ovUninitialize();
  std::puts("host: ok");
  return 0;
}
