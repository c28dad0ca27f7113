// The output tests need the engine's log (the mux program writes into it
// too) and the encoder libraries beside the test program; no servers.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "core/Log.h"
#include "encode/VendorTable.h"
#include "platform/ChildProcess.h"
#include "platform/LogFile.h"
#include "support/TestEnv.h"

namespace {

class OutputEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    m_documents = std::make_unique<ovtest::ScratchFolder>("ovmuxdocs");
    setenv("XDG_DOCUMENTS_DIR", m_documents->Path().c_str(), 1);
    const int fd = ov::OpenLogFile();
    ASSERT_GE(fd, 0);
    ov::SetChildStdHandle(fd);
    ov::ProbeVideoEncoders();
  }
  void TearDown() override { ov::EndChildProcesses(); }

 private:
  std::unique_ptr<ovtest::ScratchFolder> m_documents;
};

auto* const g_environment = ::testing::AddGlobalTestEnvironment(new OutputEnvironment);

}  // namespace

// libx265 3.5 keeps part of what x265_encoder_open allocates after its
// encoder is closed; that is its own leak, not ours.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libx265.so\n";
}
