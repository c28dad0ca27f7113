#include "FrameIndexFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "MuxLog.h"
#include "encode/FrameIndex.h"

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

bool CheckEntries(const MuxJob& job, const FrameIndexFile& index, int64_t streamBytes) {
  int64_t previous = INT64_MIN;
  for (int32_t i = job.firstFrame; i < job.endFrame; ++i) {
    const ov::FrameIndexEntry& e = index.entries[static_cast<size_t>(i)];
    if (e.size == 0 || e.offset > static_cast<uint64_t>(streamBytes) ||
        e.size > static_cast<uint64_t>(streamBytes) - e.offset) {
      Log(kErr, "mux: frame %d lies outside the temp video %s (%lld bytes)\n", i,
          job.videoPath.c_str(), static_cast<long long>(streamBytes));
      return false;
    }
    if (e.time < previous) return Corrupt(job, "time runs backwards");
    previous = e.time;
  }
  const uint32_t type = index.entries[static_cast<size_t>(job.firstFrame)].pictureType;
  if (type != ov::kPictureKey && type != ov::kPictureIntra)
    Log(kWan, "mux: frame %d, the first one, is no key frame\n", job.firstFrame);
  return true;
}

}  // namespace

bool ReadFrameIndex(const MuxJob& job, int64_t streamBytes, FrameIndexFile* index) {
  const int fd = open(job.indexPath.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    Log(kErr, "mux: can't open the frame index %s: %s\n", job.indexPath.c_str(), strerror(errno));
    return false;
  }
  const off_t size = lseek(fd, 0, SEEK_END);
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
  return CheckHeader(job, index->header) && CheckEntries(job, *index, streamBytes);
}

}  // namespace mux
