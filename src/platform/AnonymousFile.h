// A temp file without a name: it vanishes when its last descriptor closes,
// in this process or in a child that inherited it.
#pragma once

#include <cstddef>
#include <string>

#include "platform/Files.h"

namespace ov {

class AnonymousFile {
 public:
  // Opened for reading and writing in folder; closed at exec unless a child
  // is started with it to inherit. 0, or the system's error number.
  int Create(const std::wstring& folder);
  // 0 when all bytes went out, else the error number (EIO for a short write).
  int Write(const void* data, size_t size);
  // Back to the start, for whoever reads it next. 0 or the error number.
  int Rewind();

  bool Valid() const { return m_fd.Valid(); }
  int Fd() const { return m_fd.Get(); }

 private:
  UniqueFd m_fd;
};

}  // namespace ov
