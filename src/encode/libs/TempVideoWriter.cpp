#include "encode/libs/TempVideoWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace ov::enc {

namespace {

int WriteAll(int fd, const void* data, size_t size) {
  const uint8_t* p = static_cast<const uint8_t*>(data);
  while (size > 0) {
    ssize_t n = write(fd, p, size);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    if (n == 0) return EIO;
    p += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

int OpenForWriting(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

int CloseFd(int* fd) {
  if (*fd < 0) return 0;
  int error = close(*fd) == 0 ? 0 : errno;
  *fd = -1;
  return error;
}

}  // namespace

TempVideoWriter::~TempVideoWriter() { Close(); }

int TempVideoWriter::Create(const std::string& path, const FrameIndexHeader& header) {
  Close();
  m_offset = 0;
  m_stream = OpenForWriting(path);
  if (m_stream < 0) return errno;
  m_index = OpenForWriting(path + ".idx");
  if (m_index < 0) {
    int error = errno;
    Close();
    return error;
  }
  return WriteAll(m_index, &header, sizeof header);
}

int TempVideoWriter::Write(const uint8_t* data, size_t size, int64_t ticks, bool key) {
  FrameIndexEntry entry{ticks, m_offset, static_cast<uint32_t>(size),
                        key ? kPictureKey : kPicturePredicted};
  if (int error = WriteAll(m_stream, data, size)) return error;
  m_offset += size;
  return WriteAll(m_index, &entry, sizeof entry);
}

int TempVideoWriter::Close() {
  int streamError = CloseFd(&m_stream);
  int indexError = CloseFd(&m_index);
  return streamError ? streamError : indexError;
}

std::string ToUtf8Path(const wchar_t* path) {
  std::string out;
  for (; *path; ++path) {
    uint32_t c = static_cast<uint32_t>(*path);
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

}  // namespace ov::enc
