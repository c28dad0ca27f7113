#include "platform/AnonymousFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace ov {

int AnonymousFile::Create(const std::wstring& folder) {
  const std::string path = ToUtf8(folder);
  int fd = open(path.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
    // File systems without unnamed files: a named one, unlinked at once.
    std::string name = path + "/orvanta-XXXXXX";
    fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0) unlink(name.c_str());
  }
  if (fd < 0) return errno;
  m_fd.Reset(fd);
  return 0;
}

int AnonymousFile::Write(const void* data, size_t size) {
  const auto* p = static_cast<const uint8_t*>(data);
  while (size > 0) {
    const ssize_t n = write(m_fd.Get(), p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return EIO;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

int AnonymousFile::Rewind() { return lseek(m_fd.Get(), 0, SEEK_SET) == 0 ? 0 : errno; }

}  // namespace ov
