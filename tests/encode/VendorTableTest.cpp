// Start-up probing of the encoder libraries and encoder selection by the
// vendor table, against a stand-in library that does what each test asks
// (including faulting) and against the real libraries; and the throw-away
// copy of the process that the probes run in: its bytes come back when the
// call returns, and a fault, an early exit or a hang leave the caller's alone;
// and the OpenGL probe's answer, kept between starts until a driver setting
// changes.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/Log.h"
#include "encode/VendorTable.h"
#include "orvanta/encoders.h"
#include "platform/GraphicsProbe.h"
#include "platform/IsolatedCall.h"
#include "platform/Library.h"
#include "support/Engine.h"
#include "support/TestEnv.h"

namespace fs = std::filesystem;

namespace {

const char* const kScriptPrefixes[] = {"Intel", "AMD2", "AMD", "nvenc8", "nvenc5"};

std::vector<int32_t> Table() {
  return std::vector<int32_t>(ov::VendorTable(), ov::VendorTable() + ov::kVendorTableSize);
}

class VendorTableTest : public ::testing::Test {
 protected:
  // The probe's fault lines are read from the engine's log.
  static void SetUpTestSuite() {
    s_documents = new ovtest::ScratchFolder("ovencdocs");
    setenv("XDG_DOCUMENTS_DIR", s_documents->Path().c_str(), 1);
    ASSERT_GE(ov::OpenLogFile(), 0);
  }
  static void TearDownTestSuite() { delete s_documents; }
  void TearDown() override {
    for (const char* prefix : kScriptPrefixes) unsetenv(("OVFAKE_" + std::string(prefix)).c_str());
  }

  // A folder holding the stand-in library under the given names.
  std::string LibraryFolder(std::initializer_list<const char*> names) {
    auto folder = std::make_unique<ovtest::ScratchFolder>("ovfakes");
    fs::path fake = fs::path(ov::ModuleFolder()) / "test-fakes" / "libFakeCodec.so";
    for (const char* name : names) fs::create_symlink(fake, fs::path(folder->Path()) / name);
    m_folders.push_back(std::move(folder));
    return m_folders.back()->Path();
  }
  std::string AllLibraries() {
    return LibraryFolder({"libIntelCodec.so", "libAMDCodec2.so", "libAMDCodec.so",
                          "libNvidiaCodec8.so", "libNvidiaCodec5.so", "libGifCodec.so"});
  }
  static void Script(const char* prefix, const char* words) {
    setenv(("OVFAKE_" + std::string(prefix)).c_str(), words, 1);
  }
  // Probes the folder and returns what the probe logged.
  static std::string Probe(const std::string& folder) {
    ovtest::LogMark mark;
    ov::ProbeVideoEncodersIn(folder);
    return mark.Text();
  }

