// The frame index beside the temp video, read and checked against the stream
// for the frames that the record asks for.
#pragma once

#include <cstdint>

#include "MuxJob.h"
#include "formats/FrameIndexFile.h"

namespace mux {

// False, with a log line, for an index that can't be read, isn't one, or
// whose entries in the range don't lie inside a stream of streamBytes or
// don't keep time. A last frame cut short by the stream's end is left out:
// entries then ends one short of the job's end.
bool ReadJobIndex(const MuxJob& job, int64_t streamBytes, ov::FrameIndexFile* index);

}  // namespace mux
