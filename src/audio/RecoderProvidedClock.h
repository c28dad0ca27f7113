// Time told by an audio source: the length of audio written so far.
#pragma once

#include <cstdint>

class CRecoderProvidedClock {
 public:
  // 100-ns units.
  virtual uint64_t GetTime() = 0;

 protected:
  ~CRecoderProvidedClock() = default;
};