  static ovtest::ScratchFolder* s_documents;
  std::vector<std::unique_ptr<ovtest::ScratchFolder>> m_folders;
};

ovtest::ScratchFolder* VendorTableTest::s_documents = nullptr;

// The newer library decides about the older (AMD after a non-zero AMD2, no
// nvenc5 after a zero nvenc8), later steps overwrite, and an older library
// alone is probed as if the newer had failed.
TEST_F(VendorTableTest, StepsRunInOrderAndMissingLibrariesLeaveTheirEntriesEmpty) {
  Script("Intel", "1=5 2=5 3=5");
  Script("AMD2", "ret=1");
  Script("AMD", "2=4");
  Script("nvenc8", "1=1 ret=0");
  Script("nvenc5", "3=2");
  std::string log = Probe(AllLibraries());
  EXPECT_EQ(Table(), (std::vector<int32_t>{0, 1, 4, 5, 0, 0}));
  EXPECT_EQ(log.find("EXCEPTION"), std::string::npos) << log;

  Probe(LibraryFolder({"libAMDCodec.so"}));
  EXPECT_EQ(Table(), (std::vector<int32_t>{0, 0, 4, 0, 0, 0}));
  Probe(LibraryFolder({}));
  EXPECT_EQ(Table(), (std::vector<int32_t>(ov::kVendorTableSize, 0)));
  for (int codec = 0; codec <= 5; ++codec) {
    EXPECT_FALSE(IsSupportHwVideoCodec(codec)) << codec;
    EXPECT_EQ(ov::CreateLibraryVideoCodec(codec, nullptr, nullptr), nullptr) << codec;
  }
}

// A real access fault inside a library's probe runs in a throw-away copy of
// the process: the host lives, the step's entries stay as they were before
// it, and the next steps run.
TEST_F(VendorTableTest, FaultInAStepKeepsTheTableOfBeforeAndTheNextStepsRun) {
  std::string folder = AllLibraries();
  struct Case {
    const char* intel;
    const char* amd2;
    const char* nvenc5;
    const char* line;
    std::vector<int32_t> table;
  } cases[] = {
      {"1=5 2=5 crash", "ret=1", "3=2", "EXCEPTION: Intel encoder", {0, 0, 0, 2, 0, 0}},
      {"1=5 2=5", "1=3 2=3 crash", "3=2", "EXCEPTION: AMD encoder", {0, 5, 5, 2, 0, 0}},
      {"1=5 2=5", "ret=1", "3=2 1=2 crash", "EXCEPTION: nv encoder", {0, 5, 5, 0, 0, 0}},
  };
  Script("nvenc8", "ret=1");
  for (const Case& c : cases) {
    Script("Intel", c.intel);
    Script("AMD2", c.amd2);
    Script("nvenc5", c.nvenc5);
    std::string log = Probe(folder);
    EXPECT_EQ(Table(), c.table) << c.line;
    EXPECT_NE(log.find(std::string("[ERR]  ") + c.line + "\n"), std::string::npos) << log;
  }
}

// Initialize of the stand-in answers 16 * slot + codec type.
TEST_F(VendorTableTest, EncoderComesFromTheCreatorThatTheTableNames) {
  Probe(AllLibraries());
  int32_t* table = ov::VendorTable();
  for (int32_t slot : {1, 3, 5, 7, 0}) {
    table[2] = slot;
    std::unique_ptr<CVideoCodec> codec(ov::CreateLibraryVideoCodec(2, nullptr, nullptr));
    EXPECT_EQ(codec ? codec->Initialize(2, 64, 64, 30, 3, L"x") : -1,
              slot == 0 || slot == 7 ? -1 : 16 * slot + 2)
        << "slot " << slot;
  }
  table[4] = 0;
  std::unique_ptr<CVideoCodec> gif(ov::CreateLibraryVideoCodec(4, nullptr, nullptr));
  ASSERT_NE(gif, nullptr) << "GIF never looks at the table";
  EXPECT_EQ(gif->Initialize(4, 64, 64, 30, 3, L"x"), 16 * 6 + 4);
}

TEST_F(VendorTableTest, RealLibrariesServeEveryLibraryCodecType) {
  std::string log = Probe(ov::HelperFolder());
  EXPECT_EQ(log.find("EXCEPTION"), std::string::npos) << log;
  for (int codec = 1; codec <= 3; ++codec) {
    EXPECT_TRUE(IsSupportHwVideoCodec(codec)) << codec;
    EXPECT_NE(std::unique_ptr<CVideoCodec>(ov::CreateLibraryVideoCodec(codec, nullptr, nullptr)),
              nullptr);
  }
}

struct Bytes {
  int32_t values[6];
};

void FillThenFault(void* data, void*) {
  static_cast<Bytes*>(data)->values[0] = 99;
  *static_cast<volatile int*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) =
      1;
}
void FillThenExit(void* data, void*) {
  static_cast<Bytes*>(data)->values[0] = 99;
  _exit(0);
}
void FillThenHang(void* data, void*) {
  static_cast<Bytes*>(data)->values[0] = 99;
  for (;;) pause();
}

