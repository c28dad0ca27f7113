#include "encode/libs/TempVideoWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Files.h"

namespace ov::enc {

namespace {

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

int TempVideoWriter::Create(const std::string& path, uint32_t codecType, int32_t width,
                            int32_t height, int32_t frameRate) {
  FrameIndexHeader header{};
  std::memcpy(header.magic, kFrameIndexMagic, sizeof header.magic);
  header.version = kFrameIndexVersion;
  header.codecType = codecType;
  header.width = static_cast<uint32_t>(width);
  header.height = static_cast<uint32_t>(height);
  header.frameRate = static_cast<uint32_t>(frameRate);
  header.timeBase = static_cast<uint32_t>(kIndexClock);
  Close();
  m_offset = 0;
  m_entries = 0;
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
  int error = WriteAll(m_stream, data, size);
  if (!error) error = WriteAll(m_index, &entry, sizeof entry);
  if (error) {
    CutToWholeFrames();
    return error;
  }
  m_offset += size;
  ++m_entries;
  return 0;
}

// A frame that did not fit leaves no trace: both files end with the frame
// before it, as if the recording had stopped there.
void TempVideoWriter::CutToWholeFrames() {
  const off_t indexSize =
      static_cast<off_t>(sizeof(FrameIndexHeader) + m_entries * sizeof(FrameIndexEntry));
  if (ftruncate(m_stream, static_cast<off_t>(m_offset)) == 0)
    lseek(m_stream, static_cast<off_t>(m_offset), SEEK_SET);
  if (ftruncate(m_index, indexSize) == 0) lseek(m_index, indexSize, SEEK_SET);
}

int TempVideoWriter::Close() {
  int streamError = CloseFd(&m_stream);
  int indexError = CloseFd(&m_index);
  return streamError ? streamError : indexError;
}

}  // namespace ov::enc
