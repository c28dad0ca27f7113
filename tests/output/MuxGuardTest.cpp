// What FFMux does with outputs that are not a file of their own, with inputs
// a crash or a host damaged, with trims outside the recording, and when it
// is canceled or its program dies: one OnComplete with the failure, or a
// refusal and no callback at all, never a wait without end, and no file of
// anybody's touched.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <thread>

#include "TempSet.h"
#include "formats/FrameIndex.h"
#include "platform/ChildProcess.h"
#include "platform/Files.h"
#include "support/Engine.h"

namespace fs = std::filesystem;

namespace {

using ovtest::RecordingSet;
using ovtest::RunMux;

constexpr int64_t kSecond = 10000000;

class MuxGuardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ovtest::CopyBaseSet(m_folder.Path());
    m_set = std::make_unique<RecordingSet>(m_folder.Path());
    m_set->UseVideo();
    m_set->UseSpeaker();
  }
  std::string Path(const std::string& name) const { return m_folder.Path() + "/" + name; }
  // The names in the folder that a mux left beside its output.
  std::vector<std::string> Leftovers() const {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(m_folder.Path()))
      if (e.path().filename().string().rfind(".ovmux", 0) == 0) names.push_back(e.path());
    return names;
  }

  ovtest::ScratchFolder m_folder{"ovmuxguard"};
  std::unique_ptr<RecordingSet> m_set;
};

