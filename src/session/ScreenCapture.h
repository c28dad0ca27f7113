// A screen recording session: encoder, capture stream, audio, and the UI
// thread that owns the recorder box. Deleting it is the stop.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "core/FrameRateControl.h"
#include "core/FrameTiming.h"
#include "core/WriterStatistics.h"
#include "orvanta/recorder.h"
#include "platform/Event.h"

class CVideoCodec;
class CAudioStream;
class CRecoderProvidedClock;
class CGdiCaptureVideoStream;
class CDesktopDuplicationVideoStream;
class CMagnifierVideoStream;
class CWindowCaptureVideoStream;

class CScreenCapture : public CScreenRecoderObject,
                       public CWriterStatistics,
                       public CFrameRateControl,
                       public CFrameTiming {
 public:
  CScreenCapture();
  ~CScreenCapture() override;

  void Start() override;
  void Pause() override;
  void Resume() override;
  void GetProgress(uint32_t* pSeconds, int64_t* pBytes) override;
  uint32_t GetFrameCounter() override;
  CScreenCanvas* SetCanvasCallback(CCanvasCallback* pCallback) override;
  void AddExcludeWindow(HWND hWnd) override;
  void RemoveExcludeWindow(HWND hWnd) override;
  void AddIncludeWindow(HWND hWnd) override;
  void SaveFrameToFile(const wchar_t* pszPath) override;
  void RefreshBox() override;

  void AddBytes(int64_t count) override;
  void AddFrame() override;
  void ReportFrameTime(uint32_t milliseconds) override;
  void WriteFailed(HRESULT hr) override;

  // Ends the recording at this moment on a failure (a temp file that cannot
  // be written, the X server gone); only the first failure counts.
  void EndOnFailure(HRESULT hr);

  // Chooses and starts the encoder and the capture stream.
  HRESULT Create();
  // Tests put an encoder of their own in place of the libraries'.
  using CodecFactory = CVideoCodec* (*)(int32_t codecType, CWriterStatistics*, CFrameRateControl*);
  static CodecFactory s_codecFactoryForTesting;
  // Creates the audio stream of the enabled sources.
  HRESULT CreateAudio();
  // Starts the UI thread and waits until it is ready.
  void StartUIThread();

  // Read and written by the capture stream thread.
  std::unique_ptr<CVideoCodec> m_VideoCodec;
  std::unique_ptr<CAudioStream> m_pAudioStream;
  CRecoderProvidedClock* m_pClock = nullptr;  // the audio stream's, while it lives
  std::unique_ptr<CGdiCaptureVideoStream> m_pGdiStream;
  std::unique_ptr<CDesktopDuplicationVideoStream> m_pDuplicationStream;
  std::unique_ptr<CMagnifierVideoStream> m_pMagnifierStream;
  std::unique_ptr<CWindowCaptureVideoStream> m_pWindowStream;
  std::atomic<int64_t> m_nBytesWritten{0};
  std::atomic<uint32_t> m_nFrameCounter{0};
  uint32_t m_dwUIThreadId = 0;
  std::thread m_hUIThread;
  ov::Event m_hUIReadyEvent{ov::Event::Reset::Manual};

 private:
  void UIThread();
  // Starts or stops the taking of frames and sound, and wakes the stream.
  void ChangeRecording(BOOL recording);
  void PostToBox(uint32_t message);
  // True, with a log line, when a failure has ended the recording.
  bool Failed(const char* operation) const;
  HRESULT CreateCaptureStream(int32_t width, int32_t height);
  // Waits for each stream's thread; each makes its last frame and finishes
  // the encoder before it ends.
  void JoinCaptureStreams();
  void DestroyCaptureStreams();

  // The tick at which the last pause began; progress stands still there.
  std::atomic<uint32_t> m_dwPauseTick{0};
  std::atomic<bool> m_bStarted{false};
  // The failure that ended the recording, S_OK while none did.
  std::atomic<HRESULT> m_hrFailure{S_OK};
};
