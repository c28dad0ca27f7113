// What each container code of the record makes, and how the raw audio of
// each encoder name is laid out.
#pragma once

#include <string>

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace mux {

struct Container {
  const char* format;  // libavformat muxer
  const char* name;    // for the log
  bool video;          // takes the video
  bool audio;          // takes the audio
};

// Code 0..8, as ov::MuxContainer lists them:
//   0 MP4 (video + AAC)       1 MP4, video alone     2 M4A (AAC alone)
//   3 ADTS AAC (.aac)         4 QuickTime MOV        5 Matroska MKV
//   6 FLV (H.264 + AAC)       7 MP3 alone            8 AVI (video + AC-3)
// A video codec that the container can't carry (H.265 or MPEG-2 in FLV) is
// re-encoded as H.264.
const Container& ContainerOf(int code);

struct AudioEncoding {
  const char* recordName;    // as the record names it
  const char* encoders[2];   // FFmpeg encoders, in order of preference
  AVSampleFormat rawFormat;  // of the raw audio file, interleaved
};

// The raw audio is 16-bit for "libfdk_aac" (FFmpeg's own "aac" serves where
// fdk is not built in) and 32-bit float for "libmp3lame" and "ac3". Null
// for a name of no encoding.
const AudioEncoding* FindAudioEncoding(const std::string& recordName);

}  // namespace mux
