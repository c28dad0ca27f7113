// The encoder of every library slot: captured BGR32 frames in, an Annex B
// elementary stream and its frame index out, through libavcodec.
//
// The capture thread converts each frame into a picture of a small ring and
// returns; the encoder's own thread encodes and writes. Capture waits only
// when the ring is full, which together with the reported encode time paces
// the capture to what this machine can encode.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "encode/VideoCodec.h"
#include "encode/libs/EncoderSettings.h"
#include "encode/libs/FrameTimeReport.h"
#include "encode/libs/LibavEncoder.h"
#include "encode/libs/PictureConverter.h"
#include "encode/libs/TempVideoWriter.h"

extern "C" {
#include <libavutil/buffer.h>
}

namespace ov::enc {

class CLibavVideoCodec final : public CVideoCodec {
 public:
  // backends: tried in this order by Initialize; the first that opens is used.
  CLibavVideoCodec(std::vector<BackendChoice> backends, CWriterStatistics* pStatistics,
                   CFrameRateControl* pRateControl);
  ~CLibavVideoCodec() override;

  HRESULT Initialize(int32_t codecType, int32_t width, int32_t height, int32_t frameRate,
                     int32_t quality, const wchar_t* file) override;
  int32_t WriteFrame(const uint8_t* frame, int32_t stride, int64_t time, BOOL keyFrame,
                     BOOL unchanged) override;
  void Finish() override;
  void SetChangedArea(int32_t left, int32_t top, int32_t right, int32_t bottom) override;

 private:
  static constexpr size_t kQueueDepth = 4;
  static constexpr size_t kPendingTimes = 64;

  struct Slot {
    AVFrame* picture = nullptr;
    int64_t time = 0;  // 100-ns units, as captured
    bool key = false;
    PictureArea changed{};  // where it differs from the picture before
  };
  struct PendingTime {
    int64_t pts;
    int64_t ticks;
  };

  bool OpenEncoder(const EncoderConfig& config);
  bool AllocatePictures();
  bool AttachBuffer(AVFrame* picture);
  Slot* WaitForFreeSlot();
  void Publish();
  void Stop();

  // Encoder thread.
  void EncoderLoop();
  void Encode(Slot& slot);
  void Flush();
  int WriteReadyPackets();
  int64_t TicksOf(int64_t pts);
  void Fail(const char* step, int error);

  std::vector<BackendChoice> m_backends;
  LibavEncoder m_encoder;
  PictureConverter m_converter;
  TempVideoWriter m_writer;
  AVBufferPool* m_pool = nullptr;
  bool m_initializeCalled = false;  // once per encoder, successful or not
  int m_width = 0;                  // captured region
  int m_height = 0;
  int m_codedWidth = 0;  // even, and at least the codec's minimum
  int m_codedHeight = 0;

  std::mutex m_mutex;
  std::condition_variable m_filled;
  std::condition_variable m_emptied;
  std::array<Slot, kQueueDepth> m_slots;
  size_t m_head = 0;   // the slot that the encoder takes next
  size_t m_count = 0;  // slots filled and not yet done with by the encoder
  bool m_finishing = false;
  std::atomic<bool> m_failed{false};
  std::thread m_thread;
  bool m_sentAny = false;  // capture thread
  // Capture thread: the last picture handed to the encoder, and the next
  // frame's hint. A pool buffer that comes back still holds the picture it
  // was last given; only the rows changed since then are brought up to date
  // from the last picture, and the changed rows of the new frame converted.
  static constexpr size_t kHistory = 8;
  struct HeldPicture {
    const uint8_t* data = nullptr;
    int64_t number = -1;
  };
  std::pair<int, int> StaleRows(const uint8_t* data) const;
  void Remember(const uint8_t* data, std::pair<int, int> rows);
  void ForgetPictures();
  AVFrame* m_previous = nullptr;
  PictureArea m_changed{0, 0, INT32_MAX, INT32_MAX};
  std::array<HeldPicture, kHistory> m_held{};
  std::array<std::pair<int, int>, kHistory> m_changedRows{};  // by picture number
  int64_t m_pictures = 0;  // made since the history was last forgotten

  AVPacket* m_packet = nullptr;
  std::array<PendingTime, kPendingTimes> m_pending{};
  size_t m_pendingHead = 0;
  size_t m_pendingCount = 0;
  int64_t m_lastPts = -1;
  int64_t m_frameNumber = 0;
  int64_t m_framesWritten = 0;
  FrameTimeReport m_frameTime;
};

}  // namespace ov::enc
