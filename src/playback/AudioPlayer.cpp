// The sound player: one wave reader per temp file, driven from a worker by a
// small state machine. The host's commands are handed over by exchange and
// taken within a round of 10 ms.
#include <atomic>
#include <memory>
#include <thread>

#include "core/Globals.h"
#include "core/Log.h"
#include "orvanta/player.h"
#include "platform/Clock.h"
#include "platform/Thread.h"
#include "playback/AudioRender.h"

namespace {

enum State : int32_t { kStopped = 0, kPlaying = 1, kPaused = 2, kEnded = 3 };
enum Command : int32_t { kNone = 0, kPlay = 1, kPause = 2 };
constexpr int kMaxReaders = 2;

class CAudioPlayer final : public CAudioPlayerObject {
 public:
  explicit CAudioPlayer(CPlayerCallback* pCallback)
      : CAudioPlayerObject("CAudioPlayerObject"), m_pCallback(pCallback) {}

  ~CAudioPlayer() override {
    bRun = 0;
    if (m_worker.joinable()) m_worker.join();
    for (int i = 0; i < m_nReaders; ++i) m_pReaders[i].reset();
  }

  HRESULT AddReader(const wchar_t* file, const BOOL* pbUse, const LONG* plVolume) {
    auto reader = std::make_unique<CWaveAudioRender>(m_nReaders, file, pbUse, plVolume);
    HRESULT hr = reader->Initialize();
    if (FAILED(hr)) {
      ov::LogFailure(hr, "p->Initialize()", OV_FILE, __LINE__);
      return hr;
    }
    m_pReaders[m_nReaders++] = std::move(reader);
    return S_OK;
  }

  void Start() {
    m_worker = std::thread([this] { Run(); });
  }

  void Pause() override { nCommand.store(kPause); }
  void Play() override { nCommand.store(kPlay); }
  void Seek(int nSeconds) override { nSeekSeconds.store(nSeconds); }

  void SetVolume(int nNewVolume) override {
    nVolume = nNewVolume;
    for (int i = 0; i < m_nReaders; ++i) m_pReaders[i]->SetVolume(nNewVolume);
  }
  void SetMute(BOOL bMute) override {
    for (int i = 0; i < m_nReaders; ++i) m_pReaders[i]->SetMute(bMute);
  }
  void RefreshVolume() override { SetVolume(nVolume); }

  int GetPosition() override {
    if (m_nReaders == 0) return 0;
    return static_cast<int>(m_pReaders[0]->GetTime() / 10000000);
  }

 private:
  template <typename F>
  void Each(F f) {
    for (int i = 0; i < m_nReaders; ++i) f(*m_pReaders[i]);
  }

  void Run() {
    ov::SetCurrentThreadName("ovAudioPlayer");
    ov::SetCurrentThreadPriority(ov::ThreadPriority::AboveNormal);
    while (bRun) {
      ov::SleepMs(10);
      const int32_t command = nCommand.exchange(kNone);
      if (command != kNone && command != nState) {
        switch (nState) {
          case kStopped:
            Each([](CWaveAudioRender& r) { r.Play(); });
            break;
          case kPlaying:
            Each([](CWaveAudioRender& r) { r.Pause(); });
            break;
          case kPaused:
            Each([](CWaveAudioRender& r) { r.Resume(); });
            break;
          case kEnded:
            Each([](CWaveAudioRender& r) {
              r.Seek(0);
              r.Play();
            });
            break;
        }
        nState = nState == kPlaying ? kPaused : kPlaying;
      }
      const int32_t seconds = nSeekSeconds.exchange(-1);
      if (seconds != -1) {
        Each([](CWaveAudioRender& r) { r.Stop(); });
        Each([seconds](CWaveAudioRender& r) { r.Seek(int64_t{seconds} * 10000000); });
        if (nState == kPlaying) {
          Each([](CWaveAudioRender& r) { r.Play(); });
        } else {
          nState = kStopped;
          continue;
        }
      }
      if (nState == kPlaying) {
        bool ended = true;
        Each([&ended](CWaveAudioRender& r) {
          r.Update(0);
          ended = ended && r.Ended();
        });
        if (ended) {
          nState = kEnded;
          Each([](CWaveAudioRender& r) { r.Stop(); });
          if (m_pCallback) m_pCallback->OnPlayEnd();
        }
      }
    }
  }

  CPlayerCallback* m_pCallback;
  int32_t nState = kStopped;  // the worker's alone
  std::atomic<BOOL> bRun{1};
  std::unique_ptr<CWaveAudioRender> m_pReaders[kMaxReaders];
  int m_nReaders = 0;
  std::thread m_worker;
  std::atomic<int32_t> nSeekSeconds{-1};
  std::atomic<int32_t> nCommand{kNone};
  int32_t nVolume = 100;
};

}  // namespace

CAudioPlayerObject* PlayCapturedAudio(CPlayerCallback* pCallback) {
  WriteLog(ov::kMsg, "Play Audio ...\n");
  CapturedFile* record = g_Recording;
  auto* player = new CAudioPlayer(pCallback);
  if (record && record->bWaveOutStream &&
      FAILED(player->AddReader(record->szWaveOutFile, &record->bUseWaveOut,
                               &record->lWaveOutVolume))) {
    player->Destroy();
    return nullptr;
  }
  if (record && record->bWaveInStream &&
      FAILED(
          player->AddReader(record->szWaveInFile, &record->bUseWaveIn, &record->lWaveInVolume))) {
    player->Destroy();
    return nullptr;
  }
  player->Start();
  return player;
}
