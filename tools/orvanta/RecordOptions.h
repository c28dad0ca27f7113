// The options of `orvanta record`, read from the command line.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace cli {

struct Region {
  int32_t x = 0, y = 0, width = 0, height = 0;
};

enum class Follow { None, Follow, Center };

// The codec of a recording of sound alone, assembled as M4A or MP3.
inline constexpr int32_t kAudioOnly = -1;

struct RecordOptions {
  int display = -1;  // -1: the display that holds the region, else the first
  bool hasRegion = false;
  Region region;
  uint64_t window = 0;
  bool select = false;      // the user drags a region or clicks a window first
  bool pickWindow = false;  // the user clicks a window first
  Follow follow = Follow::None;
  int32_t codec = 1;  // CodecType
  int32_t fps = 30;
  int32_t quality = 3;
  bool systemAudio = false;
  bool mic = false;
  bool cursor = false;
  bool clicks = false;
  bool box = false;        // the frame round the region, and drawing keys
  bool countdown = false;  // 3, 2, 1 on the screen before the recording starts
  bool audioOnly = false;  // sound alone; codec is then kAudioOnly
  double seconds = 0;      // 0 records until Ctrl-C
  bool hasTrim = false;
  double trimStart = 0;
  double trimEnd = 0;  // 0 keeps to the end
  std::string tempFolder;
  std::string out;
};

// Reads the arguments after "record". On failure returns false with a
// one-line message in *error.
bool ParseRecordOptions(const std::vector<std::string>& args, RecordOptions* options,
                        std::string* error);

// "h264" for CodecType 1 and so on; the name a user types.
const char* CodecName(int32_t codec);
// "H.264" and so on; the name shown in summaries.
const char* CodecTitle(int32_t codec);

// The help text of the record command.
extern const char kRecordUsage[];

}  // namespace cli
