// Whole recordings through the command: the scene moving on the program's X
// server, beeps on a private sound server, and the file checked by FFmpeg.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <thread>

#include "CliEnvironment.h"

namespace clitest {
namespace {

std::string Probe(const std::string& file) {
  return ovtest::RunCapture(
      "ffprobe -v error -show_entries stream=codec_name,codec_type,width,height -of csv=p=0 '" +
      file + "' 2>&1");
}

// Recordings are variable-rate: frames keep their true times, and two can lie
// closer than the rate ffmpeg guesses. "-vsync vfr" keeps its null output from
// forcing them onto that rate's grid; every frame is still decoded.
bool DecodesCleanly(const std::string& file) {
  int code = -1;
  std::string errors =
      ovtest::RunCapture("ffmpeg -v error -i '" + file + "' -vsync vfr -f null - 2>&1", &code);
  if (code != 0 || !errors.empty())
    std::fprintf(stderr, "decode errors of %s:\n%s\n", file.c_str(), errors.c_str());
  return code == 0 && errors.empty();
}

double Duration(const std::string& file) {
  return std::atof(ovtest::RunCapture(
                       "ffprobe -v error -show_entries format=duration -of csv=p=0 '" + file + "'")
                       .c_str());
}

class Record : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_pulse = new ovtest::PulseServer();
    // One epoch for both, so that each flash of the picture has its beep.
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::string epoch = std::to_string(now.tv_sec * 1000000000LL + now.tv_nsec);
    s_scene = ovtest::Spawn({OrvantaPath(), "scene", "--epoch", epoch, "--pointer"});
    s_tone = ovtest::Spawn({OrvantaPath(), "tone", "--epoch", epoch});
  }
  static void TearDownTestSuite() {
    ovtest::Stop(s_tone);
    ovtest::Stop(s_scene);
    delete s_pulse;
    s_pulse = nullptr;
  }
  void SetUp() override {
    if (!EncoderLibraryPresent()) GTEST_SKIP() << "no encoder library beside the engine";
    ASSERT_TRUE(s_pulse->Running());
    m_out = m_scratch.Path() + "/out.mp4";
  }

  static ovtest::PulseServer* s_pulse;
  static pid_t s_scene;
  static pid_t s_tone;
  ovtest::ScratchFolder m_scratch{"ovclirec"};
  std::string m_out;
};

ovtest::PulseServer* Record::s_pulse = nullptr;
pid_t Record::s_scene = -1;
pid_t Record::s_tone = -1;

TEST_F(Record, WithoutAssemblyTheTempFilesStayAndSaySo) {
  if (AssemblyPresent()) GTEST_SKIP() << "assembly is in this build";
  std::string temp = m_scratch.Path() + "/temp";
  CliResult r =
      RunCli({"record", "--seconds", "1", "--region", "64,32,320,240", "--temp", temp, m_out});
  EXPECT_EQ(r.exitCode, 3) << r.err;
  EXPECT_NE(r.err.find("orvanta: final-file assembly is not available in this build"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find(temp), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(m_out));
  std::string video = temp + "/ScreenCapture.h264";
  EXPECT_EQ(Probe(video), "h264,video,320,240\n");
  EXPECT_TRUE(DecodesCleanly(video));
}

TEST_F(Record, StopsAtTheTimeAndSavesAFileWithSound) {
  if (!AssemblyPresent()) GTEST_SKIP() << "final-file assembly (mux) is not in this build yet";
  size_t tempBefore = TempEntries();
  CliResult r = RunCli({"record", "--seconds", "2", "--system-audio", "--cursor", m_out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Saved " + m_out), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("H.264 1280x720"), std::string::npos) << r.out;
  std::string streams = Probe(m_out);
  EXPECT_NE(streams.find("h264,video,1280,720"), std::string::npos) << streams;
  EXPECT_NE(streams.find("audio"), std::string::npos) << streams;
  EXPECT_TRUE(DecodesCleanly(m_out));
  // The temp folder that the command made for itself is gone again.
  EXPECT_EQ(TempEntries(), tempBefore);
}

TEST_F(Record, CtrlCStopsTheRecordingAndTheFileIsStillMade) {
  if (!AssemblyPresent()) GTEST_SKIP() << "final-file assembly (mux) is not in this build yet";
  CliProcess record({"record", "--system-audio", m_out});
  ASSERT_TRUE(record.WaitForErr("Recording", 60000));
  // Some seconds of material, then the user's Ctrl-C.
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  record.Signal(SIGINT);
  CliResult r = record.Finish(120000);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("Stopping"), std::string::npos) << r.err;
  EXPECT_NE(Probe(m_out).find("h264,video"), std::string::npos);
  EXPECT_TRUE(DecodesCleanly(m_out));
}

TEST_F(Record, TrimKeepsOnlyThePartAskedFor) {
  if (!AssemblyPresent()) GTEST_SKIP() << "final-file assembly (mux) is not in this build yet";
  CliResult r = RunCli({"record", "--seconds", "4", "--trim", "1,2.5", m_out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  double duration = Duration(m_out);
  EXPECT_GT(duration, 0.5);
  EXPECT_LT(duration, 3.0);  // a whole recording would be 4 s
  EXPECT_TRUE(DecodesCleanly(m_out));
}

}  // namespace
}  // namespace clitest
