// The capture loop's clock. The session keeps it and reads it for progress
// and durations; the stream that makes the frames advances it, and the
// encoder's pace (through CFrameRateControl) stretches its interval.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Event.h"

class CFrameTiming {
 public:
  int64_t m_nFrameCount = 0;
  std::atomic<uint32_t> m_dwFrameInterval;  // milliseconds between captures now
  const uint32_t m_dwBaseInterval;          // the frame rate's own interval
  // Recording time of the last frame; a resume reads it on the host's thread.
  std::atomic<uint32_t> m_dwElapsed{0};
  std::atomic<uint32_t> m_dwStartTick{0};
  uint32_t m_dwFrameTick = 0;  // when the last frame was captured
  // Set while recording; the stream waits on it while paused.
  ov::Event m_hRunEvent{ov::Event::Reset::Manual};
  // Set at the stop, so that the stream's wait for its next frame ends.
  ov::Event m_hStopEvent{ov::Event::Reset::Manual};

 protected:
  explicit CFrameTiming(uint32_t baseInterval)
      : m_dwFrameInterval(baseInterval), m_dwBaseInterval(baseInterval) {}
  ~CFrameTiming() = default;
};
