// Decoder mode: frames of a temp video, decoded one at a time into the slot
// of the record that the player shares with this program.
#pragma once

#include <cstddef>

#include "formats/DecoderRecord.h"

namespace mux {

// Runs until the player goes away (this process is then killed with it).
// Returns 1, with a log line, for a record or a video that cannot be
// played at all.
int RunDecoder(ov::DecoderRecord* record, size_t mappingSize);

}  // namespace mux
