// One fuzz target for the three readers of what a recording leaves on disk
// or hands to `mux`: the frame index (as `mux` and the engine's trim read
// it), the wave temp file (through the mux audio reader and its converter)
// and the mux record. The first byte picks the reader, the rest is the file.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "JobIndex.h"
#include "MuxJob.h"
#include "MuxLog.h"
#include "output/FFMux.h"
#include "output/MuxAudioReader.h"
#include "platform/Files.h"

namespace {

// The input as a file that the readers open by name or use by descriptor.
class MemoryFile {
 public:
  MemoryFile(const uint8_t* data, size_t size, size_t minimum = 0)
      : m_fd(memfd_create("fuzz", MFD_CLOEXEC)) {
    if (m_fd < 0) return;
    if (size > 0 && write(m_fd, data, size) != static_cast<ssize_t>(size)) return;
    if (size < minimum && ftruncate(m_fd, static_cast<off_t>(minimum)) != 0) return;
    m_path = "/proc/self/fd/" + std::to_string(m_fd);
  }
  ~MemoryFile() {
    if (m_fd >= 0) close(m_fd);
  }
  bool Valid() const { return !m_path.empty(); }
  int Fd() const { return m_fd; }
  const std::string& Path() const { return m_path; }

 private:
  int m_fd;
  std::string m_path;
};

template <typename T>
T Take(const uint8_t*& data, size_t& size) {
  T value{};
  const size_t n = size < sizeof value ? size : sizeof value;
  std::memcpy(&value, data, n);
  data += n;
  size -= n;
  return value;
}

// A frame index, then a stream of the size the input gives, and the trim
// arithmetic over the entries that `mux` accepted.
void FuzzFrameIndex(const uint8_t* data, size_t size) {
  const auto streamBytes = static_cast<int64_t>(Take<uint32_t>(data, size) & 0xFFFFFF);
  const auto range = Take<uint32_t>(data, size);
  MemoryFile file(data, size);
  if (!file.Valid()) return;
  mux::MuxJob job;
  job.indexPath = job.videoPath = file.Path();
  job.firstFrame = static_cast<int32_t>(range & 0xFF);
  job.endFrame = job.firstFrame + 1 + static_cast<int32_t>(range >> 8 & 0xFFF);
  ov::FrameIndexFile index;
  if (!mux::ReadJobIndex(job, streamBytes, &index)) return;
  REFERENCE_TIME start = static_cast<REFERENCE_TIME>(range >> 20) * 1000000;
  REFERENCE_TIME limit = static_cast<REFERENCE_TIME>(range & 0x3F) * REF_TIME_UNITS;
  const ov::FrameRange kept = ov::ComputeFrameRange(index.entries, &start, 0, &limit);
  if (kept.first < 0 || kept.end > static_cast<int32_t>(index.entries.size()) ||
      (kept.end <= kept.first && !index.entries.empty()))
    __builtin_trap();
}

// A wave temp file read to its end in the format a muxer wants, from a trim
// start, at a volume.
void FuzzWave(const uint8_t* data, size_t size) {
  const auto choice = Take<uint8_t>(data, size);
  const auto seekMs = Take<uint16_t>(data, size);
  MemoryFile file(data, size);
  if (!file.Valid()) return;
  const std::wstring path = ov::FromUtf8(file.Path());
  const LONG volume = (choice & 8) ? 50 : 100;
  CMuxAudioReader reader;
  if (FAILED(reader.Open(path.c_str()))) return;
  // The format a muxer wants: PCM or float, mono or stereo, 44.1 or 48 kHz.
  WAVEFORMATEX wanted{};
  const bool floatSamples = choice & 1;
  wanted.wFormatTag = floatSamples ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
  wanted.nChannels = (choice >> 1 & 1) ? 1 : 2;
  wanted.nSamplesPerSec = (choice >> 2 & 1) ? 44100 : 48000;
  wanted.wBitsPerSample = floatSamples ? 32 : 16;
  wanted.nBlockAlign = static_cast<WORD>(wanted.nChannels * wanted.wBitsPerSample / 8);
  wanted.nAvgBytesPerSec = wanted.nSamplesPerSec * wanted.nBlockAlign;
  if (FAILED(reader.Initialize(wanted, volume))) return;
  SeekMuxAudioReader(&reader, static_cast<REFERENCE_TIME>(seekMs) * 10000);
  // A tenth of a second at a time, as far as a few seconds.
  std::vector<uint8_t> buffer(wanted.nAvgBytesPerSec / 10);
  for (int i = 0; i < 40 && reader.Read(buffer.data(), static_cast<uint32_t>(buffer.size())) > 0;
       ++i) {
  }
}

// A record as `mux` maps it, checked as `mux` checks it.
void FuzzRecord(const uint8_t* data, size_t size) {
  MemoryFile file(data, size, ov::kMuxRecordSize);
  if (!file.Valid()) return;
  mux::RecordMapping mapping;
  if (!mapping.Map(file.Fd())) return;
  mux::MuxJob job;
  mux::ReadJob(mapping, &job);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    mux::SetLogFd(open("/dev/null", O_WRONLY | O_CLOEXEC));
    return true;
  }();
  (void)quiet;
  if (size == 0) return 0;
  switch (data[0] % 3) {
    case 0:
      FuzzFrameIndex(data + 1, size - 1);
      break;
    case 1:
      FuzzWave(data + 1, size - 1);
      break;
    default:
      FuzzRecord(data + 1, size - 1);
      break;
  }
  return 0;
}