TEST_F(MuxGuardTest, OutputsThatAreNoFileOfTheirOwnAreRefusedUntouched) {
  mkfifo(Path("fifo").c_str(), 0600);
  fs::create_directory(Path("folder"));
  // A name of 294 characters, and somebody's file at its first 259.
  std::string deep = m_folder.Path() + "/" + std::string(120, 'a') + "/";
  fs::create_directories(deep);
  deep += std::string(294 - deep.size(), 'b');
  ovtest::WriteFile(deep.substr(0, OV_MAX_PATH - 1), "keep me");

  const std::string speaker = ovtest::ReadFile(Path("Speaker.wav"));
  const std::string video = ovtest::ReadFile(m_set->VideoPath());
  const std::string index = ovtest::ReadFile(m_set->VideoPath() + ".idx");
  for (const std::string& out :
       {Path("Speaker.wav"), m_folder.Path() + "/./ScreenCapture.h264", m_set->VideoPath() + ".idx",
        Path("fifo"), Path("folder"), std::string("out.mp4"), Path("missing/out.mp4"), deep}) {
    const ovtest::LogMark mark;
    ovtest::MuxWaiter waiter;
    EXPECT_EQ(FFMux(0, 0, ov::FromUtf8(out).c_str(), 0, &waiter), E_INVALIDARG) << out;
    EXPECT_NE(mark.Text().find("Error: output"), std::string::npos) << out;
    EXPECT_EQ(waiter.Completions(), 0);
  }
  EXPECT_EQ(ovtest::ReadFile(Path("Speaker.wav")), speaker);
  EXPECT_EQ(ovtest::ReadFile(m_set->VideoPath()), video);
  EXPECT_EQ(ovtest::ReadFile(m_set->VideoPath() + ".idx"), index);
  EXPECT_EQ(ovtest::ReadFile(deep.substr(0, OV_MAX_PATH - 1)), "keep me");
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(MuxGuardTest, OutputIsReplacedOnlyByAFinishedFile) {
  const std::string out = Path("out.mp4");
  ovtest::WriteFile(out, "the user's older film");
  // The program finds the stream cut in half and fails.
  fs::resize_file(m_set->VideoPath(), fs::file_size(m_set->VideoPath()) / 2);
  EXPECT_EQ(RunMux(0, out), E_FAIL);
  EXPECT_EQ(ovtest::ReadFile(out), "the user's older film");
  EXPECT_TRUE(Leftovers().empty());

  ovtest::CopyBaseSet(m_folder.Path());
  ASSERT_EQ(RunMux(0, out), S_OK);
  EXPECT_EQ(ovtest::ProbeStreams(out).size(), 2u);
  EXPECT_TRUE(Leftovers().empty());
}

TEST_F(MuxGuardTest, WatermarkThatIsAFifoDoesNotHoldTheHost) {
  const std::string fifo = Path("mark.png");
  mkfifo(fifo.c_str(), 0600);
  UseWatermark(ov::FromUtf8(fifo).c_str(), 0, 0);
  const std::string out = Path("marked.mp4");
  auto mux = std::async(std::launch::async, [&] { return RunMux(0, out); });
  const bool ended = mux.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
  if (!ended) close(open(fifo.c_str(), O_WRONLY | O_NONBLOCK));  // lets a blocked reader go
  UseWatermark(nullptr, 0, 0);
  ASSERT_TRUE(ended) << "FFMux blocked on the FIFO";
  EXPECT_EQ(mux.get(), S_OK);
  EXPECT_EQ(ovtest::ProbeStreams(out).size(), 2u);
}

void Overwrite(const std::string& path, size_t offset, const std::string& bytes) {
  std::string content = ovtest::ReadFile(path);
  content.replace(offset, bytes.size(), bytes);
  ovtest::WriteFile(path, content);
}

void SetIndexTime(const std::string& index, size_t entry, int64_t time) {
  Overwrite(index, sizeof(ov::FrameIndexHeader) + entry * sizeof(ov::FrameIndexEntry),
            std::string(reinterpret_cast<const char*>(&time), sizeof time));
}

TEST_F(MuxGuardTest, IndexTimesOutsideTheRecordingAreRefused) {
  const std::string index = m_set->VideoPath() + ".idx";
  const std::string good = ovtest::ReadFile(index);
  for (auto [entry, time] :
       {std::pair<size_t, int64_t>{0, INT64_MIN}, {0, -1}, {20, 0}, {10, INT64_MAX}}) {
    ovtest::WriteFile(index, good);
    SetIndexTime(index, entry, time);
    const ovtest::LogMark mark;
    EXPECT_EQ(RunMux(0, Path("times.mp4")), E_FAIL) << entry << " " << time;
    EXPECT_NE(mark.Text().find("out of time order"), std::string::npos);
    EXPECT_FALSE(fs::exists(Path("times.mp4")));
  }
}

TEST_F(MuxGuardTest, FrameTornAtTheStreamsEndIsLeftOut) {
  const size_t frames = ovtest::BaseTempSet().entries.size();
  fs::resize_file(m_set->VideoPath(), fs::file_size(m_set->VideoPath()) - 10);
  const ovtest::LogMark mark;
  const std::string out = Path("torn.mp4");
  ASSERT_EQ(RunMux(0, out), S_OK);
  EXPECT_NE(mark.Text().find("is cut short at the end of"), std::string::npos);
  EXPECT_EQ(ovtest::VideoTimes(out).size(), frames - 1);
  EXPECT_EQ(ovtest::ProbeStreams(out).size(), 2u);
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
}

TEST_F(MuxGuardTest, TrimsOutsideTheRecordingAreRefusedOrHeldToIt) {
  CapturedFile& r = m_set->Record();
  struct Trim {
    int64_t start, end;
  };
  for (Trim trim : {Trim{6 * kSecond, 3 * kSecond}, Trim{4 * kSecond, 4 * kSecond},
                    Trim{-kSecond, 0}, Trim{0, -kSecond}}) {
    r.nTrimStart = trim.start;
    r.nTrimEnd = trim.end;
    const ovtest::LogMark mark;
    EXPECT_EQ(RunMux(0, Path("trim.mp4")), E_INVALIDARG) << trim.start << "->" << trim.end;
    EXPECT_NE(mark.Text().find("Error: trim"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(Path("trim.mp4")));

  // An end past the recording is its end: both tracks, whole.
  r.nTrimStart = 0;
  r.nTrimEnd = INT64_MAX;
  ASSERT_EQ(RunMux(0, Path("long.mp4")), S_OK);
  const auto streams = ovtest::ProbeStreams(Path("long.mp4"));
  ASSERT_EQ(streams.size(), 2u);
  EXPECT_NEAR(streams[1].duration, 10.0, 0.1);

  // Sound alone from past its end has nothing to give: a clear failure, not
  // a file without its track.
  r.nTrimStart = 20 * kSecond;
  r.nTrimEnd = 0;
  ovtest::MuxWaiter waiter;
  EXPECT_EQ(RunMux(3, Path("late.m4a"), 0, &waiter), E_INVALIDARG);
  EXPECT_EQ(waiter.Completions(), 1);
  EXPECT_FALSE(fs::exists(Path("late.m4a")));
}

TEST_F(MuxGuardTest, DamagedTempSetFailsInTheProgramWithALogLineAndNoFile) {
  const uint64_t far = 1ull << 40;
  const struct {
    size_t offset;
    std::string bytes;
    bool inIndex;
    const char* logged;
  } damages[] = {{0, std::string(2048, '\x5A'), false, "mux: corrupt temp video"},
                 {sizeof(ov::FrameIndexHeader) + 10 * sizeof(ov::FrameIndexEntry) + 8,
                  std::string(reinterpret_cast<const char*>(&far), sizeof far), true,
                  "lies outside the temp video"}};
  for (const auto& damage : damages) {
    ovtest::CopyBaseSet(m_folder.Path());
    Overwrite(damage.inIndex ? m_set->VideoPath() + ".idx" : m_set->VideoPath(), damage.offset,
              damage.bytes);
    const ovtest::LogMark mark;
    ovtest::MuxWaiter waiter;
    EXPECT_EQ(RunMux(0, Path("out.mp4"), 0, &waiter), E_FAIL);
    EXPECT_EQ(waiter.Completions(), 1);
    const std::string log = mark.Text();
    EXPECT_NE(log.find(damage.logged), std::string::npos) << log;
    EXPECT_NE(log.find("ExitCode=1\n"), std::string::npos) << log;
    EXPECT_FALSE(fs::exists(Path("out.mp4")));
  }
}

// The engine reads the index with the same checks as the program: a header
// cut short or garbled is refused before the program is started.
TEST_F(MuxGuardTest, IndexWithoutHeaderIsRefusedBeforeAnyWork) {
  for (int garble = 0; garble < 2; ++garble) {
    if (garble)
      Overwrite(m_set->VideoPath() + ".idx", 0, "XXXXXXXX");
    else
      std::filesystem::resize_file(m_set->VideoPath() + ".idx", 20);
    const ovtest::LogMark mark;
    ovtest::MuxWaiter waiter;
    EXPECT_EQ(RunMux(0, Path("out.mp4"), 0, &waiter), E_FAIL);
    EXPECT_EQ(waiter.Completions(), 0);
    EXPECT_NE(mark.Text().find("(no index header)"), std::string::npos);
  }
}

TEST_F(MuxGuardTest, BadArgumentsAreRefusedWithoutACallback) {
  ovtest::MuxWaiter waiter;
  const std::wstring out = ov::FromUtf8(Path("out.mp4"));
  const ovtest::LogMark mark;
  EXPECT_EQ(FFMux(0, 0, nullptr, 0, &waiter), E_FAIL);
  EXPECT_EQ(FFMux(0, 0, out.c_str(), 0, nullptr), E_FAIL);
  EXPECT_EQ(FFMux(9, 0, out.c_str(), 0, &waiter), E_FAIL);
  EXPECT_EQ(FFMux(-1, 0, out.c_str(), 0, &waiter), E_FAIL);
  m_set.reset();
  EXPECT_EQ(FFMux(0, 0, out.c_str(), 0, &waiter), E_FAIL);
  const std::string log = mark.Text();
  for (const char* line : {"Error: pwszOutFile, FILE:", "Error: pCallback, FILE:", "m_Muxer=9?",
                           "m_Muxer=-1?", "Error: g_Recording, FILE:"})
    EXPECT_NE(log.find(line), std::string::npos) << line;
  EXPECT_EQ(waiter.Completions(), 0);
  EXPECT_TRUE(waiter.Progress().empty());
}

TEST_F(MuxGuardTest, NamesOutsideAsciiReachTheProgramWhole) {
  const std::string out =
      m_folder.Path() + "/Aufnahme \xE2\x80\x93 \xE9\x8C\xB2\xE7\x94\xBB \xF0\x9F\x8E\xAC.mkv";
  ASSERT_EQ(RunMux(6, out), S_OK);
  EXPECT_EQ(ovtest::ProbeStreams(out).size(), 2u);
}

TEST_F(MuxGuardTest, CancelAtTheFirstReportEndsWithAbort) {
  ovtest::MuxWaiter waiter(0);
  EXPECT_EQ(RunMux(0, Path("out.mp4"), 0, &waiter), E_ABORT);
  EXPECT_EQ(waiter.Progress().size(), 1u);
  EXPECT_EQ(waiter.Completions(), 1);
}

// A mux long enough to be caught while its program runs: 40 s of 720p
// whose video is encoded again for a watermark.
class LongMuxTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_folder = new ovtest::ScratchFolder("ovmuxlong");
    RecordingSet set(s_folder->Path());
    ovtest::VideoSpec video;
    video.width = 1280;
    video.height = 720;
    video.frames = 1200;
    ASSERT_TRUE(ovtest::WriteTempVideo(ov::FromUtf8(set.VideoPath()), video));
    ovtest::WaveSpec wave;
    wave.seconds = 40;
    ASSERT_TRUE(ovtest::WriteWave(ov::FromUtf8(s_folder->Path() + "/Speaker.wav"), wave));
    ovtest::MakeWatermarkPicture(s_folder->Path());
  }
  static void TearDownTestSuite() { delete s_folder; }
  void SetUp() override {
    m_set = std::make_unique<RecordingSet>(s_folder->Path());
    m_set->UseVideo();
    m_set->UseSpeaker();
    UseWatermark(ov::FromUtf8(s_folder->Path() + "/watermark.png").c_str(), 1, 1);
  }
  void TearDown() override { UseWatermark(nullptr, 0, 0); }

  static ovtest::ScratchFolder* s_folder;
  ovtest::ScratchFolder m_out{"ovmuxout"};
  std::unique_ptr<RecordingSet> m_set;
};

ovtest::ScratchFolder* LongMuxTest::s_folder;

TEST_F(LongMuxTest, CancelWhileTheProgramRunsLeavesItToFinishTheFile) {
  const std::string out = m_out.Path() + "/canceled.mp4";
  ovtest::MuxWaiter waiter(11);
  ASSERT_EQ(RunMux(0, out, 0, &waiter), E_ABORT);
  EXPECT_GE(waiter.Progress().back(), 11);

  // The program was neither signalled nor stopped: it ends the file itself,
  // which then takes the output's name.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (!fs::exists(out) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_TRUE(fs::exists(out));
  EXPECT_EQ(ovtest::ProbeStreams(out).size(), 2u);
  EXPECT_EQ(waiter.Completions(), 1);
}

TEST_F(LongMuxTest, ProgramThatDiesGivesFail) {
  const std::string out = m_out.Path() + "/killed.mp4";
  ovtest::MuxWaiter waiter;
  const ovtest::LogMark mark;
  ASSERT_EQ(FFMux(0, 0, ov::FromUtf8(out).c_str(), 0, &waiter), S_OK);
  ASSERT_TRUE(waiter.WaitForProgress(11, 120));
  // What the engine does at its end: every child's process group is killed.
  ov::EndChildProcesses();
  ASSERT_TRUE(waiter.Wait(120));
  EXPECT_EQ(waiter.Result(), E_FAIL);
  EXPECT_NE(mark.Text().find("ExitCode=-9\n"), std::string::npos);
}

}  // namespace
