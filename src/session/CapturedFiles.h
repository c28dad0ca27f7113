// The temp file set of a recording.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

namespace ov {

// Creates the folder and a new g_Recording with the names of the files that
// the options ask for. Call after the option records have been copied.
// E_INVALIDARG, with nothing made, for an empty or relative folder or one
// whose names would not fit a path field.
HRESULT PrepareCapturedFiles(const wchar_t* folder);

// One recording at a time: a session takes the slot before anything of it is
// made and gives it back when its object is gone, so that a second caller
// is refused instead of racing it. False when another recording holds it.
bool ClaimRecordingSlot();
void ReleaseRecordingSlot();
bool RecordingSlotTaken();

// The video file's extension for a codec type.
const wchar_t* VideoFileExtension(int32_t codecType);

}  // namespace ov
