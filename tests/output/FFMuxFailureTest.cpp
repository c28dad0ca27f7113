// What the host sees when a mux cannot be done, is canceled, or its program
// dies: one OnComplete with the failure, or a refusal and no callback at all,
// and never a wait without end.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "TempSet.h"
#include "formats/FrameIndex.h"
#include "platform/ChildProcess.h"
#include "platform/Files.h"
#include "support/Engine.h"

namespace {

using ovtest::RecordingSet;
using ovtest::RunMux;

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

void Overwrite(const std::string& path, size_t offset, const std::string& bytes) {
  std::string content = ovtest::ReadFile(path);
  content.replace(offset, bytes.size(), bytes);
  ovtest::WriteFile(path, content);
}

// Works on a copy of the shared temp set, which it may damage.
class FFMuxFailureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ovtest::CopyBaseSet(m_folder.Path());
    m_set = std::make_unique<RecordingSet>(m_folder.Path());
    m_set->UseVideo();
    m_set->UseSpeaker();
  }
  std::string Video() const { return m_set->VideoPath(); }
  std::string Index() const { return Video() + ".idx"; }
  std::string Output() const { return m_folder.Path() + "/out.mp4"; }

  ovtest::ScratchFolder m_folder{"ovmuxbad"};
  std::unique_ptr<RecordingSet> m_set;
};

TEST_F(FFMuxFailureTest, DamagedTempSetFailsInTheProgramWithALogLineAndNoFile) {
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
    Overwrite(damage.inIndex ? Index() : Video(), damage.offset, damage.bytes);
    const ovtest::LogMark mark;
    ovtest::MuxWaiter waiter;
    EXPECT_EQ(RunMux(0, Output(), 0, &waiter), E_FAIL);
    EXPECT_EQ(waiter.Completions(), 1);
    const std::string log = mark.Text();
    EXPECT_NE(log.find(damage.logged), std::string::npos) << log;
    EXPECT_NE(log.find("ExitCode=1\n"), std::string::npos) << log;
    EXPECT_FALSE(Exists(Output()));
  }
}

// The engine reads the index with the same checks as the program: a header
// cut short or garbled is refused before the program is started.
TEST_F(FFMuxFailureTest, IndexWithoutHeaderIsRefusedBeforeAnyWork) {
  for (int garble = 0; garble < 2; ++garble) {
    if (garble)
      Overwrite(Index(), 0, "XXXXXXXX");
    else
      std::filesystem::resize_file(Index(), 20);
    const ovtest::LogMark mark;
    ovtest::MuxWaiter waiter;
    EXPECT_EQ(RunMux(0, Output(), 0, &waiter), E_FAIL);
    EXPECT_EQ(waiter.Completions(), 0);
    EXPECT_NE(mark.Text().find("(no index header)"), std::string::npos);
  }
}

TEST_F(FFMuxFailureTest, BadArgumentsAreRefusedWithoutACallback) {
  ovtest::MuxWaiter waiter;
  const std::wstring out = ov::FromUtf8(Output());
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

TEST_F(FFMuxFailureTest, NamesOutsideAsciiReachTheProgramWhole) {
  const std::string out =
      m_folder.Path() + "/Aufnahme \xE2\x80\x93 \xE9\x8C\xB2\xE7\x94\xBB \xF0\x9F\x8E\xAC.mkv";
  ASSERT_EQ(RunMux(6, out), S_OK);
  EXPECT_EQ(ovtest::ProbeStreams(out).size(), 2u);
}

TEST_F(FFMuxFailureTest, CancelAtTheFirstReportEndsWithAbort) {
  ovtest::MuxWaiter waiter(0);
  EXPECT_EQ(RunMux(0, Output(), 0, &waiter), E_ABORT);
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
  while (!Exists(out) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  ASSERT_TRUE(Exists(out));
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
