// A file read or written front to back in large blocks, as the audio temp
// files are. Failures leave the system's error number for LastError().
#pragma once

#include <cstdint>

#include "platform/Files.h"

namespace ov {

class SequentialFile {
 public:
  SequentialFile() = default;
  SequentialFile(SequentialFile&&) noexcept = default;
  SequentialFile& operator=(SequentialFile&&) noexcept = default;

  // Creates the file, emptying one that exists, for writing only.
  bool Create(const wchar_t* path);
  // Opens an existing file for reading; others may go on writing or remove it.
  bool Open(const wchar_t* path);
  // Opens an existing file for reading and writing in place.
  bool OpenForUpdate(const wchar_t* path);
  void Close() { m_fd.Reset(); }
  bool IsOpen() const { return m_fd.Valid(); }

  // True only when all bytes went out.
  bool Write(const void* data, uint32_t count);
  bool WriteAt(const void* data, uint32_t count, int64_t offset);
  // Bytes read, 0 at the end, -1 on failure.
  int64_t Read(void* data, uint32_t count);
  bool Seek(int64_t offset);
  bool SeekToEnd();
  // Cuts the file to size bytes and moves to its end.
  bool Truncate(int64_t size);
  // -1 on failure.
  int64_t Size() const;

 private:
  UniqueFd m_fd;
};

}  // namespace ov
