// Where the engine's log stood when the mark was made; Text() is what was
// logged since.
#pragma once

#include <cstddef>
#include <string>

namespace ovtest {

class LogMark {
 public:
  LogMark();
  std::string Text() const;

 private:
  size_t m_offset;
};

}  // namespace ovtest
