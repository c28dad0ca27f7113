// The engine brought up once per test program on a private X server, with
// its log in a scratch documents folder.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/Servers.h"
#include "support/TestEnv.h"

namespace ovtest {

class EngineEnvironment : public ::testing::Environment {
 public:
  struct Options {
    int width = 1280;
    int height = 720;
    bool pulse = false;
  };
  explicit EngineEnvironment(Options options) : m_options(options) {}
  void SetUp() override;
  void TearDown() override;

 private:
  Options m_options;
  std::unique_ptr<ScratchFolder> m_documents;
  std::unique_ptr<XvfbServer> m_xvfb;
  std::unique_ptr<PulseServer> m_pulse;
};

// The current run's log file and what it holds.
std::string LogPath();
std::string LogText();
// Byte offset of the log's end, to read only what a test adds.
size_t LogMark();
std::string LogSince(size_t mark);

}  // namespace ovtest
