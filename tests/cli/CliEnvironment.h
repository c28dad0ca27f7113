// One X server for the whole program, and scratch folders that the child
// commands use for the engine's log and their temp files.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "CliProcess.h"
#include "support/Servers.h"
#include "support/TestEnv.h"

namespace clitest {

class CliEnvironment : public ::testing::Environment {
 public:
  void SetUp() override;
  void TearDown() override;

 private:
  std::unique_ptr<ovtest::ScratchFolder> m_documents;
  std::unique_ptr<ovtest::XvfbServer> m_xvfb;
};

// The temp folder every child gets as TMPDIR; tests look into it.
const std::string& ChildTemp();
// How many entries ChildTemp holds: a recording that leaves one behind shows.
size_t TempEntries();
// An environment for commands without the program's X server.
Environment WithoutDisplay();

}  // namespace clitest
