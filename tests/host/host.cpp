// A host as an application developer writes one: only the public headers,
// built against an installed engine. It records two seconds of the screen
// with the system's sound, assembles an MP4 with FFMux, and exits non-zero
// on the first surprise.
#include <orvanta/orvanta.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

int Fail(const char* what) {
  std::fprintf(stderr, "host: %s\n", what);
  return 1;
}

class Progress : public CMuxCallback {
 public:
  int OnProgress(int) override { return 1; }
  void OnComplete(HRESULT result) override {
    m_result = result;
    m_done = true;
  }
  bool Done() const { return m_done; }
  HRESULT Result() const { return m_result; }

 private:
  std::atomic<bool> m_done{false};
  std::atomic<HRESULT> m_result{E_FAIL};
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return Fail("usage: host TEMP_FOLDER OUT.mp4");
  wchar_t folder[OV_MAX_PATH];
  wchar_t out[OV_MAX_PATH];
  std::swprintf(folder, OV_MAX_PATH, L"%s", argv[1]);
  std::swprintf(out, OV_MAX_PATH, L"%s", argv[2]);

  if (ovInitialize() != 0) return Fail("ovInitialize");
  VideoOpt video{};
  video.bStream = 1;
  video.rcScreen = {0, 0, 640, 360};
  video.CodecType = CodecType_H264;
  video.FrameRate = 30;
  video.videoQuality = 3;
  AudioOpt audio{};
  audio.bRender = 1;
  MouseOpt mouse{};
  mouse.Flag = MOUSE_DRAW_CURSOR;
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder = ovVideoRecord(0, folder, &video, audio, &mouse, 0, &hr);
  if (!recorder || hr != S_OK) return Fail("ovVideoRecord");
  recorder->Start();
  usleep(1000 * 1000);
  recorder->Pause();
  recorder->Resume();
  usleep(1000 * 1000);
  uint32_t seconds = 0;
  int64_t bytes = 0;
  recorder->GetProgress(&seconds, &bytes);
  if (seconds < 1 || bytes <= 0) return Fail("GetProgress");
  recorder->Destroy();
  CapturedFile* file = GetCapturedFile();
  if (!file || !file->bScreenStream || !file->bWaveOutStream) return Fail("GetCapturedFile");
  file->bUseWaveOut = 1;
  file->lWaveOutVolume = 100;

  Progress progress;
  if (FFMux(FFMUX_MP4, 0, out, 0, &progress) != S_OK) return Fail("FFMux");
  for (int i = 0; i < 600 && !progress.Done(); ++i) usleep(50 * 1000);
  if (!progress.Done() || progress.Result() != S_OK) return Fail("FFMux result");

  FreeCapturedFile(1);
  if (GetCapturedFile()) return Fail("FreeCapturedFile");
  WriteLog(1, "host done\n");
  ovUninitialize();
  std::puts("host: ok");
  return 0;
}
