// The engine's own encoder, for CodecType 0: captured frames to WMV through
// libavcodec's wmv2 encoder, written live into an ASF temp file.
//
// The capture thread converts each changed frame to I420 in one of 16
// recycled slices and queues it; the encoder thread encodes and writes. A
// slice comes back when the encoder lets go of it. With all 16 out, capture
// waits: a slow encoder slows the capture, and no changed frame is dropped.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "audio/convert/AlignedBuffer.h"
#include "encode/VideoCodec.h"
#include "output/MediaBuffer.h"
#include "output/WmvWriter.h"

class CWMVMediaObject final : public CVideoCodec, public CWmvWriter, public CBufferAllocator {
 public:
  CWMVMediaObject(CWriterStatistics* pStatistics, CFrameRateControl* pRateControl);
  ~CWMVMediaObject() override;

  // codecType is not looked at: this object only makes WMV.
  HRESULT Initialize(int32_t codecType, int32_t width, int32_t height, int32_t frameRate,
                     int32_t quality, const wchar_t* file) override;
  int32_t WriteFrame(const uint8_t* frame, int32_t stride, int64_t time, BOOL keyFrame,
                     BOOL unchanged) override;
  void Finish() override;
  void ReturnBuffer(CMediaBuffer* pBuffer) override;

  // The encoder's statistics: frames taken and written, and how often and
  // how long the capture waited for a free slice.
  int64_t InputFrames() const { return m_nInputFrames; }
  int64_t OutputFrames() const { return m_nOutputFrames.load(); }
  int64_t CaptureWaits() const { return m_nCaptureWaits; }
  int64_t CaptureWaitMs() const { return m_nCaptureWaitMs; }

  // Milliseconds that the encoder thread spends on top of each frame, as a
  // slow machine would. For tests.
  static std::atomic<int32_t> s_nEncodeDelayMsForTesting;

 private:
  static constexpr int kBufferCount = 16;
  using Clock = std::chrono::steady_clock;

  HRESULT OpenEncoder(int32_t frameRate, int32_t vbrQuality);
  HRESULT BuildPool();
  CMediaBuffer* TakeFreeBuffer();
  void Queue(CMediaBuffer* pBuffer);
  void Stop();

  // Encoder thread.
  void EncoderThread();
  void Encode(CMediaBuffer* pBuffer);
  bool Drain();
  void Account(Clock::duration spent);

  AVCodecContext* m_pMediaObject = nullptr;
  AVFrame* m_pFrame = nullptr;
  AVPacket* m_pPacket = nullptr;
  std::atomic<bool> m_bStop{false};
  int32_t m_nWidth = 0;  // even
  int32_t m_nHeight = 0;
  ov::audio::AlignedBuffer m_Pool;
  uint32_t m_nSliceSize = 0;
  std::array<std::unique_ptr<CMediaBuffer>, kBufferCount> m_Buffers;

  std::mutex m_csFree;  // the free stack and the work queue
  std::condition_variable m_hBufferReturned;
  std::condition_variable m_hWork;
  int32_t m_nFree = 0;
  std::array<CMediaBuffer*, kBufferCount> m_FreeStack{};
  // Slices handed to the encoder thread, in capture order; never more than
  // there are slices.
  std::array<CMediaBuffer*, kBufferCount> m_WorkQueue{};
  int32_t m_nWorkHead = 0;
  int32_t m_nWorkCount = 0;

  bool m_bFirstFrame = true;  // capture thread
  int64_t m_nLastKeyTime = 0;
  int64_t m_nInputFrames = 0;
  int64_t m_nCaptureWaits = 0;
  int64_t m_nCaptureWaitMs = 0;

  // Encoder thread: capture times of the frames in the encoder, by sequence.
  std::array<int64_t, 2 * kBufferCount> m_Times{};
  std::array<bool, 2 * kBufferCount> m_Discontinuity{};
  int64_t m_nSequence = 0;
  Clock::duration m_EncodeTime{};
  std::atomic<int64_t> m_nOutputFrames{0};
  bool m_bFailed = false;
  std::thread m_hThread;
};
