// The engine brought up once per test program on a private X server, with
// its log in a scratch documents folder.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/LogMark.h"
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

}  // namespace ovtest
