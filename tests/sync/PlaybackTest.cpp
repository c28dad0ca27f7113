// The player plays a recording of the flash-and-beep scene into a test
// window and the test's sound server, and a peer (ffmpeg's x11grab and
// pulse inputs) records what was shown and heard there.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "formats/FrameIndexFile.h"
#include "orvanta/orvanta.h"
#include "platform/Library.h"
#include "platform/Text.h"
#include "support/Doubles.h"
#include "support/Servers.h"
#include "support/TestEnv.h"
#include "sync/FlashBeep.h"

// After gtest, whose names Xlib's macros would replace.
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace {

constexpr int kWidth = 640, kHeight = 480;

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

struct EndWaiter : CPlayerCallback {
  std::atomic<int> ends{0};
  void OnPlayEnd() override { ++ends; }
};

// A host's window at the top left corner of the screen.
class TestWindow {
 public:
  TestWindow() : m_display(XOpenDisplay(nullptr)) {
    m_window = XCreateSimpleWindow(m_display, DefaultRootWindow(m_display), 0, 0, kWidth, kHeight,
                                   0, 0, 0);
    XMapWindow(m_display, m_window);
    XSync(m_display, False);
  }
  ~TestWindow() { XCloseDisplay(m_display); }
  HWND Id() const { return m_window; }
  std::vector<uint32_t> Pixels() const {
    XImage* image = XGetImage(m_display, m_window, 0, 0, kWidth, kHeight, AllPlanes, ZPixmap);
    std::vector<uint32_t> pixels(kWidth * kHeight);
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x)
        pixels[y * kWidth + x] = static_cast<uint32_t>(XGetPixel(image, x, y));
    XDestroyImage(image);
    return pixels;
  }

 private:
  Display* m_display;
  Window m_window = 0;
};

// Records `seconds` of the scene with its sound; the temp set stays.
void RecordScene(const std::string& folder, int seconds, int32_t codec = CodecType_H264) {
  const std::string cli = ov::ModuleFolder() + "/../bin/orvanta";
  const long long epoch = ovsync::MonotonicNs() + 1500000000LL;
  const pid_t scene =
      ovtest::Spawn({cli, "scene", "--epoch", std::to_string(epoch), "--fps", "60"});
  const pid_t tone = ovtest::Spawn({cli, "tone", "--epoch", std::to_string(epoch)});
  SleepMs(1000);
  VideoOpt video{};
  video.bStream = 1;
  video.rcScreen = {0, 0, kWidth, kHeight};
  video.CodecType = codec;
  video.FrameRate = 30;
  video.videoQuality = 3;
  MouseOpt mouse{};
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder =
      ovVideoRecord(0, ov::FromUtf8(folder).c_str(), &video, AudioOpt{1, 0}, &mouse, 0, &hr);
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(seconds * 1000);
  recorder->Destroy();
  ovtest::Stop(tone);
  ovtest::Stop(scene);
}

// The share of pixels in which the window and the frame that a seek to
// `time` (100 ns) lands on differ noticeably in some colour.
double DifferenceFromFrameAt(const TestWindow& window, const CapturedFile& record, int64_t time) {
  const std::string video = ov::ToUtf8(record.szScreenCaptureFile);
  // A WMV seek lands on the time itself; the others on the key frame at or
  // before it.
  std::string select = "gte(t\\," + std::to_string(time / 1e7) + ")";
  ov::FrameIndexFile index;
  if (record.CodecType != CodecType_WMV) {
    EXPECT_EQ(ov::ReadFrameIndex(video + ".idx", -1, &index), nullptr);
    size_t key = 0;
    for (size_t i = 0; i < index.entries.size() && ov::TicksToTime(index.entries[i].time) <= time;
         ++i)
      if (index.entries[i].pictureType == ov::kPictureKey) key = i;
    int before = 0;  // frames shown before it, in the decoder's output order
    for (const auto& e : index.entries) before += e.time < index.entries[key].time;
    select = "eq(n\\," + std::to_string(before) + ")";
  }
  const std::string frame =
      ovtest::RunCapture("ffmpeg -v error -i '" + video + "' -vf 'select=" + select +
                         "' -frames:v 1 -pix_fmt bgra -f rawvideo -");
  if (frame.size() != size_t{kWidth} * kHeight * 4) return 1;
  const std::vector<uint32_t> shown = window.Pixels();
  int differing = 0;
  for (size_t i = 0; i < shown.size(); ++i)
    for (int c = 0; c < 3; ++c) {
      const int a = (shown[i] >> (8 * c)) & 0xFF, b = static_cast<uint8_t>(frame[i * 4 + c]);
      if (std::abs(a - b) > 40) {
        ++differing;
        break;
      }
    }
  return static_cast<double>(differing) / shown.size();
}

