// The log file: limits, rotation, and the leak report.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "core/Log.h"
#include "core/ObjectRegistry.h"
#include "orvanta/orvanta.h"
#include "support/TestEnv.h"

namespace fs = std::filesystem;

namespace {

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setenv("XDG_DOCUMENTS_DIR", m_docs.Path().c_str(), 1);
    ASSERT_GE(ov::OpenLogFile(), 0);
  }
  fs::path Folder() const { return fs::path(m_docs.Path()) / "Log Files"; }
  std::string Log(int n = 0) const {
    return ovtest::ReadFile((Folder() / ("Orvanta" + std::to_string(n) + ".log")).string());
  }
  ovtest::ScratchFolder m_docs{"ovlog"};
};

// A 20-character time and tag before each message.
TEST_F(LogTest, OversizedMessagesAreCutToOneThousandTwentyFourCharacters) {
  std::string big(20000, 'a');
  WriteLog(1, "%s", big.c_str());
  std::string fits(16364, 'b');
  LogFile("%s", fits.c_str());
  std::string text = Log();
  ASSERT_EQ(text.size(), 20u + 1024u + 16364u);
  EXPECT_EQ(text.substr(20, 1024), std::string(1024, 'a'));
  EXPECT_EQ(text.substr(20 + 1024), fits);
}

TEST_F(LogTest, ElevenRunsKeepTheTenNewest) {
  for (int run = 1; run <= 11; ++run) {
    ASSERT_GE(ov::OpenLogFile(), 0);
    LogFile("run %d\n", run);
  }
  for (int n = 0; n <= 9; ++n) EXPECT_EQ(Log(n), "run " + std::to_string(11 - n) + "\n") << n;
  EXPECT_FALSE(fs::exists(Folder() / "Orvanta10.log"));
  int files = 0;
  for (const auto& e : fs::directory_iterator(Folder())) files += e.is_regular_file();
  EXPECT_EQ(files, 10);
}

class Leaky : public CBaseClassObject {
 public:
  explicit Leaky(const char* name) : CBaseClassObject(name) {}
};

TEST_F(LogTest, UninitializeListsLiveObjectsInCreationOrder) {
  ovUninitialize();
  EXPECT_EQ(Log().find("Object not free"), std::string::npos);

  auto* first = new Leaky("CCameraObject");
  auto* second = new Leaky("CAudioPlayerObject");
  auto* gone = new Leaky("CStaticBox");
  gone->Destroy();
  ASSERT_EQ(ov::LiveObjectCount(), 2);
  ovUninitialize();
  std::string log = Log();
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<void*>(first));
  const size_t count = log.find("2 Object not free!\n");
  const size_t camera = log.find(std::string("CCameraObject(") + address + ")\n");
  const size_t player = log.find("CAudioPlayerObject(0x");
  EXPECT_TRUE(count < camera && camera < player && player != std::string::npos) << log;
  EXPECT_EQ(log.find("CStaticBox("), std::string::npos);
  first->Destroy();
  second->Destroy();
  EXPECT_EQ(ov::LiveObjectCount(), 0);
}

}  // namespace
