// The silent player that keeps an idle output from being suspended.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "platform/AudioEndpoint.h"
#include "platform/SilentPlayer.h"
#include "support/TestEnv.h"

namespace {

std::string Pactl(const std::string& args) { return ovtest::RunCapture("pactl " + args + " 2>&1"); }

// The state column of `pactl list sinks short` for one sink.
std::string SinkState(const std::string& sink) {
  for (const std::string& line : ovtest::Lines(Pactl("list sinks short"))) {
    if (line.find("\t" + sink + "\t") == std::string::npos) continue;
    return line.substr(line.rfind('\t') + 1);
  }
  return "";
}

bool WaitForState(const std::string& sink, const std::string& state, int timeoutMs) {
  for (int waited = 0; waited <= timeoutMs; waited += 100) {
    if (SinkState(sink) == state) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return false;
}

TEST(AudioEndpointTest, SilentPlayerKeepsAnIdleOutputRunning) {
  const std::string suspend = Pactl("load-module module-suspend-on-idle timeout=1");
  const std::string sink = Pactl("load-module module-null-sink sink_name=quietsink rate=48000");
  ASSERT_GT(std::atoi(suspend.c_str()), 0) << suspend;
  ASSERT_GT(std::atoi(sink.c_str()), 0) << sink;
  EXPECT_TRUE(WaitForState("quietsink", "SUSPENDED", 5000)) << SinkState("quietsink");

  std::vector<ov::AudioEndpoint> sinks;
  ASSERT_EQ(ov::EnumAudioEndpoints(ov::AudioFlow::Render, &sinks), S_OK);
  const auto quiet =
      std::find_if(sinks.begin(), sinks.end(), [](const auto& e) { return e.id == L"quietsink"; });
  ASSERT_NE(quiet, sinks.end());
  std::unique_ptr<ov::SilentPlayer> player;
  ASSERT_EQ(ov::SilentPlayer::Open(*quiet, &player), S_OK);
  ASSERT_EQ(player->Start(), S_OK);
  EXPECT_TRUE(WaitForState("quietsink", "RUNNING", 3000)) << SinkState("quietsink");
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  EXPECT_EQ(SinkState("quietsink"), "RUNNING") << "still running well past the idle time-out";

  ASSERT_EQ(player->Stop(), S_OK);
  EXPECT_TRUE(WaitForState("quietsink", "SUSPENDED", 5000)) << SinkState("quietsink");
  player.reset();
  Pactl("unload-module " + std::to_string(std::atoi(sink.c_str())));
  Pactl("unload-module " + std::to_string(std::atoi(suspend.c_str())));
}

}  // namespace
