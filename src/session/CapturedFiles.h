// The temp file set of a recording.
#pragma once

#include <cstdint>

namespace ov {

// Creates the folder and a new g_Recording with the names of the files that
// the options ask for. Call after the option records have been copied.
void PrepareCapturedFiles(const wchar_t* folder);

// The video file's extension for a codec type.
const wchar_t* VideoFileExtension(int32_t codecType);

}  // namespace ov
