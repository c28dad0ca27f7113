#include "MuxJob.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstring>

#include "Containers.h"
#include "MuxLog.h"
#include "platform/Text.h"

namespace mux {

namespace {

bool Utf8Of(const char16_t* field, std::string* out) {
  return ov::Utf16ToUtf8(field, ov::kMuxPathChars, out);
}

bool Flag(int32_t value) { return value == 0 || value == 1; }

bool Fail(const char* what) {
  Log(kErr, "mux: bad record: %s\n", what);
  return false;
}

bool ReadVideo(const ov::MuxRecord& r, const RecordMapping& mapping, MuxJob* job) {
  if (!Utf8Of(r.videoPath, &job->videoPath) || job->videoPath.empty())
    return Fail("temp video path");
  if (!Utf8Of(r.indexPath, &job->indexPath) || job->indexPath.empty())
    return Fail("frame index path");
  if (r.firstFrame < 0 || r.endFrame <= r.firstFrame) return Fail("empty frame range");
  job->firstFrame = r.firstFrame;
  job->endFrame = r.endFrame;
  if (r.hasWatermark) {
    job->watermark = reinterpret_cast<const uint8_t*>(r.watermark);
    job->watermarkBytes = mapping.Size() - offsetof(ov::MuxRecord, watermark);
  }
  return true;
}

bool ReadAudio(const ov::MuxRecord& r, MuxJob* job) {
  if (r.audioChannels < 1 || r.audioChannels > 8) return Fail("audio channels");
  if (r.audioRate < 8000 || r.audioRate > 192000) return Fail("audio sample rate");
  if (std::memchr(r.encoder, 0, sizeof r.encoder) == nullptr) return Fail("audio encoder name");
  job->audioEncoder = r.encoder;
  if (!FindAudioEncoding(job->audioEncoder)) return Fail("audio encoder name");
  struct stat st {};
  if (r.audioFd < 0 || r.audioFd > INT32_MAX || fstat(static_cast<int>(r.audioFd), &st) != 0 ||
      !S_ISREG(st.st_mode))
    return Fail("raw audio descriptor");
  if (r.audioFrames < 0) return Fail("audio frame count");
  job->audioChannels = r.audioChannels;
  job->audioRate = r.audioRate;
  job->audioFd = static_cast<int>(r.audioFd);
  job->audioSetting = r.audioSetting;
  job->audioFrames = r.audioFrames;
  return true;
}

}  // namespace

RecordMapping::~RecordMapping() {
  if (m_data) munmap(m_data, m_size);
}

bool RecordMapping::Map(int fd) {
  struct stat st {};
  if (fd < 0 || fstat(fd, &st) != 0) return Fail("no mapping descriptor");
  if (st.st_size < static_cast<off_t>(ov::kMuxRecordSize)) return Fail("mapping too small");
  void* data =
      mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (data == MAP_FAILED) return Fail("mapping cannot be mapped");
  m_data = data;
  m_size = static_cast<size_t>(st.st_size);
  return true;
}

bool ReadJob(const RecordMapping& mapping, MuxJob* job) {
  ov::MuxRecord& r = *mapping.Record();
  job->record = &r;
  if (r.size != ov::kMuxRecordSize) return Fail("record size");
  if (r.container < 0 || r.container >= ov::kMuxContainerCount) return Fail("container code");
  if (!Utf8Of(r.outputPath, &job->outputPath) || job->outputPath.empty())
    return Fail("output path");
  if (!Flag(r.noVideo) || !Flag(r.noAudio) || !Flag(r.hasWatermark)) return Fail("flags");
  job->container = r.container;
  const Container& container = ContainerOf(r.container);
  job->video = !r.noVideo && container.video;
  job->audio = !r.noAudio && container.audio;
  if (job->video && !ReadVideo(r, mapping, job)) return false;
  if (job->audio && !ReadAudio(r, job)) return false;
  if (!job->video && !job->audio) return Fail("nothing to write for this container");
  if (!container.video && !job->audio) return Fail("no audio for an audio file");
  return true;
}

}  // namespace mux
