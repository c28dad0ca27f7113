// The demo brings up an X server, a sound server, the scene and the beeps
// of its own, and whatever way it ends, none of them outlives it.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "CliEnvironment.h"

namespace clitest {
namespace {

using Started = std::vector<std::pair<std::string, pid_t>>;

const char* const kExpected[] = {"Xvfb", "PulseAudio", "orvanta scene", "orvanta tone"};

// Waits a while for the processes to go (a killed demo's children are told
// by the kernel, not by the demo); anything left is ended here, by pid, and
// reported.
std::vector<std::string> Survivors(const Started& started) {
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  std::vector<std::string> alive;
  do {
    alive.clear();
    for (const auto& [name, pid] : started)
      if (ProcessAlive(pid)) alive.push_back(name + " " + std::to_string(pid));
    if (alive.empty()) return alive;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  } while (std::chrono::steady_clock::now() < end);
  for (const auto& [name, pid] : started) {
    std::string program = ProcessProgram(pid);
    if (ProcessAlive(pid) && (program == "Xvfb" || program == "pulseaudio" || program == "orvanta"))
      kill(pid, SIGKILL);
  }
  return alive;
}

void ExpectAllStarted(const Started& started, const std::string& err) {
  ASSERT_EQ(started.size(), std::size(kExpected)) << err;
  for (size_t i = 0; i < started.size(); ++i) EXPECT_EQ(started[i].first, kExpected[i]) << err;
}

std::vector<std::filesystem::path> SoundFolders() {
  std::vector<std::filesystem::path> folders;
  for (const auto& entry : std::filesystem::directory_iterator(ChildTemp()))
    if (entry.path().filename().string().rfind("orvanta-demo-sound.", 0) == 0)
      folders.push_back(entry.path());
  return folders;
}

class Demo : public ::testing::Test {
 protected:
  void SetUp() override { m_out = m_scratch.Path() + "/demo.mp4"; }
  ovtest::ScratchFolder m_scratch{"ovclidemo"};
  std::string m_out;
};

TEST_F(Demo, EndsEveryProcessItStartedWhenItFinishes) {
  ASSERT_TRUE(SoundFolders().empty());
  CliResult r = RunCli({"demo", "--seconds", "2", m_out}, WithoutDisplay());
  Started started = StartedPids(r.err);
  ExpectAllStarted(started, r.err);
  EXPECT_TRUE(Survivors(started).empty()) << r.err;
  EXPECT_TRUE(SoundFolders().empty());
  if (!EncoderLibraryPresent()) return;
  // It recorded; the file exists once assembly is in the build.
  EXPECT_NE(r.err.find("Recording 1280x720 at 0,0"), std::string::npos) << r.err;
  if (AssemblyPresent()) {
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("The demo is in " + m_out), std::string::npos) << r.err;
    std::string streams = ovtest::RunCapture(
        "ffprobe -v error -show_entries stream=codec_type,width,height -of csv=p=0 '" + m_out +
        "'");
    EXPECT_NE(streams.find("video,1280,720"), std::string::npos) << streams;
    EXPECT_NE(streams.find("audio"), std::string::npos) << streams;
  } else {
    EXPECT_EQ(r.exitCode, 3) << r.err;
    EXPECT_NE(r.err.find("final-file assembly is not available in this build"), std::string::npos);
  }
}

TEST_F(Demo, EndsEveryProcessItStartedWhenInterrupted) {
  CliProcess demo({"demo", "--seconds", "60", m_out}, WithoutDisplay());
  ASSERT_TRUE(demo.WaitForErr("Started the beeps", 60000));
  demo.WaitForErr("Recording", 30000);
  demo.Signal(SIGINT);
  CliResult r = demo.Finish(120000);
  EXPECT_NE(r.exitCode, 128 + SIGINT) << "Ctrl-C must end the demo through its clean path\n"
                                      << r.err;
  Started started = StartedPids(r.err);
  ExpectAllStarted(started, r.err);
  EXPECT_TRUE(Survivors(started).empty()) << r.err;
  EXPECT_NE(r.err.find("Stopped orvanta tone"), std::string::npos) << r.err;
}

TEST_F(Demo, ProcessesGoWithAKilledDemo) {
  CliProcess demo({"demo", "--seconds", "60", m_out}, WithoutDisplay());
  ASSERT_TRUE(demo.WaitForErr("Started the beeps", 60000));
  demo.Signal(SIGKILL);
  CliResult r = demo.Finish(30000);
  Started started = StartedPids(r.err);
  ExpectAllStarted(started, r.err);
  EXPECT_TRUE(Survivors(started).empty()) << r.err;
  // A killed demo cannot tidy its folders; the test does, for the tests after it.
  std::error_code ec;
  for (const auto& folder : SoundFolders()) std::filesystem::remove_all(folder, ec);
}

}  // namespace
}  // namespace clitest
