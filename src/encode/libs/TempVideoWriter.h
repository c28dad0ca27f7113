// The temp video of a library encoder: the elementary stream as the encoder
// makes it, and beside it the ".idx" with one entry per frame. Both are
// written straight through, so what is on disk is complete up to the last
// frame written even if the host dies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "formats/FrameIndex.h"
#include "platform/NonCopyable.h"

namespace ov::enc {

class TempVideoWriter : private ov::NonCopyable {
 public:
  TempVideoWriter() = default;
  ~TempVideoWriter();

  // Creates (or empties) the stream file and "<path>.idx", and writes the
  // index header of that codec, size and rate. On failure returns the
  // system's error number, else 0.
  int Create(const std::string& path, uint32_t codecType, int32_t width, int32_t height,
             int32_t frameRate);
  // Appends one encoded frame and its index entry; the error number or 0.
  // A frame that fails is taken back out of both files.
  int Write(const uint8_t* data, size_t size, int64_t ticks, bool key);
  // Closes both files; the error number of a failed close, or 0.
  int Close();

 private:
  void CutToWholeFrames();

  int m_stream = -1;
  int m_index = -1;
  uint64_t m_offset = 0;
  uint64_t m_entries = 0;
};

}  // namespace ov::enc