void UseContext(void* data, void* context) {
  static_cast<Bytes*>(data)->values[2] = *static_cast<int*>(context);
}

TEST(IsolatedCallTest, ReturnedCallsHandBackTheirBytesAndFaultsExitsAndHangsDoNot) {
  Bytes bytes{{1, 2, 3, 4, 5, 6}};
  int context = 77;
  EXPECT_EQ(ov::RunIsolated(&bytes, sizeof bytes, UseContext, &context, 10000).outcome,
            ov::IsolatedOutcome::Completed);
  EXPECT_EQ(bytes.values[2], 77);
  EXPECT_EQ(bytes.values[1], 2) << "bytes the call left alone come back as they were";

  const Bytes before = bytes;
  const struct {
    ov::IsolatedFn call;
    ov::IsolatedOutcome outcome;
    int signal;
  } cases[] = {
      {FillThenFault, ov::IsolatedOutcome::Crashed, SIGSEGV},
      {FillThenExit, ov::IsolatedOutcome::Failed, 0},
      {FillThenHang, ov::IsolatedOutcome::Crashed, SIGKILL},
  };
  for (const auto& c : cases) {
    ov::IsolatedResult result = ov::RunIsolated(&bytes, sizeof bytes, c.call, nullptr, 300);
    EXPECT_EQ(result.outcome, c.outcome);
    EXPECT_EQ(result.signal, c.signal);
    EXPECT_EQ(memcmp(&bytes, &before, sizeof bytes), 0);
  }
}

// Sets (or with null removes) a variable for a scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : m_name(name) {
    if (const char* old = std::getenv(name)) m_old = old;
    Set(value);
  }
  ~ScopedEnv() { Set(m_old ? m_old->c_str() : nullptr); }

 private:
  void Set(const char* value) {
    if (value)
      setenv(m_name.c_str(), value, 1);
    else
      unsetenv(m_name.c_str());
  }
  std::string m_name;
  std::optional<std::string> m_old;
};

// Whatever this machine's driver answers (a machine without one answers an
// error), the next start takes the kept answer, and a changed setting asks
// the driver again.
TEST(OpenGlProbeTest, AnswerIsKeptUntilADriverSettingChanges) {
  ovtest::ScratchFolder cache("ovglcache");
  ScopedEnv folder("XDG_CACHE_HOME", cache.Path().c_str());
  ScopedEnv setting("LIBGL_DEBUG", nullptr);
  ov::GlInfo first, again;
  std::string error, errorAgain;
  bool cached = true;
  const bool ok = ov::ProbeOpenGl(&first, &error, &cached);
  EXPECT_FALSE(cached);
  EXPECT_EQ(ov::ProbeOpenGl(&again, &errorAgain, &cached), ok);
  EXPECT_TRUE(cached);
  EXPECT_EQ(again.version, first.version);
  EXPECT_EQ(again.renderer, first.renderer);
  EXPECT_EQ(errorAgain, error);

  // The kept file is what the next start believes.
  const std::string file = cache.Path() + "/orvanta/opengl-probe";
  std::string text = ovtest::ReadFile(file);
  text = text.substr(0, text.find("--\n") + 3) + "1 3 3\n3.3 Kept\nKept renderer\n\n";
  ovtest::WriteFile(file, text);
  ASSERT_TRUE(ov::ProbeOpenGl(&again, &errorAgain, &cached));
  EXPECT_TRUE(cached);
  EXPECT_EQ(again.major, 3);
  EXPECT_EQ(again.renderer, "Kept renderer");

  ScopedEnv changed("LIBGL_DEBUG", "quiet");
  EXPECT_EQ(ov::ProbeOpenGl(&again, &errorAgain, &cached), ok);
  EXPECT_FALSE(cached);
  EXPECT_EQ(again.renderer, first.renderer);
}

}  // namespace
