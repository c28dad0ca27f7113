#include "support/Engine.h"

#include <cstdlib>

#include "core/Log.h"
#include "orvanta/orvanta.h"
#include "platform/Files.h"

namespace ovtest {

void EngineEnvironment::SetUp() {
  m_documents = std::make_unique<ScratchFolder>("ovdocs");
  setenv("XDG_DOCUMENTS_DIR", m_documents->Path().c_str(), 1);
  m_xvfb = std::make_unique<XvfbServer>(m_options.width, m_options.height);
  ASSERT_TRUE(m_xvfb->Running()) << "Xvfb did not start";
  if (m_options.pulse) {
    m_pulse = std::make_unique<PulseServer>();
    ASSERT_TRUE(m_pulse->Running()) << "pulseaudio did not start";
  }
  ASSERT_EQ(ovInitialize(), 0);
}

void EngineEnvironment::TearDown() {
  ovUninitialize();
  m_pulse.reset();
  m_xvfb.reset();
}

}  // namespace ovtest
