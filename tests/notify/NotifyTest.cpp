// Device changes made on the test's own sound and X servers reach a host
// once each, after they settle; events that change nothing the host lists
// reach it not at all.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include "orvanta/displays.h"
#include "orvanta/notify.h"
#include "support/Engine.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{1280, 720, true}));

struct CountingHost : DeviceNotifyCallback {
  void OnDisplayChange() override {
    ++display;
    displays = GetDisplayCount();
  }
  void OnAudioDeviceChange() override { ++audio; }
  void OnCameraChange() override { ++camera; }
  std::atomic<int> display{0}, audio{0}, camera{0}, displays{0};
};

// Waits for a call without a time of its own to keep; then gives a second
// call, if one were coming, the same room to arrive.
void Await(const std::atomic<int>& count, int wanted) {
  for (int i = 0; i < 1000 && count < wanted; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

// Waits until the watcher has taken up a sound server event logged since
// mark, and gives a call to the host, if one were coming, room to arrive.
void AwaitAudioNotice(const ovtest::LogMark& mark) {
  for (int i = 0; i < 1000 && mark.Text().find("CM_AUDIO_NOTIFY") == std::string::npos; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

std::string Shell(const std::string& command) {
  int code = -1;
  std::string out = ovtest::RunCapture(command + " 2>&1", &code);
  while (!out.empty() && out.back() == '\n') out.pop_back();
  EXPECT_EQ(code, 0) << command << ": " << out;
  return out;
}

TEST(DeviceNotify, SinksComingAndGoingReachTheHostOnceEachAndVolumeNever) {
  using Kind = ovtest::PulseServer::Kind;
  for (const Kind kind : {Kind::PulseAudio, Kind::PipeWire}) {
    SCOPED_TRACE(kind == Kind::PipeWire ? "PipeWire" : "PulseAudio");
    ovtest::PulseServer server(kind);
    if (!server.Running() && kind == Kind::PipeWire) {
      std::printf("no PipeWire here: %s\n", server.Missing().c_str());
      break;
    }
    CountingHost host;
    void* watcher = RegisterDeviceNotifies(&host);
    ASSERT_NE(watcher, nullptr);
    // The engine's device table was made for the program's first server:
    // the first event brings it up to this one's, whether the host hears of
    // it or not.
    const ovtest::LogMark first;
    Shell("pactl set-sink-volume nullsink 50%");
    AwaitAudioNotice(first);
    host.audio = 0;
    const ovtest::LogMark mark;
    Shell("pactl set-sink-volume nullsink 40%");
    Shell("pactl set-sink-volume nullsink 60%");
    AwaitAudioNotice(mark);
    EXPECT_NE(mark.Text().find("CM_AUDIO_NOTIFY"), std::string::npos) << "the events were seen";
    EXPECT_EQ(host.audio, 0) << "volume alone changes no device";

    const std::string module = Shell("pactl load-module module-null-sink sink_name=headset");
    Await(host.audio, 1);
    EXPECT_EQ(host.audio, 1) << "a sink and its monitor arriving is one change";
    Shell("pactl unload-module " + module);
    Await(host.audio, 2);
    EXPECT_EQ(host.audio, 2);
    EXPECT_EQ(host.display + host.camera, 0);
    UnregisterDeviceNotifies(watcher);
  }
}

TEST(DeviceNotify, MonitorsComingAndGoingReachTheHostOnceEach) {
  CountingHost host;
  void* watcher = RegisterDeviceNotifies(&host);
  ASSERT_NE(watcher, nullptr);
  Shell("xrandr --setmonitor left 640/170x720/190+0+0 none");
  Await(host.display, 1);
  EXPECT_EQ(host.display, 1);
  EXPECT_EQ(host.displays, 2) << "the catalogue was rebuilt before the call";
  Shell("xrandr --delmonitor left");
  Await(host.display, 2);
  EXPECT_EQ(host.display, 2);
  EXPECT_EQ(host.displays, 1);
  EXPECT_EQ(host.audio + host.camera, 0);
  UnregisterDeviceNotifies(watcher);
  UnregisterDeviceNotifies(nullptr);
}

}  // namespace
