// What encoders and audio sources report back to the session about output.
#pragma once

#include <cstdint>

class CWriterStatistics {
 public:
  // Encoders pass bytes of encoded output; audio sources pass samples.
  virtual void AddBytes(int64_t count) = 0;
  virtual void AddFrame() = 0;

 protected:
  ~CWriterStatistics() = default;
};
