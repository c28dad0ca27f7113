// The assembly of one output file from the job: streams set up, packets of
// video and audio written in time order, progress kept in the record.
#pragma once

#include "MuxJob.h"

namespace mux {

// True once the file is complete; false with a log line, and no file left.
bool Assemble(const MuxJob& job);

}  // namespace mux
