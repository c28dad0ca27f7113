// A host that crashes in a worker thread after ovInitialize: the child dies
// by its signal, and leaves a dump that a small reader of ours takes apart
// and a report in the log that names the faulting function.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "core/Log.h"
#include "orvanta/orvanta.h"
#include "platform/Text.h"
#include "support/Servers.h"
#include "support/TestEnv.h"

namespace crashtest {

// Exported, so that the report can name it; the sanitizers would stop at
// the load itself, and the fault must be real.
__attribute__((noinline, visibility("default"), no_sanitize("undefined", "address"))) int
DereferenceNull(volatile int* p) {
  return *p + 1;
}

}  // namespace crashtest

namespace {

// One X server and documents folder, made by the parent; the child that a
// death test starts inherits them.
class CrashEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    if (std::getenv("OV_CRASH_PARENT")) return;
    m_documents = std::make_unique<ovtest::ScratchFolder>("ovcrash");
    setenv("XDG_DOCUMENTS_DIR", m_documents->Path().c_str(), 1);
    m_xvfb = std::make_unique<ovtest::XvfbServer>(320, 240);
    setenv("OV_CRASH_PARENT", "1", 1);
  }
  void TearDown() override { m_xvfb.reset(); }

 private:
  std::unique_ptr<ovtest::ScratchFolder> m_documents;
  std::unique_ptr<ovtest::XvfbServer> m_xvfb;
};
auto* const g_env = ::testing::AddGlobalTestEnvironment(new CrashEnvironment);

template <typename T>
T At(const std::string& d, size_t offset) {
  T value{};
  if (offset + sizeof value <= d.size()) std::memcpy(&value, d.data() + offset, sizeof value);
  return value;
}

TEST(CrashTest, WorkerFaultLeavesDumpAndReport) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  char exe[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  const std::string dumpPath = std::string(exe) + ".mdmp";
  unlink(dumpPath.c_str());
  EXPECT_EXIT(
      {
        ovInitialize();
        std::thread([] { crashtest::DereferenceNull(nullptr); }).join();
      },
      ::testing::KilledBySignal(SIGSEGV), "report written to " + dumpPath);

  // The streams: the faulting thread first, with its stack and context;
  // the modules; the exception, at the address where the context stands.
  const std::string d = ovtest::ReadFile(dumpPath);
  ASSERT_EQ(At<uint32_t>(d, 0), 0x504D444Du);
  uint32_t threads = 0, modules = 0, exception = 0;
  for (uint32_t i = 0, n = At<uint32_t>(d, 8), dir = At<uint32_t>(d, 12); i < n; ++i) {
    const uint32_t type = At<uint32_t>(d, dir + 12 * i);
    uint32_t* stream = type == 3   ? &threads
                       : type == 4 ? &modules
                       : type == 6 ? &exception
                                   : nullptr;
    if (stream) *stream = At<uint32_t>(d, dir + 12 * i + 8);
  }
  ASSERT_TRUE(threads && modules && exception);
  EXPECT_EQ(At<uint32_t>(d, exception + 8), 0xC0000005u);
  const uint64_t address = At<uint64_t>(d, exception + 24);
  EXPECT_EQ(At<uint32_t>(d, exception), At<uint32_t>(d, threads + 4)) << "faulting thread first";
  EXPECT_GE(At<uint32_t>(d, threads), 2u);
  EXPECT_GT(At<uint32_t>(d, threads + 4 + 32), 0u) << "its stack";
  EXPECT_EQ(At<uint64_t>(d, At<uint32_t>(d, exception + 164) + 0xF8), address);
  bool inProgram = false;
  for (uint32_t i = 0, n = At<uint32_t>(d, modules); i < n; ++i) {
    const uint32_t m = modules + 4 + 108 * i;
    const uint64_t base = At<uint64_t>(d, m);
    std::string name;
    const uint32_t nameAt = At<uint32_t>(d, m + 20);
    for (uint32_t c = 0; c < At<uint32_t>(d, nameAt) / 2; ++c)
      name += static_cast<char>(At<uint16_t>(d, nameAt + 4 + 2 * c));
    if (address >= base && address < base + At<uint32_t>(d, m + 8)) inProgram = name == exe;
  }
  EXPECT_TRUE(inProgram) << "the fault lies in the program's module";

  const std::string log = ovtest::ReadFile(ov::ToUtf8(ov::LogFolder()) + "/Orvanta0.log");
  EXPECT_NE(log.find("Application fault!\r\nPlease send this file to us:\r\n" + dumpPath), log.npos)
      << log;
  EXPECT_NE(log.find("Exception code:0xc0000005\r\nException:\r\nThe thread attempts to read"),
            log.npos);
  const size_t stack = log.find("Call stack:");
  EXPECT_NE(log.find("-------------0-------------\r\nFunction : crashtest::DereferenceNull(int "
                     "volatile*)\r\n",
                     stack),
            log.npos)
      << log.substr(stack);
  unlink(dumpPath.c_str());
}

}  // namespace
