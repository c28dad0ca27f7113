#include "support/LogMark.h"

#include "core/Log.h"
#include "platform/Files.h"
#include "support/TestEnv.h"

namespace ovtest {

namespace {
std::string LogText() { return ReadFile(ov::ToUtf8(ov::LogFolder()) + "/Orvanta0.log"); }
}  // namespace

LogMark::LogMark() : m_offset(LogText().size()) {}

std::string LogMark::Text() const {
  const std::string text = LogText();
  return m_offset < text.size() ? text.substr(m_offset) : std::string();
}

}  // namespace ovtest
