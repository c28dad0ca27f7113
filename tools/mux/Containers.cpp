#include "Containers.h"

#include "formats/MuxRecord.h"

namespace mux {

namespace {

constexpr Container kContainers[ov::kMuxContainerCount] = {
    {"mp4", "MP4", true, true},   {"mp4", "MP4 (video only)", true, false},
    {"ipod", "M4A", false, true}, {"adts", "ADTS AAC", false, true},
    {"mov", "MOV", true, true},   {"matroska", "MKV", true, true},
    {"flv", "FLV", true, true},   {"mp3", "MP3", false, true},
    {"avi", "AVI", true, true},
};

constexpr AudioEncoding kEncodings[] = {
    {"libfdk_aac", {"libfdk_aac", "aac"}, AV_SAMPLE_FMT_S16},
    {"libmp3lame", {"libmp3lame", nullptr}, AV_SAMPLE_FMT_FLT},
    {"ac3", {"ac3", nullptr}, AV_SAMPLE_FMT_FLT},
};

}  // namespace

const Container& ContainerOf(int code) { return kContainers[code]; }

const AudioEncoding* FindAudioEncoding(const std::string& recordName) {
  for (const AudioEncoding& e : kEncodings)
    if (recordName == e.recordName) return &e;
  return nullptr;
}

}  // namespace mux
