// The mean time an encoder spends on a frame, told to the capture's rate
// control once every 16 frames.
#pragma once

#include <chrono>
#include <cstdint>

#include "core/FrameRateControl.h"

namespace ov::enc {

class FrameTimeReport {
 public:
  void Account(CFrameRateControl* control, std::chrono::steady_clock::duration spent) {
    m_spent += spent;
    if (++m_frames < kFramesPerReport) return;
    const auto meanUs =
        std::chrono::duration_cast<std::chrono::microseconds>(m_spent).count() / kFramesPerReport;
    control->ReportFrameTime(static_cast<uint32_t>((meanUs + 500) / 1000));
    m_spent = {};
    m_frames = 0;
  }

 private:
  static constexpr int kFramesPerReport = 16;
  std::chrono::steady_clock::duration m_spent{};
  int m_frames = 0;
};

}  // namespace ov::enc
