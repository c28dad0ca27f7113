// The final file of a recording, made from its temp files by whichever
// muxer the engine exports for the codec.
#pragma once

#include <cstdint>
#include <string>

namespace cli {

// Empty when this build can make the final file of a recording with this
// codec; otherwise the reason, ready to print.
std::string AssemblyMissing(int32_t codec);

// The file name extension an output of this codec must carry (".mp4"...);
// sound alone may also go to ".mp3".
const char* OutputExtension(int32_t codec);

enum class Assembled { Done, Failed, Cancelled };

// Assembles the last recording into out (an absolute path), trimmed as the
// captured-file record says, with a progress bar. Ctrl-C cancels.
// *result receives the engine's result code.
Assembled Assemble(int32_t codec, const std::string& out, int32_t* result);

}  // namespace cli
