#include "formats/FrameIndexFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/Files.h"

namespace ov {

namespace {

constexpr uint32_t kMaxSide = 16384;
constexpr uint32_t kMaxFrameRate = 1000;

// 0, or the system's error; EIO for a file that ends early.
int ReadAt(int fd, void* data, size_t size, off_t offset) {
  auto* p = static_cast<uint8_t*>(data);
  while (size > 0) {
    const ssize_t n = pread(fd, p, size, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return EIO;
    p += n;
    size -= static_cast<size_t>(n);
    offset += n;
  }
  return 0;
}

const char* CheckHeader(const FrameIndexHeader& h) {
  if (std::memcmp(h.magic, kFrameIndexMagic, sizeof h.magic) != 0 ||
      h.version != kFrameIndexVersion)
    return "no index header";
  if (h.codecType < 1 || h.codecType > 4) return "unknown codec";
  if (h.width == 0 || h.height == 0 || h.width > kMaxSide || h.height > kMaxSide)
    return "picture size";
  if (h.frameRate == 0 || h.frameRate > kMaxFrameRate) return "frame rate";
  return nullptr;
}

}  // namespace

const char* ReadFrameIndex(const std::string& path, int64_t maxEntries, FrameIndexFile* index,
                           int* error) {
  int ignored = 0;
  int& e = error ? *error : ignored;
  e = 0;
  index->fileBytes = -1;
  // Non-blocking: a FIFO put in the index's place must not hang the reader.
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (fd.Get() < 0) {
    e = errno;
    return "can't be opened";
  }
  struct stat st {};
  if (fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode)) return "not a file";
  index->fileBytes = st.st_size;
  constexpr auto kHeader = static_cast<int64_t>(sizeof(FrameIndexHeader));
  if (index->fileBytes < kHeader || (e = ReadAt(fd.Get(), &index->header, kHeader, 0)) != 0)
    return "no index header";
  if (const char* wrong = CheckHeader(index->header)) return wrong;
  index->fileEntries = (index->fileBytes - kHeader) / static_cast<int64_t>(sizeof(FrameIndexEntry));
  const int64_t wanted =
      maxEntries < 0 ? index->fileEntries : std::min(maxEntries, index->fileEntries);
  index->entries.resize(static_cast<size_t>(wanted));
  e = ReadAt(fd.Get(), index->entries.data(), index->entries.size() * sizeof(FrameIndexEntry),
             kHeader);
  return e == 0 ? nullptr : "entries can't be read";
}

}  // namespace ov
