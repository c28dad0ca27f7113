// The encoder's side of the pacing: it tells the session how long a frame
// takes to encode, and the capture slows to that pace while it cannot keep up.
#pragma once

#include <cstdint>

class CFrameRateControl {
 public:
  virtual void ReportFrameTime(uint32_t milliseconds) = 0;

 protected:
  ~CFrameRateControl() = default;
};
