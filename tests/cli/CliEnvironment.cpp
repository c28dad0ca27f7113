#include "CliEnvironment.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>

namespace clitest {

namespace {

auto* const g_environment = ::testing::AddGlobalTestEnvironment(new CliEnvironment);

std::unique_ptr<ovtest::ScratchFolder> g_temp;

}  // namespace

void CliEnvironment::SetUp() {
  m_documents = std::make_unique<ovtest::ScratchFolder>("ovclidocs");
  g_temp = std::make_unique<ovtest::ScratchFolder>("ovclitmp");
  // Children inherit these: their logs and temp files stay in scratch folders.
  setenv("XDG_DOCUMENTS_DIR", m_documents->Path().c_str(), 1);
  setenv("TMPDIR", g_temp->Path().c_str(), 1);
  unsetenv("PULSE_SERVER");
  m_xvfb = std::make_unique<ovtest::XvfbServer>(1280, 720);
  ASSERT_TRUE(m_xvfb->Running()) << "Xvfb did not start";
  ASSERT_EQ(access(OrvantaPath().c_str(), X_OK), 0) << OrvantaPath() << " is not built";
}

void CliEnvironment::TearDown() {
  m_xvfb.reset();
  g_temp.reset();
  m_documents.reset();
}

const std::string& ChildTemp() { return g_temp->Path(); }

size_t TempEntries() {
  size_t n = 0;
  for (auto it = std::filesystem::directory_iterator(ChildTemp()); it != decltype(it)(); ++it) ++n;
  return n;
}

Environment WithoutDisplay() { return {{}, {"DISPLAY", "PULSE_SERVER"}}; }

}  // namespace clitest