// Six seconds with a trim end at 5 s: five flashes and beeps are played, in
// step, and a seek to 3 s shows the recording's frame there.
class PlaybackOf : public ::testing::TestWithParam<int32_t> {};

TEST_P(PlaybackOf, PlayedFlashesAndBeepsStayTogether) {
  if (access((ov::ModuleFolder() + "/../bin/orvanta").c_str(), X_OK) != 0)
    GTEST_SKIP() << "no orvanta program for the scene";
  ovtest::ScratchFolder folder("ovplay");
  RecordScene(folder.Path(), 6, GetParam());
  CapturedFile* record = GetCapturedFile();
  ASSERT_NE(record, nullptr);
  // The step the recording holds, in its temp files.
  const std::string video = ov::ToUtf8(record->szScreenCaptureFile);
  std::vector<double> frameTimes;
  ov::FrameIndexFile index;
  if (GetParam() != CodecType_WMV && !ov::ReadFrameIndex(video + ".idx", -1, &index))
    for (const auto& e : index.entries) frameTimes.push_back(e.time / 90000.0);
  std::sort(frameTimes.begin(), frameTimes.end());
  const ovsync::Offsets recorded =
      ovsync::MeasureFlashesAndBeeps(video, ov::ToUtf8(record->szWaveOutFile), frameTimes);
  record->nTrimEnd = 50000000;

  TestWindow window;
  EndWaiter end;
  CVideoPlayerObject* player = PlayCapturedVideo(window.Id(), &end);
  ASSERT_NE(player, nullptr);
  const std::string peer = folder.Path() + "/played.mkv";
  const std::string screen = std::getenv("DISPLAY") + std::string("+0,0");
  // Both inputs are stamped by the wall clock and kept so (-copyts): ffmpeg
  // would otherwise start each at 0, and its sound input starts late.
  const pid_t ffmpeg = ovtest::Spawn({"ffmpeg",
                                      "-nostdin",
                                      "-v",
                                      "error",
                                      "-y",
                                      "-thread_queue_size",
                                      "4096",
                                      "-f",
                                      "x11grab",
                                      "-framerate",
                                      "60",
                                      "-video_size",
                                      "640x480",
                                      "-i",
                                      screen,
                                      "-thread_queue_size",
                                      "4096",
                                      "-f",
                                      "pulse",
                                      "-fragment_size",
                                      "3840",
                                      "-use_wallclock_as_timestamps",
                                      "1",
                                      "-i",
                                      "nullsink.monitor",
                                      "-copyts",
                                      "-c:v",
                                      "libx264",
                                      "-preset",
                                      "ultrafast",
                                      "-c:a",
                                      "pcm_s16le",
                                      peer});
  SleepMs(2500);  // the peer's sound input starts late
  player->Play();
  SleepMs(2000);
  // The peer stamps the monitor's samples as they arrive: they are heard
  // the sink's latency later.
  double sinkLatency = 0;
  bool ours = false;
  for (const std::string& line : ovtest::Lines(ovtest::RunCapture("pactl list sinks"))) {
    if (line.find("Name: ") != std::string::npos) ours = line.find("Name: nullsink") != line.npos;
    double usec = 0;
    if (ours && std::sscanf(line.c_str(), " Latency: %lf usec", &usec) == 1) sinkLatency = usec;
  }
  std::printf("sink latency %.1f ms\n", sinkLatency / 1000);
  for (int i = 0; i < 1500 && end.ends == 0; ++i) SleepMs(10);
  EXPECT_EQ(end.ends, 1);
  SleepMs(500);
  ovtest::Stop(ffmpeg);
  // Picture and sound as played keep the step they were recorded in.
  const ovsync::Offsets o = ovsync::MeasureFlashesAndBeeps(peer);
  EXPECT_EQ(o.flashes, 5u) << "the trim end is at 5 s";
  EXPECT_GE(o.paired, 4);
  EXPECT_LE(o.high - o.low, 0.040) << o.report;
  const double played = o.mean + sinkLatency / 1e6;
  std::printf("played %.1f ms, recorded %.1f ms\n", played * 1000, recorded.mean * 1000);
  // The WMV reader shows a frame up to a thirtieth of a second early.
  const double early = GetParam() == CodecType_WMV ? 1 / 30.0 : 0;
  EXPECT_NEAR(played, recorded.mean, 0.040 + early) << o.report << "; recorded " << recorded.report;

  player->BeginSeek();
  player->Seek(3);
  player->EndSeek();
  SleepMs(1000);
  EXPECT_LT(DifferenceFromFrameAt(window, *record, 30000000), 0.01);
  player->Destroy();
  FreeCapturedFile(1);
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Codecs, PlaybackOf, ::testing::Values(CodecType_H264, CodecType_WMV));

