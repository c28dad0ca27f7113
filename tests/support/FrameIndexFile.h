// A temp video's frame index read whole through the engine's one reader; an
// index that it refuses comes back without entries.
#pragma once

#include <string>

#include "formats/FrameIndexFile.h"

namespace ovtest {

inline ov::FrameIndexFile ReadFrameIndex(const std::string& path) {
  ov::FrameIndexFile index;
  ov::ReadFrameIndex(path, -1, &index);
  return index;
}

}  // namespace ovtest
