// The encoder tests need no servers, only the engine's log, which they read
// for the probe's fault lines and the encoders' complaints.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "core/Log.h"
#include "support/TestEnv.h"

namespace {

class LogEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    m_documents = std::make_unique<ovtest::ScratchFolder>("ovencdocs");
    setenv("XDG_DOCUMENTS_DIR", m_documents->Path().c_str(), 1);
    ASSERT_GE(ov::OpenLogFile(), 0);
  }

 private:
  std::unique_ptr<ovtest::ScratchFolder> m_documents;
};

auto* const g_logEnvironment = ::testing::AddGlobalTestEnvironment(new LogEnvironment);

}  // namespace
