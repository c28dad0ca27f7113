// Picture and sound stay together from the screen to the final file: a scene
// flashes white at the start of every second while a beep starts at the same
// instant; the recording is assembled, and the flash and beep onsets are
// measured in the file.
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "orvanta/orvanta.h"
#include "platform/Files.h"
#include "platform/Library.h"
#include "support/Doubles.h"
#include "support/Engine.h"
#include "support/Servers.h"
#include "sync/FlashBeep.h"

using namespace ovsync;

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, true}));

double StreamDuration(const std::string& file, const char* stream) {
  return std::atof(ovtest::RunCapture(std::string("ffprobe -v error -select_streams ") + stream +
                                      " -show_entries stream=duration -of csv=p=0 '" + file + "'")
                       .c_str());
}

// Records the screen and the system's sound for `seconds`, assembles the
// final file with FFMux, and checks that picture, sound and the recording
// last as long as each other.
void RecordAndAssemble(const std::string& out, int seconds, int countdownMs = 0) {
  ovtest::ScratchFolder folder("ovsync");
  VideoOpt video{};
  video.bStream = 1;
  video.rcScreen = {0, 0, 640, 480};
  video.CodecType = CodecType_H264;
  video.FrameRate = 60;
  video.videoQuality = 3;
  MouseOpt mouse{};
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder =
      ovVideoRecord(0, folder.WidePath().c_str(), &video, AudioOpt{1, 0}, &mouse, 0, &hr);
  ASSERT_NE(recorder, nullptr);
  std::this_thread::sleep_for(std::chrono::milliseconds(countdownMs));
  const long long begin = MonotonicNs();
  recorder->Start();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double recorded = (MonotonicNs() - begin) / 1e9;
  recorder->Destroy();

  ovtest::MuxWaiter callback;
  ASSERT_EQ(FFMux(0, 0, ov::FromUtf8(out).c_str(), 0, &callback), S_OK);
  ASSERT_TRUE(callback.Wait(120));
  ASSERT_EQ(callback.Result(), S_OK);
  FreeCapturedFile(1);
  const double picture = StreamDuration(out, "v:0"), sound = StreamDuration(out, "a:0");
  std::printf("recorded %.3f s: video %.3f s, audio %.3f s\n", recorded, picture, sound);
  EXPECT_NEAR(sound, recorded, 0.05);
  EXPECT_NEAR(picture, recorded, 0.05);
  EXPECT_NEAR(picture, sound, 0.02) << "the last frame marks the stop";
}

// A scene starved of processor time drops and delays its frames; then it is
// out of step by itself, and there is nothing to measure.
void ExpectFlashesAndBeepsInStep(const std::string& file) {
  const Offsets o = MeasureFlashesAndBeeps(file);
  if (o.flashes < 28) GTEST_SKIP() << "the scene did not show its flashes: " << o.report;
  EXPECT_GE(o.paired, 28);
  EXPECT_LE(o.worst, 0.040) << o.report;
}

TEST(AvSync, FlashesAndBeepsStayWithinFortyMilliseconds) {
  std::string cli = ov::ModuleFolder() + "/../bin/orvanta";
  if (access(cli.c_str(), X_OK) != 0) GTEST_SKIP() << "no orvanta program for the scene";
  long long epoch = MonotonicNs() + 1500000000LL;
  pid_t scene = ovtest::Spawn({cli, "scene", "--epoch", std::to_string(epoch), "--fps", "60"});
  pid_t tone = ovtest::Spawn({cli, "tone", "--epoch", std::to_string(epoch)});
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));

  ovtest::ScratchFolder folder("ovsyncout");
  const std::string out = folder.Path() + "/sync.mp4";
  RecordAndAssemble(out, 30);
  ovtest::Stop(tone);
  ovtest::Stop(scene);
  ExpectFlashesAndBeepsInStep(out);
}

// A clip whose picture turns white for the first tenth of every second
// while a 1 kHz beep sounds, played by ffplay on the test's X server and a
// sound server started a moment ago: it buffers its sound its own way, and
// nothing warms the server up.
TEST(AvSync, RealPlayerFlashesAndBeepsStayWithinFortyMilliseconds) {
  int code = -1;
  ovtest::RunCapture("command -v ffplay >/dev/null", &code);
  if (code != 0) GTEST_SKIP() << "no ffplay";
  ovtest::PulseServer server;
  ASSERT_TRUE(server.Running());
  ovtest::ScratchFolder folder("ovsyncplay");
  const std::string clip = folder.Path() + "/flashbeep.mkv";
  ovtest::RunCapture(
      "ffmpeg -v error -y -f lavfi -i \"color=c=black:s=640x480:r=30:d=45,"
      "drawbox=c=white:t=fill:enable='lt(mod(t,1),0.1)'\" -f lavfi -i "
      "\"aevalsrc='if(lt(mod(t,1),0.1),0.5*sin(2*PI*1000*t),0)':s=48000:d=45\" "
      "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a pcm_s16le '" +
          clip + "' 2>&1",
      &code);
  ASSERT_EQ(code, 0);
  setenv("SDL_AUDIODRIVER", "pulseaudio", 1);
  const pid_t player = ovtest::Spawn({"ffplay", "-v", "quiet", "-autoexit", "-noborder", "-left",
                                      "0", "-top", "0", "-x", "640", "-y", "480", clip});
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));

  // As a host with a countdown does: the recorder opens its streams, and
  // starts three seconds later. Opening a monitor makes the sink lower its
  // latency, and a player hears its own sound earlier or later for a second
  // or two until it has caught up: that is in the scene, not the recording.
  const std::string out = folder.Path() + "/sync.mp4";
  RecordAndAssemble(out, 30, 3000);
  ovtest::Stop(player);
  ExpectFlashesAndBeepsInStep(out);
}

}  // namespace
