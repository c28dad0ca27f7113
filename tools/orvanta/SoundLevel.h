// The loudness of what a recording of sound alone captures, for the status
// line: the user sees that the microphone is live.
#pragma once

#include <orvanta/orvanta.h>

#include <atomic>
#include <string>

namespace cli {

class SoundLevel final : public CAudioCallback {
 public:
  // The format of a source (0 system sound, 1 microphone), before Start.
  void SetFormat(int32_t type, const WAVEFORMATEX& format);
  void OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) override;
  // A bar and the peak in dB of what the source captured since the last
  // call; empty for a source without a format.
  std::string Take(int32_t type);

 private:
  struct Source {
    std::atomic<int> bits{0};  // 0: no source; 16 or 32; 33 for float
    std::atomic<int> channels{0};
    std::atomic<float> peak{0.0f};
  };
  Source m_sources[2];
};

}  // namespace cli
