// The capture loop's clock. The session keeps it and reads it for progress
// and durations; the stream that makes the frames advances it, and the
// encoder's pace (through CFrameRateControl) stretches its interval.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/Event.h"
#include "platform/EventFd.h"

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
  // Signalled at every start, pause, resume and stop, for a stream that
  // waits on the screen's changes rather than frame by frame (-1 when it
  // could not be made: such a stream then wakes at every frame).
  int WakeFd() const { return m_wake.Fd(); }
  void Wake() { m_wake.Signal(); }
  void TakeWake() { m_wake.Drain(); }

 protected:
  explicit CFrameTiming(uint32_t baseInterval)
      : m_dwFrameInterval(baseInterval), m_dwBaseInterval(baseInterval) {
    m_wake.Create();
  }
  ~CFrameTiming() = default;

 private:
  ov::EventFd m_wake;
};
