// The one reader of the frame index beside a temp video, for the engine's
// muxers, the recovery of a killed recording and the `mux` program. It reads
// and checks; what to do with a damaged index is each caller's business.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/FrameIndex.h"

namespace ov {

struct FrameIndexFile {
  FrameIndexHeader header{};
  std::vector<FrameIndexEntry> entries;  // the first ones, as many as asked for
  int64_t fileEntries = 0;               // whole entries in the file
  int64_t fileBytes = -1;                // the file's size, -1 when it can't be opened
};

// Reads the header of the index at path (UTF-8) and its first maxEntries
// entries, all of them when maxEntries is negative. Returns null, or what is
// wrong: then *error holds the system's error number where there is one.
// Only regular files are read; a header that no encoder of ours writes
// (magic, version, codec, picture size, frame rate) is refused.
const char* ReadFrameIndex(const std::string& path, int64_t maxEntries, FrameIndexFile* index,
                           int* error = nullptr);

// True when the entry's frame lies whole inside a stream of streamBytes.
inline bool EntryInside(const FrameIndexEntry& e, int64_t streamBytes) {
  return e.size != 0 && e.offset <= static_cast<uint64_t>(streamBytes) &&
         e.size <= static_cast<uint64_t>(streamBytes) - e.offset;
}

}  // namespace ov
