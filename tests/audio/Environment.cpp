// The engine on a private X server and a private PulseAudio daemon, once for
// the whole program.
#include "support/Engine.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, true}));

}  // namespace