// The children of mux's parent process.
std::vector<pid_t> MuxChildrenOf(pid_t parent) {
  std::vector<pid_t> found;
  for (const std::string& line : ovtest::Lines(ovtest::RunCapture("ps -eo pid=,ppid=,comm="))) {
    int pid = 0, ppid = 0;
    char name[64] = {};
    if (std::sscanf(line.c_str(), "%d %d %63s", &pid, &ppid, name) == 3 && ppid == parent &&
        std::string(name) == "mux")
      found.push_back(pid);
  }
  return found;
}

bool Alive(pid_t pid) {
  const std::string state = ovtest::RunCapture("ps -o stat= -p " + std::to_string(pid));
  return !state.empty() && state[0] != 'Z';
}

// A host killed while mux decodes for it leaves no mux behind; a damaged
// temp video fails the player instead of holding it.
TEST(Playback, NoDecoderOutlivesItsHostAndDamageFails) {
  if (access((ov::ModuleFolder() + "/../bin/orvanta").c_str(), X_OK) != 0)
    GTEST_SKIP() << "no orvanta program for the scene";
  ovtest::ScratchFolder folder("ovplaykill");
  RecordScene(folder.Path(), 2);
  CapturedFile* record = GetCapturedFile();
  ASSERT_NE(record, nullptr);
  TestWindow window;

  const pid_t host = fork();
  if (host == 0) {
    CVideoPlayerObject* player = PlayCapturedVideo(window.Id(), nullptr);
    if (!player) _exit(2);
    player->Play();
    for (;;) pause();
  }
  std::vector<pid_t> decoders;
  for (int i = 0; i < 500 && decoders.empty(); ++i, SleepMs(10)) decoders = MuxChildrenOf(host);
  ASSERT_EQ(decoders.size(), 1u) << "the host's player started no decoder";
  kill(host, SIGKILL);
  int status = 0;
  waitpid(host, &status, 0);
  for (int i = 0; i < 300 && Alive(decoders[0]); ++i) SleepMs(10);
  EXPECT_FALSE(Alive(decoders[0])) << "mux outlived its host";

  {
    std::ofstream video(ov::ToUtf8(record->szScreenCaptureFile), std::ios::binary);
    for (int i = 0; i < 100000; ++i) video.put(static_cast<char>(i * 7919 % 251));
  }
  CVideoPlayerObject* player = PlayCapturedVideo(window.Id(), nullptr);
  EXPECT_EQ(player, nullptr) << "a damaged video was taken for a playable one";
  if (player) player->Destroy();
  FreeCapturedFile(1);
}
