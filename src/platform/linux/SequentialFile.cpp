#include "platform/SequentialFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Files.h"

namespace ov {

bool SequentialFile::Create(const wchar_t* path) {
  m_fd.Reset(open(ToUtf8(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!m_fd.Valid()) return false;
  posix_fadvise(m_fd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  return true;
}

bool SequentialFile::Open(const wchar_t* path) {
  // Opened without waiting, so that a FIFO or a device in place of a temp
  // file is refused instead of blocking the caller.
  m_fd.Reset(open(ToUtf8(path).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!m_fd.Valid()) return false;
  struct stat st;
  if (fstat(m_fd.Get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    m_fd.Reset();
    errno = EINVAL;
    return false;
  }
  fcntl(m_fd.Get(), F_SETFL, fcntl(m_fd.Get(), F_GETFL) & ~O_NONBLOCK);
  posix_fadvise(m_fd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  return true;
}

bool SequentialFile::OpenForUpdate(const wchar_t* path) {
  m_fd.Reset(open(ToUtf8(path).c_str(), O_RDWR | O_CLOEXEC));
  return m_fd.Valid();
}

bool SequentialFile::Write(const void* data, uint32_t count) {
  const int error = WriteAll(m_fd.Get(), data, count);
  if (error != 0) errno = error;
  return error == 0;
}

bool SequentialFile::WriteAt(const void* data, uint32_t count, int64_t offset) {
  const char* p = static_cast<const char*>(data);
  while (count > 0) {
    ssize_t n = pwrite(m_fd.Get(), p, count, offset);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = ENOSPC;
      return false;
    }
    p += n;
    offset += n;
    count -= static_cast<uint32_t>(n);
  }
  return true;
}

int64_t SequentialFile::Read(void* data, uint32_t count) {
  ssize_t n;
  do {
    n = read(m_fd.Get(), data, count);
  } while (n < 0 && errno == EINTR);
  return n;
}

bool SequentialFile::Seek(int64_t offset) { return lseek(m_fd.Get(), offset, SEEK_SET) >= 0; }

bool SequentialFile::SeekToEnd() { return lseek(m_fd.Get(), 0, SEEK_END) >= 0; }

bool SequentialFile::Truncate(int64_t size) {
  return ftruncate(m_fd.Get(), size) == 0 && lseek(m_fd.Get(), size, SEEK_SET) >= 0;
}

int64_t SequentialFile::Size() const {
  struct stat st;
  if (fstat(m_fd.Get(), &st) != 0) return -1;
  return st.st_size;
}

}  // namespace ov
