#include "FrameIndexFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "MuxLog.h"
#include "formats/FrameIndex.h"

namespace mux {

namespace {

constexpr uint32_t kMaxSide = 16384;
constexpr uint32_t kMaxFrameRate = 1000;

bool ReadAll(int fd, void* data, size_t size, off_t offset) {
  auto* p = static_cast<uint8_t*>(data);
  while (size > 0) {
    const ssize_t n = pread(fd, p, size, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    size -= static_cast<size_t>(n);
    offset += n;
  }
  return true;
}

bool Corrupt(const MuxJob& job, const char* what) {
  Log(kErr, "mux: corrupt frame index %s: %s\n", job.indexPath.c_str(), what);
  return false;
}

bool CheckHeader(const MuxJob& job, const ov::FrameIndexHeader& h) {
  if (std::memcmp(h.magic, ov::kFrameIndexMagic, sizeof h.magic) != 0 ||
      h.version != ov::kFrameIndexVersion)
    return Corrupt(job, "no index header");
  if (h.codecType < 1 || h.codecType > 3) return Corrupt(job, "unknown codec");
  if (h.width == 0 || h.height == 0 || h.width > kMaxSide || h.height > kMaxSide)
    return Corrupt(job, "picture size");
  if (h.frameRate == 0 || h.frameRate > kMaxFrameRate) return Corrupt(job, "frame rate");
  return true;
}

bool Outside(const ov::FrameIndexEntry& e, int64_t streamBytes) {
  return e.size == 0 || e.offset > static_cast<uint64_t>(streamBytes) ||
         e.size > static_cast<uint64_t>(streamBytes) - e.offset;
}

// A frame cut short at the end of the stream is what a recording killed
// while writing leaves: the frame is left out, not the file.
void DropTornLastFrame(const MuxJob& job, int64_t count, int64_t streamBytes,
                       FrameIndexFile* index) {
  if (job.endFrame != count || index->entries.size() < 2) return;
  const ov::FrameIndexEntry& last = index->entries.back();
  if (last.size == 0 || last.offset >= static_cast<uint64_t>(streamBytes) ||
      !Outside(last, streamBytes))
    return;
  Log(kWan, "mux: frame %d is cut short at the end of %s (%lld bytes), left out\n",
      job.endFrame - 1, job.videoPath.c_str(), static_cast<long long>(streamBytes));
  index->entries.pop_back();
}

bool CheckEntries(const MuxJob& job, const FrameIndexFile& index, int64_t streamBytes) {
  const auto end = static_cast<int32_t>(index.entries.size());
  if (end <= job.firstFrame) return Corrupt(job, "no frame left in the range");
  for (int32_t i = job.firstFrame; i < end; ++i) {
    if (Outside(index.entries[static_cast<size_t>(i)], streamBytes)) {
      Log(kErr, "mux: frame %d lies outside the temp video %s (%lld bytes)\n", i,
          job.videoPath.c_str(), static_cast<long long>(streamBytes));
      return false;
    }
  }
  if (ov::FirstDisorderedEntry(index.entries.data(), index.entries.size()) != index.entries.size())
    return Corrupt(job, "time runs backwards or outside the recording");
  const uint32_t type = index.entries[static_cast<size_t>(job.firstFrame)].pictureType;
  if (type != ov::kPictureKey && type != ov::kPictureIntra)
    Log(kWan, "mux: frame %d, the first one, is no key frame\n", job.firstFrame);
  return true;
}

}  // namespace

bool ReadFrameIndex(const MuxJob& job, int64_t streamBytes, FrameIndexFile* index) {
  const int fd = open(job.indexPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    Log(kErr, "mux: can't open the frame index %s: %s\n", job.indexPath.c_str(), strerror(errno));
    return false;
  }
  struct stat st {};
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    close(fd);
    return Corrupt(job, "not a file");
  }
  const off_t size = st.st_size;
  const int64_t count = size >= static_cast<off_t>(sizeof index->header)
                            ? (size - sizeof index->header) / sizeof(ov::FrameIndexEntry)
                            : 0;
  bool ok = size >= static_cast<off_t>(sizeof index->header) &&
            ReadAll(fd, &index->header, sizeof index->header, 0);
  if (!ok) {
    close(fd);
    return Corrupt(job, "no index header");
  }
  if (count < job.endFrame) {
    close(fd);
    Log(kErr, "mux: frame index %s has %lld frames, %d are asked for\n", job.indexPath.c_str(),
        static_cast<long long>(count), job.endFrame);
    return false;
  }
  index->entries.resize(static_cast<size_t>(job.endFrame));
  ok = ReadAll(fd, index->entries.data(), index->entries.size() * sizeof(ov::FrameIndexEntry),
               sizeof index->header);
  close(fd);
  if (!ok) return Corrupt(job, "entries can't be read");
  if (!CheckHeader(job, index->header)) return false;
  DropTornLastFrame(job, count, streamBytes, index);
  return CheckEntries(job, *index, streamBytes);
}

}  // namespace mux
