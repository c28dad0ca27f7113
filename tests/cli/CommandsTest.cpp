// One run of each command as a user would start it: `displays`, `devices`,
// `record` against a moving scene with beeps, and `demo` with servers of its
// own; and the wrong command lines, each costing one clear line.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "CliProcess.h"
#include "support/Media.h"

namespace clitest {
namespace {

namespace fs = std::filesystem;

std::string Streams(const std::string& file) {
  return ovtest::Probe(file, "-show_entries stream=codec_name,codec_type,width,height");
}

TEST(Commands, DisplaysAndDevicesReportWhatTheEngineFound) {
  CliResult r = RunCli({"displays"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  std::vector<std::string> lines = ovtest::Lines(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;  // heading and the one screen of the Xvfb
  EXPECT_NE(lines[1].find("1280x720"), std::string::npos) << lines[1];

  r = RunCli({"devices"}, kWithoutDisplay);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto lineOf = [&](const std::string& start) {
    for (const std::string& line : ovtest::Lines(r.out))
      if (line.rfind(start, 0) == 0) return line;
    return std::string();
  };
  const std::string h264 = lineOf("  h264 "), mp4 = lineOf("  mp4 ");
  ASSERT_FALSE(h264.empty()) << r.out;
  EXPECT_EQ(h264.find("not available") == std::string::npos, EncoderLibraryPresent()) << h264;
  EXPECT_EQ(mp4.find("not available yet") == std::string::npos, AssemblyPresent()) << mp4;
  EXPECT_NE(r.out.find("Audio endpoints\n  "), std::string::npos) << r.out;
}

TEST(Commands, RecordSavesTheTrimmedPartWithSoundAndTidiesItsTempFolder) {
  if (!EncoderLibraryPresent() || !AssemblyPresent())
    GTEST_SKIP() << "needs an encoder library and the muxer";
  ovtest::ScratchFolder scratch("ovclirec");
  const std::string out = scratch.Path() + "/out.mp4";
  const size_t tempBefore = TempEntries();
  CliResult r =
      RunCli({"record", "--seconds", "4", "--trim", "1,2.5", "--system-audio", "--cursor", out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("Saved " + out), std::string::npos) << r.out;
  const std::string streams = Streams(out);
  EXPECT_NE(streams.find("h264\nvideo\n1280\n720\n"), std::string::npos) << streams;
  EXPECT_NE(streams.find("audio"), std::string::npos) << streams;
  const double duration = std::atof(ovtest::Probe(out, "-show_entries format=duration").c_str());
  EXPECT_GT(duration, 0.5);
  EXPECT_LT(duration, 3.0);  // the whole recording would be 4 s
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
  EXPECT_EQ(TempEntries(), tempBefore);
}

// The demo starts an X server, a sound server, the scene and the beeps, and
// none of them outlives it. Anything left after a grace time is ended here,
// by pid, and reported.
TEST(Commands, DemoRecordsAndEndsEveryProcessItStarted) {
  ovtest::ScratchFolder scratch("ovclidemo");
  const std::string out = scratch.Path() + "/demo.mp4";
  CliResult r = RunCli({"demo", "--seconds", "2", out}, kWithoutDisplay);
  const auto started = StartedPids(r.err);
  const char* const expected[] = {"Xvfb", "PulseAudio", "orvanta scene", "orvanta tone"};
  ASSERT_EQ(started.size(), std::size(expected)) << r.err;
  for (size_t i = 0; i < started.size(); ++i) EXPECT_EQ(started[i].first, expected[i]) << r.err;
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  std::vector<std::string> alive;
  do {
    alive.clear();
    for (const auto& [name, pid] : started)
      if (ProcessAlive(pid)) alive.push_back(name + " " + std::to_string(pid));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  } while (!alive.empty() && std::chrono::steady_clock::now() < end);
  EXPECT_TRUE(alive.empty()) << r.err;
  for (const auto& [name, pid] : started) {
    const std::string program = ProcessProgram(pid);
    if (ProcessAlive(pid) && (program == "Xvfb" || program == "pulseaudio" || program == "orvanta"))
      kill(pid, SIGKILL);
  }
  for (const auto& entry : fs::directory_iterator(ChildTemp()))
    EXPECT_NE(entry.path().filename().string().rfind("orvanta-demo-sound.", 0), 0u);
  if (!EncoderLibraryPresent() || !AssemblyPresent()) return;
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("The demo is in " + out), std::string::npos) << r.err;
  const std::string streams = Streams(out);
  EXPECT_NE(streams.find("video\n1280\n720\n"), std::string::npos) << streams;
  EXPECT_NE(streams.find("audio"), std::string::npos) << streams;
}

TEST(Commands, EachWrongCommandLineGivesOneLineAndNothingIsRecorded) {
  ovtest::ScratchFolder scratch("ovcliout");
  const std::string dir = scratch.Path(), out = dir + "/out.mp4";
  ASSERT_EQ(mkdir((dir + "/folder.mp4").c_str(), 0755), 0);
  const struct {
    std::vector<std::string> args;
    std::string mentions;  // what the line must name, so the user sees what to fix
    int exitCode = 2;
    bool display = true;
  } calls[] = {
      {{"record", "--bogus", out}, "--bogus"},
      {{"record"}, "output file"},
      {{"record", "a.mp4", "b.mp4"}, "b.mp4"},
      {{"record", "--fps", "thirty", out}, "thirty"},
      {{"record", "--quality", "9", out}, "--quality"},
      {{"record", "--region", "0,0,640", out}, "--region"},
      {{"record", "--window", "nowindow", out}, "nowindow"},
      {{"record", "--follow", out}, "--region"},
      {{"record", "--follow", "--center", "--region", "0,0,64,64", out}, "--center"},
      {{"record", "--seconds", "-3", out}, "--seconds"},
      {{"record", "--trim", "5,2", out}, "--trim"},
      {{"record", "--fps"}, "--fps"},
      {{"record", "--codec", "gif", "--system-audio", dir + "/out.gif"}, "sound"},
      {{"record", dir + "/out.avi"}, "out.avi"},
      {{"frobnicate"}, "frobnicate"},
      {{"demo", "--seconds", "0"}, "--seconds"},
      {{"record", dir + "/missing/out.mp4"}, dir + "/missing/out.mp4"},
      {{"record", dir + "/folder.mp4"}, dir + "/folder.mp4"},
      {{"record", "--region", "1000,600,400,200", out}, "outside display 0"},
      {{"record", "--display", "3", out}, "no display 3"},
      {{"record", "--window", "0x7ffffe", out}, "0x7ffffe"},
      {{"record", out}, "DISPLAY", 1, false},
      {{"displays"}, "DISPLAY", 1, false},
  };
  const size_t tempBefore = TempEntries();
  for (const auto& call : calls) {
    std::string joined;
    for (const std::string& a : call.args) joined += a + " ";
    SCOPED_TRACE(joined);
    CliResult r = RunCli(call.args, call.display ? Environment{} : kWithoutDisplay);
    EXPECT_EQ(r.exitCode, call.exitCode) << r.err;
    std::vector<std::string> lines = ovtest::Lines(r.err);
    ASSERT_EQ(lines.size(), 1u) << r.err;
    EXPECT_EQ(lines[0].rfind("orvanta: ", 0), 0u) << lines[0];
    EXPECT_NE(lines[0].find(call.mentions), std::string::npos) << lines[0];
    EXPECT_EQ(r.out, "");
  }
  EXPECT_EQ(TempEntries(), tempBefore) << "no temp folder was made for a recording";
  EXPECT_FALSE(fs::exists(out));
}

}  // namespace
}  // namespace clitest
