// The work that the engine asks for, read from its shared record and checked
// before anything is written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "formats/MuxRecord.h"
#include "platform/NonCopyable.h"

namespace mux {

struct MuxJob {
  int32_t container = 0;
  std::string outputPath;

  bool video = false;
  std::string videoPath;
  std::string indexPath;
  int32_t firstFrame = 0;
  int32_t endFrame = 0;
  // The raster and its bytes available in the mapping, or null.
  const uint8_t* watermark = nullptr;
  size_t watermarkBytes = 0;

  bool audio = false;
  int32_t audioChannels = 0;
  int32_t audioRate = 0;
  std::string audioEncoder;
  int audioFd = -1;
  int32_t audioSetting = 0;
  int64_t audioFrames = 0;

  ov::MuxRecord* record = nullptr;  // for the progress word
};

// The mapped record; unmapped when it goes.
class RecordMapping : private ov::NonCopyable {
 public:
  RecordMapping() = default;
  ~RecordMapping();

  // False, with a log line, for a descriptor that is no mapping of a record.
  bool Map(int fd);
  ov::MuxRecord* Record() const { return static_cast<ov::MuxRecord*>(m_data); }
  size_t Size() const { return m_size; }

 private:
  void* m_data = nullptr;
  size_t m_size = 0;
};

// Fills *job from the record; false, with a log line, for a record that is
// inconsistent or asks for nothing.
bool ReadJob(const RecordMapping& mapping, MuxJob* job);

}  // namespace mux
