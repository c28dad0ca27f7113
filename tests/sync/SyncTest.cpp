// Picture and sound stay together from the screen to the final file: a scene
// flashes white at the start of every second while a beep starts at the same
// instant; the recording is assembled, and the flash and beep onsets are
// measured in the file.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <sstream>
#include <thread>

#include "orvanta/orvanta.h"
#include "platform/Files.h"
#include "platform/Library.h"
#include "support/Engine.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, true}));

long long MonotonicNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

class WaitingCallback : public CMuxCallback {
 public:
  int OnProgress(int) override { return 1; }
  void OnComplete(HRESULT result) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_result = result;
    m_done = true;
    m_cond.notify_all();
  }
  HRESULT Wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cond.wait_for(lock, std::chrono::minutes(2), [this] { return m_done; });
    return m_done ? m_result : E_FAIL;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cond;
  bool m_done = false;
  HRESULT m_result = E_FAIL;
};

// Times at which a series crosses its threshold upwards, after being below
// it for at least `quiet` seconds.
std::vector<double> Onsets(const std::vector<std::pair<double, double>>& series, double threshold,
                           double quiet) {
  std::vector<double> onsets;
  double lastAbove = -1e9;
  bool above = false;
  for (const auto& [t, value] : series) {
    bool now = value > threshold;
    if (now && !above && t - lastAbove > quiet) onsets.push_back(t);
    if (now) lastAbove = t;
    above = now;
  }
  return onsets;
}

// Mean luma of each video frame, at its presentation time.
std::vector<std::pair<double, double>> FrameLuma(const std::string& file) {
  std::string out = ovtest::RunCapture(
      "ffprobe -v error -f lavfi -i \"movie='" + file +
      "',signalstats\" -show_entries frame=pts_time:frame_tags=lavfi.signalstats.YAVG "
      "-of csv=p=0");
  std::vector<std::pair<double, double>> series;
  for (const std::string& line : ovtest::Lines(out)) {
    double t, y;
    if (std::sscanf(line.c_str(), "%lf,%lf", &t, &y) == 2) series.push_back({t, y});
  }
  return series;
}

// RMS of the sound in 5 ms steps, at the time of each step's start.
std::vector<std::pair<double, double>> SoundLevel(const std::string& file) {
  double start = std::atof(ovtest::RunCapture("ffprobe -v error -select_streams a:0 -show_entries "
                                              "stream=start_time -of csv=p=0 '" +
                                              file + "'")
                               .c_str());
  std::string pcm =
      ovtest::RunCapture("ffmpeg -v error -i '" + file + "' -map 0:a -ac 1 -ar 48000 -f s16le -");
  const int16_t* samples = reinterpret_cast<const int16_t*>(pcm.data());
  size_t count = pcm.size() / 2;
  const size_t step = 240;
  std::vector<std::pair<double, double>> series;
  for (size_t i = 0; i + step <= count; i += step) {
    double sum = 0;
    for (size_t j = i; j < i + step; ++j) sum += static_cast<double>(samples[j]) * samples[j];
    series.push_back({start + i / 48000.0, std::sqrt(sum / step) / 32768.0});
  }
  return series;
}

pid_t Start(const std::vector<std::string>& args) {
  pid_t pid = ovtest::Spawn(args);
  return pid;
}

TEST(AvSync, FlashesAndBeepsStayWithinFortyMilliseconds) {
  std::string cli = ov::ModuleFolder() + "/orvanta";
  if (access(cli.c_str(), X_OK) != 0) GTEST_SKIP() << "no orvanta program for the scene";
  long long epoch = MonotonicNs() + 1500000000LL;
  pid_t scene = Start({cli, "scene", "--epoch", std::to_string(epoch), "--fps", "60"});
  pid_t tone = Start({cli, "tone", "--epoch", std::to_string(epoch)});
  std::this_thread::sleep_for(std::chrono::milliseconds(1000));

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
  recorder->Start();
  std::this_thread::sleep_for(std::chrono::seconds(30));
  recorder->Destroy();
  ovtest::Stop(tone);
  ovtest::Stop(scene);

  std::string out = folder.Path() + "/sync.mp4";
  WaitingCallback callback;
  ASSERT_EQ(FFMux(0, 0, ov::FromUtf8(out).c_str(), 0, &callback), S_OK);
  ASSERT_EQ(callback.Wait(), S_OK);
  FreeCapturedFile(1);

  std::vector<double> flashes = Onsets(FrameLuma(out), 128, 0.5);
  std::vector<double> beeps = Onsets(SoundLevel(out), 0.05, 0.5);
  ASSERT_GE(flashes.size(), 25u);
  ASSERT_GE(beeps.size(), 25u);
  int paired = 0;
  double worst = 0;
  std::ostringstream report;
  for (double flash : flashes) {
    double nearest = 1e9;
    for (double beep : beeps)
      if (std::fabs(beep - flash) < std::fabs(nearest)) nearest = beep - flash;
    if (std::fabs(nearest) > 0.5) continue;
    ++paired;
    worst = std::max(worst, std::fabs(nearest));
    report << static_cast<int>(nearest * 1000) << " ";
  }
  std::printf("beep - flash offsets (ms): %s\n", report.str().c_str());
  EXPECT_GE(paired, 25);
  EXPECT_LE(worst, 0.040) << report.str();
}

}  // namespace
