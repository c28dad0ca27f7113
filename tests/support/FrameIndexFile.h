// A temp video's frame index as the encoder libraries leave it, read whole.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "encode/FrameIndex.h"
#include "support/TestEnv.h"

namespace ovtest {

struct FrameIndexFile {
  ov::FrameIndexHeader header{};
  std::vector<ov::FrameIndexEntry> entries;
  size_t fileSize = 0;
};

// Entries are copied out, so that they are aligned whatever the file holds.
inline FrameIndexFile ReadFrameIndex(const std::string& path) {
  const std::string bytes = ReadFile(path);
  FrameIndexFile index;
  index.fileSize = bytes.size();
  if (bytes.size() < sizeof index.header) return index;
  std::memcpy(&index.header, bytes.data(), sizeof index.header);
  index.entries.resize((bytes.size() - sizeof index.header) / sizeof(ov::FrameIndexEntry));
  if (!index.entries.empty())
    std::memcpy(index.entries.data(), bytes.data() + sizeof index.header,
                index.entries.size() * sizeof(ov::FrameIndexEntry));
  return index;
}

}  // namespace ovtest
