// What encoders and audio sources report back to the session about output.
#pragma once

#include <cerrno>
#include <cstdint>

#include "orvanta/recorder.h"

class CWriterStatistics {
 public:
  // Encoders pass bytes of encoded output; audio sources pass samples.
  virtual void AddBytes(int64_t count) = 0;
  virtual void AddFrame() = 0;
  // A temp file could not be written: what is on disk so far is all there
  // will be. Any thread; the first report ends the recording.
  virtual void WriteFailed(HRESULT) {}

  // The failure code of a system error number from a write.
  static HRESULT WriteFailureCode(int error) {
    return error == ENOSPC || error == EDQUOT ? OV_E_DISK_FULL : OV_E_WRITE_FAULT;
  }

 protected:
  ~CWriterStatistics() = default;
};
