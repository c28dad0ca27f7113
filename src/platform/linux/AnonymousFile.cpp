#include "platform/AnonymousFile.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "platform/Files.h"

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

int AnonymousFile::Write(const void* data, size_t size) { return WriteAll(m_fd.Get(), data, size); }

int AnonymousFile::Rewind() { return lseek(m_fd.Get(), 0, SEEK_SET) == 0 ? 0 : errno; }

}  // namespace ov
