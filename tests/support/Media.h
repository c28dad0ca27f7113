// FFmpeg's own tools on what a recording made, as a user's player sees it.
#pragma once

#include <string>

#include "support/TestEnv.h"

namespace ovtest {

// What ffprobe tells of the file, one value a line; options pick the input
// format, the streams and the entries.
inline std::string Probe(const std::string& file, const std::string& options) {
  return RunCapture("ffprobe -v error " + options + " -of default=nw=1:nk=1 '" + file + "'");
}

// What decoding the whole file reports: empty when every frame decodes.
// Recordings are variable-rate: "-vsync vfr" keeps the null output from
// forcing their frames onto the grid of a rate that ffmpeg guesses.
inline std::string DecodeErrors(const std::string& file, const std::string& options = "") {
  int code = -1;
  const std::string errors = RunCapture(
      "ffmpeg -nostdin -v error " + options + " -i '" + file + "' -vsync vfr -f null - 2>&1",
      &code);
  return code == 0 ? errors : "exit " + std::to_string(code) + ": " + errors;
}

}  // namespace ovtest
