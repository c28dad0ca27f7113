// The video player: one reader per stream of the recording and one worker.
// The worker takes the host's commands from a small table (a command posted
// again before it was taken overwrites the first), and in between asks the
// readers what is due at the master clock's time: the first sound track, as
// the sound device sets the pace, else the system timer.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

extern "C" {
#include <libswscale/swscale.h>
}

#include "core/Globals.h"
#include "core/Log.h"
#include "encode/VendorTable.h"
#include "orvanta/player.h"
#include "platform/Clock.h"
#include "platform/Event.h"
#include "platform/Thread.h"
#include "platform/WindowPresenter.h"
#include "playback/AudioRender.h"
#include "playback/FrameSnapshot.h"
#include "playback/VideoDecoder.h"
#include "playback/WMVVideoReader.h"

namespace {

enum State : int32_t { kStopped = 0, kPlaying = 1, kPaused = 2, kEnded = 3 };
enum Command : int {
  kPause = 0,
  kPlay = 1,
  kBeginSeek = 2,
  kSeek = 3,
  kEndSeek = 4,
  kSetVolume = 5,
  kSetMute = 6,
  kSaveFrame = 7,
  kRepaint = 8,
  kResize = 9,
  kRefreshVolume = 10,
  kCommandSlots = 14,
};
constexpr int kMaxReaders = 3;

struct AlignedFree {
  void operator()(uint8_t* p) const { std::free(p); }
};

class CVideoPlayer final : public CVideoPlayerObject,
                           public CMediaVideoRender,
                           public CReferenceClock {
 public:
  CVideoPlayer(HWND hWnd, CPlayerCallback* pCallback)
      : CVideoPlayerObject("CVideoPlayerObject"), m_pCallback(pCallback), m_hWnd(hWnd) {}

  ~CVideoPlayer() override {
    bRun = 0;
    if (m_worker.joinable()) m_worker.join();
    for (auto& reader : m_pReaders) reader.reset();
    sws_freeContext(m_pScaler);
  }

  HRESULT Start(CapturedFile& record);

  void Resize() override { Post(kResize, 0); }
  void SaveFrame(const wchar_t* pwszFile) override {
    if (!pwszFile) return;
    {
      std::lock_guard<std::mutex> lock(m_csCommands);
      const size_t n = std::min<size_t>(std::wcslen(pwszFile), OV_MAX_PATH - 1);
      std::wmemcpy(m_szSnapshot, pwszFile, n);
      m_szSnapshot[n] = 0;
    }
    Post(kSaveFrame, 0);
  }
  void Pause() override { Post(kPause, 0); }
  void Play() override { Post(kPlay, 0); }
  void BeginSeek() override { Post(kBeginSeek, 0); }
  void Seek(int nSeconds) override { Post(kSeek, int64_t{nSeconds} * 10000000); }
  void EndSeek() override { Post(kEndSeek, 0); }
  void SetVolume(int nVolume) override { Post(kSetVolume, nVolume); }
  void SetMute(BOOL bMute) override { Post(kSetMute, bMute ? 1 : 0); }
  void RefreshVolume() override { Post(kRefreshVolume, 0); }
  int GetPosition() override { return static_cast<int>(nPosition.load() / 10000000); }
  void Repaint() override { Post(kRepaint, 0); }

  HRESULT SetVideoFormat(int32_t, const GUID* pSubtype, int32_t width, int32_t height) override;
  void RenderFrame(int32_t, const uint8_t* pData, int32_t stride) override;
  REFERENCE_TIME GetTime() override { return ov::MonotonicTime100ns() - m_nClockBase; }

 private:
  void Post(int command, int64_t value) {
    {
      std::lock_guard<std::mutex> lock(m_csCommands);
      m_Commands[command] = {true, value};
    }
    m_CommandEvent.Set();
  }
  template <typename F>
  void Each(F f) {
    for (int i = 0; i < m_nReaders; ++i) f(*m_pReaders[i]);
  }
  void Rebase() { m_nClockBase = ov::MonotonicTime100ns() - nPosition; }

  void Run();
  void Execute(int command, int64_t value);
  void Tick();
  void End();
  void ComputeDest();
  void Draw();

  CPlayerCallback* m_pCallback;
  HWND m_hWnd;
  RECT m_rcDest{};
  std::unique_ptr<ov::WindowPresenter> m_pPresenter;
  int32_t m_Width = 0, m_Height = 0;
  std::unique_ptr<uint8_t, AlignedFree> m_pFrame;  // the last frame, BGRX rows
  bool m_bHaveFrame = false;
  SwsContext* m_pScaler = nullptr;
  int32_t nState = kStopped;
  bool bSeeking = false;
  int64_t bMute = 0;
  std::atomic<int64_t> nPosition{0};
  int64_t nDuration = 0;
  int64_t nVolume = 100;
  REFERENCE_TIME m_nTrimStart = 0, m_nTrimEnd = 0;
  std::atomic<BOOL> bRun{1};
  CReferenceClock* m_pClock = nullptr;
  std::unique_ptr<CBaseMediaReader> m_pReaders[kMaxReaders];
  int m_nReaders = 0;
  std::mutex m_csCommands;
  struct {
    bool set;
    int64_t value;
  } m_Commands[kCommandSlots]{};
  ov::Event m_CommandEvent{ov::Event::Reset::Auto};
  int64_t m_nClockBase = 0;  // 100-ns monotonic time of position 0
  std::thread m_worker;
  wchar_t m_szSnapshot[OV_MAX_PATH]{};
};

HRESULT CVideoPlayer::Start(CapturedFile& record) {
  HRESULT hr;
  if (record.bScreenStream) nDuration = std::max(nDuration, record.nScreenDuration);
  if (record.bWaveOutStream) nDuration = std::max(nDuration, record.nWaveOutDuration);
  if (record.bWaveInStream) nDuration = std::max(nDuration, record.nWaveInDuration);
  m_nTrimStart = record.nTrimStart;
  m_nTrimEnd = record.nTrimEnd;
  if (OV_FAILED(hr, ov::WindowPresenter::Open(m_hWnd, &m_pPresenter))) {
    ov::LogFailure(hr, "InitDirect3D()", OV_FILE, __LINE__);
    return hr;
  }
  if (record.bScreenStream) {
    std::unique_ptr<CBaseMediaReader> reader;
    HRESULT started = E_FAIL;
    if (record.CodecType == 0) {
      auto wmv = std::make_unique<CWMVVideoReader>(m_nReaders, record.szScreenCaptureFile,
                                                   record.nScreenDuration, this);
      if (FAILED(started = wmv->Initialize())) {
        ov::LogFailure(started, "p->Initialize()", OV_FILE, __LINE__);
        return started;
      }
      reader = std::move(wmv);
    } else if (record.CodecType == 4) {
      GifCreateVideoReaderFn create = ov::GifVideoReaderEntry();
      reader.reset(create ? create(this, m_nReaders, record.szScreenCaptureFile) : nullptr);
      started = reader ? S_OK : E_FAIL;
    } else {
      auto decoder = std::make_unique<CVideoDecoder>(m_nReaders, record.szScreenCaptureFile,
                                                     record.CodecType, this);
      started = decoder->Initialize();
      reader = std::move(decoder);
    }
    if (FAILED(started)) {
      WriteLog(ov::kErr, "Failed to render:%ls\n", record.szScreenCaptureFile);
      return E_FAIL;
    }
    m_pReaders[m_nReaders++] = std::move(reader);
  }
  struct Track {
    BOOL exists;
    const wchar_t* file;
    const BOOL* use;
    const LONG* volume;
  } tracks[] = {
      {record.bWaveOutStream, record.szWaveOutFile, &record.bUseWaveOut, &record.lWaveOutVolume},
      {record.bWaveInStream, record.szWaveInFile, &record.bUseWaveIn, &record.lWaveInVolume}};
  for (const Track& track : tracks) {
    if (!track.exists) continue;
    auto p = std::make_unique<CWaveAudioRender>(m_nReaders, track.file, track.use, track.volume);
    if (FAILED(hr = p->Initialize())) {
      ov::LogFailure(hr, "p->Initialize()", OV_FILE, __LINE__);
      return hr;
    }
    if (!m_pClock) m_pClock = p.get();
    m_pReaders[m_nReaders++] = std::move(p);
  }
  if (!m_pClock) m_pClock = this;
  ComputeDest();
  Draw();
  m_worker = std::thread([this] { Run(); });
  return S_OK;
}

HRESULT CVideoPlayer::SetVideoFormat(int32_t, const GUID* pSubtype, int32_t width, int32_t height) {
  if (!pSubtype || !IsEqualGUID(*pSubtype, MEDIASUBTYPE_RGB32) || width <= 0 || height <= 0) {
    WriteLog(ov::kErr, "Unsupport video format!\n");
    return E_INVALIDARG;
  }
  const size_t bytes = (static_cast<size_t>(width) * 4 * height + 63) / 64 * 64;
  m_pFrame.reset(static_cast<uint8_t*>(std::aligned_alloc(64, bytes)));
  if (!m_pFrame) return E_OUTOFMEMORY;
  std::memset(m_pFrame.get(), 0, bytes);
  m_Width = width;
  m_Height = height;
  return S_OK;
}

void CVideoPlayer::RenderFrame(int32_t, const uint8_t* pData, int32_t stride) {
  if (!m_pFrame) return;
  const size_t row = static_cast<size_t>(m_Width) * 4;
  for (int32_t y = 0; y < m_Height; ++y)
    std::memcpy(m_pFrame.get() + y * row, pData + static_cast<ptrdiff_t>(y) * stride, row);
  m_bHaveFrame = true;
  Draw();
}

// The picture keeps its size in a window large enough, centred; otherwise it
// is scaled down to fit, keeping its shape.
void CVideoPlayer::ComputeDest() {
  m_pPresenter->Resize();
  const int32_t cw = m_pPresenter->Width(), ch = m_pPresenter->Height();
  const int32_t w = std::max(m_Width, 1), h = std::max(m_Height, 1);
  if (cw >= w && ch >= h) {
    m_rcDest.left = (cw - w) / 2;
    m_rcDest.top = (ch - h) / 2;
    m_rcDest.right = m_rcDest.left + w;
    m_rcDest.bottom = m_rcDest.top + h;
  } else if (static_cast<int64_t>(h) * cw <= static_cast<int64_t>(ch) * w) {
    const int32_t height = static_cast<int32_t>(static_cast<int64_t>(h) * cw / w);
    m_rcDest = {0, (ch - height) / 2, cw, (ch - height) / 2 + height};
  } else {
    const int32_t width = static_cast<int32_t>(static_cast<int64_t>(ch) * w / h);
    m_rcDest = {(cw - width) / 2, 0, (cw - width) / 2 + width, ch};
  }
  std::memset(m_pPresenter->Pixels(), 0, static_cast<size_t>(m_pPresenter->Pitch()) * ch);
  m_pPresenter->Present({0, 0, cw, ch});
}

void CVideoPlayer::Draw() {
  if (!m_bHaveFrame || !m_pPresenter->Pixels()) return;
  const int32_t dw = m_rcDest.right - m_rcDest.left, dh = m_rcDest.bottom - m_rcDest.top;
  if (dw <= 0 || dh <= 0) return;
  uint8_t* dest = m_pPresenter->Pixels() + m_rcDest.top * m_pPresenter->Pitch() + m_rcDest.left * 4;
  if (dw == m_Width && dh == m_Height) {
    for (int32_t y = 0; y < dh; ++y)
      std::memcpy(dest + y * m_pPresenter->Pitch(),
                  m_pFrame.get() + static_cast<size_t>(y) * m_Width * 4,
                  static_cast<size_t>(dw) * 4);
  } else {
    m_pScaler = sws_getCachedContext(m_pScaler, m_Width, m_Height, AV_PIX_FMT_BGR0, dw, dh,
                                     AV_PIX_FMT_BGR0, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!m_pScaler) return;
    const uint8_t* src[1] = {m_pFrame.get()};
    const int srcStride[1] = {m_Width * 4};
    uint8_t* dst[1] = {dest};
    const int dstStride[1] = {static_cast<int>(m_pPresenter->Pitch())};
    sws_scale(m_pScaler, src, srcStride, 0, m_Height, dst, dstStride);
  }
  m_pPresenter->Present(m_rcDest);
}

void CVideoPlayer::Run() {
  ov::SetCurrentThreadName("ovVideoPlayer");
  ov::SetCurrentThreadPriority(ov::ThreadPriority::AboveNormal);
  Each([](CBaseMediaReader& r) { r.ShowFirst(); });
  while (bRun) {
    if (m_CommandEvent.WaitFor(1)) {
      bool yielded = false;
      for (;;) {
        int command = -1;
        int64_t value = 0;
        {
          std::lock_guard<std::mutex> lock(m_csCommands);
          for (int i = 0; i < kCommandSlots && command < 0; ++i)
            if (m_Commands[i].set) {
              m_Commands[i].set = false;
              command = i;
              value = m_Commands[i].value;
            }
        }
        if (command < 0) break;
        Execute(command, value);
        if (command == kBeginSeek || command == kSeek) {
          // The frames of the seek come through Idle before the rest.
          m_CommandEvent.Set();
          yielded = true;
          break;
        }
      }
      if (yielded) continue;
    }
    Tick();
  }
}

void CVideoPlayer::Execute(int command, int64_t value) {
  switch (command) {
    case kPause:
      if (nState == kPlaying) {
        nState = kPaused;
        Each([](CBaseMediaReader& r) { r.Pause(); });
      }
      break;
    case kPlay:
      if (nState == kStopped) {
        Each([](CBaseMediaReader& r) { r.Play(); });
      } else if (nState == kPaused) {
        Each([](CBaseMediaReader& r) { r.Resume(); });
      } else if (nState == kEnded) {
        nPosition = m_nTrimStart;
        Each([this](CBaseMediaReader& r) {
          r.Seek(m_nTrimStart);
          r.Play();
        });
      }
      nState = kPlaying;
      Rebase();
      break;
    case kBeginSeek:
      bSeeking = true;
      Each([](CBaseMediaReader& r) { r.Stop(); });
      break;
    case kSeek:
      if (value != nPosition) {
        nPosition = value;
        Each([this](CBaseMediaReader& r) { nPosition = r.Seek(nPosition); });
      }
      break;
    case kEndSeek:
      bSeeking = false;
      Rebase();
      if (nState == kPlaying)
        Each([](CBaseMediaReader& r) { r.Play(); });
      else
        nState = kStopped;
      break;
    case kSetVolume:
      if (value != nVolume) {
        nVolume = value;
        Each([value](CBaseMediaReader& r) { r.SetVolume(static_cast<int32_t>(value)); });
      }
      break;
    case kSetMute:
      if (value != bMute) {
        bMute = value;
        Each([value](CBaseMediaReader& r) { r.SetMute(value ? 1 : 0); });
      }
      break;
    case kSaveFrame: {
      wchar_t file[OV_MAX_PATH];
      {
        std::lock_guard<std::mutex> lock(m_csCommands);
        std::wmemcpy(file, m_szSnapshot, OV_MAX_PATH);
      }
      if (!m_bHaveFrame || FAILED(SaveFramePng(file, m_pFrame.get(), m_Width, m_Height)))
        WriteLog(ov::kErr, "Can't create bmp\n");
      break;
    }
    case kRepaint:
      m_pPresenter->Present(m_rcDest);
      break;
    case kResize:
      ComputeDest();
      Draw();
      break;
    case kRefreshVolume:
      Each([this](CBaseMediaReader& r) { r.SetVolume(static_cast<int32_t>(nVolume)); });
      break;
  }
}

void CVideoPlayer::Tick() {
  if (nState != kPlaying || bSeeking) {
    Each([](CBaseMediaReader& r) { r.Idle(); });
    return;
  }
  nPosition = m_pClock->GetTime();
  if (m_nTrimEnd != 0 && nPosition >= m_nTrimEnd) {
    nPosition = m_nTrimEnd;
    Each([this](CBaseMediaReader& r) { r.ShowAt(nPosition); });
    End();
    return;
  }
  bool ended = true;
  Each([this, &ended](CBaseMediaReader& r) {
    r.Update(nPosition);
    ended = ended && r.Ended();
  });
  if (ended) End();
}

void CVideoPlayer::End() {
  nState = kEnded;
  nPosition = nDuration;
  Each([](CBaseMediaReader& r) { r.Stop(); });
  if (m_pCallback) m_pCallback->OnPlayEnd();
}

}  // namespace

CVideoPlayerObject* PlayCapturedVideo(HWND hWnd, CPlayerCallback* pCallback) {
  WriteLog(ov::kMsg, "Play Video ...\n");
  if (!g_Recording) {
    OV_BAD_ARG(g_Recording);
    return nullptr;
  }
  auto* player = new CVideoPlayer(hWnd, pCallback);
  if (FAILED(player->Start(*g_Recording))) {
    player->Destroy();
    return nullptr;
  }
  return player;
}
