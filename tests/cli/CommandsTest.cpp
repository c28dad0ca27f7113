// One run of each command as a user would start it: `displays`, `devices`,
// `record` against a moving scene with beeps, and `demo` with servers of its
// own; and the wrong command lines, each costing one clear line. Then the
// recordings that do not end well: the X server goes away, the host is
// killed, the disk fills up. Each time what reached the disk must be kept,
// its headers must tell the truth, and the host must be able to make the
// final file from it.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "CliProcess.h"
#include "support/FrameIndexFile.h"
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

// The pattern cameras listed, one shown, and `s` in its window saving what it shows.
TEST(Commands, CamerasAreListedAndShownWithASnapshotKey) {
  const Environment pattern = {"ORVANTA_TEST_CAMERA=1"};
  CliResult r = RunCli({"cameras"}, pattern);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\n  2  Orvanta pattern camera MJPEG"), std::string::npos) << r.out;
  EXPECT_EQ(RunCli({"camera", "4"}, pattern).exitCode, 1);
  CliProcess camera({"camera", "2"}, pattern);
  ASSERT_TRUE(camera.WaitForErr("320x240; s: snapshot", 60000));
  std::string window = ovtest::RunCapture("xdotool search --name '^Orvanta camera'");
  window = window.substr(0, window.find('\n'));
  ovtest::RunCapture("xdotool key --window " + window + " s");
  EXPECT_TRUE(camera.WaitForErr(".png\n", 60000));
  ovtest::RunCapture("xdotool key --window " + window + " q");
  r = camera.Finish(60000);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const size_t saved = r.err.find("saved "), end = r.err.find(".png\n");
  ASSERT_LT(saved, end) << r.err;
  const std::string shot = r.err.substr(saved + 6, end + 4 - saved - 6);
  EXPECT_EQ(ovtest::Lines(Streams(shot)), (std::vector<std::string>{"png", "video", "320", "240"}));
  fs::remove(shot);
}

// Stopped as a user does, with Ctrl-C: the file is still made.
TEST(Commands, RecordSavesTheTrimmedPartWithSoundAndTidiesItsTempFolder) {
  if (!EncoderLibraryPresent() || !AssemblyPresent())
    GTEST_SKIP() << "needs an encoder library and the muxer";
  ovtest::ScratchFolder scratch("ovclirec");
  const std::string out = scratch.Path() + "/out.mp4";
  const size_t tempBefore = TempEntries();
  CliProcess record({"record", "--trim", "1,2.5", "--system-audio", "--cursor", out});
  ASSERT_TRUE(record.WaitForErr("Recording", 60000));
  std::this_thread::sleep_for(std::chrono::milliseconds(4000));
  record.Signal(SIGINT);
  CliResult r = record.Finish(120000);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("Stopping"), std::string::npos) << r.err;
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

TEST(Commands, SoundAloneAfterACountdownIsSavedAsM4a) {
  if (!AssemblyPresent()) GTEST_SKIP() << "needs the muxer";
  ovtest::ScratchFolder scratch("ovclisnd");
  const std::string out = scratch.Path() + "/voice.m4a";
  CliResult r = RunCli({"record", "--audio-only", "--countdown", "--seconds", "2", out});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const size_t three = r.err.find("3..."), one = r.err.find("1..."), rec = r.err.find("Recording");
  EXPECT_TRUE(three < one && one < rec && rec != std::string::npos) << r.err;
  const std::string streams = Streams(out);
  EXPECT_TRUE(streams.find("aac") != std::string::npos &&
              streams.find("video") == std::string::npos)
      << streams;
  const double duration = std::atof(ovtest::Probe(out, "-show_entries format=duration").c_str());
  EXPECT_GT(duration, 1.0);
  EXPECT_LT(duration, 3.5);
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

// A shot under XTest: a dragged rectangle, one shape drawn on it, then saved.
TEST(Commands, ShotSavesTheDraggedRectangleOnceItsShapeIsDrawn) {
  ovtest::ScratchFolder scratch("ovclishot");
  const std::string out = scratch.Path() + "/shot.png";
  CliProcess shot({"shot", "--tool", "rect", out});
  ASSERT_TRUE(shot.WaitForErr("drag a rectangle", 30000));
  ovtest::RunCapture(
      "xdotool mousemove 40 30 mousedown 1 mousemove 90 90 mousemove 240 180 mouseup 1");
  ASSERT_TRUE(shot.WaitForErr("Draw 1 shape", 30000));
  EXPECT_FALSE(fs::exists(out));
  ovtest::RunCapture(
      "xdotool mousemove 60 50 mousedown 1 mousemove 90 90 mousemove 200 150 mouseup 1");
  const CliResult r = shot.Finish(30000);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(Streams(out).find("png\nvideo\n200\n150\n"), std::string::npos) << Streams(out);
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
      {{"record", "--select", "--region", "0,0,64,64", out}, "--select"},
      {{"record", "--follow", "--center", "--region", "0,0,64,64", out}, "--center"},
      {{"record", "--seconds", "-3", out}, "--seconds"},
      {{"record", "--trim", "5,2", out}, "--trim"},
      {{"record", "--audio-only", "--box", dir + "/a.m4a"}, "--box"},
      {{"record", "--audio-only", out}, ".m4a"},
      {{"record", "--fps"}, "--fps"},
      {{"record", "--codec", "gif", "--system-audio", dir + "/out.gif"}, "sound"},
      {{"record", dir + "/out.avi"}, "out.avi"},
      {{"frobnicate"}, "frobnicate"},
      {{"demo", "--seconds", "0"}, "--seconds"},
      {{"shot"}, "--copy"},
      {{"shot", dir + "/out.xyz"}, "out.xyz"},
      {{"shot", "--tool", "pen", dir + "/out.png"}, "pen"},
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

constexpr size_t kWaveHeader = 68;

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

double AudioSeconds(const std::string& file) {
  return std::atof(ovtest::Probe(file, "-select_streams a -show_entries stream=duration").c_str());
}

uint32_t U32At(const std::string& bytes, size_t offset) {
  uint32_t v = 0;
  if (offset + 4 <= bytes.size()) std::memcpy(&v, bytes.data() + offset, 4);
  return v;
}

// The wave header's lengths are what the file holds, in whole frames; every
// index entry's frame lies in the stream, and the stream ends with the last
// one: nothing torn on either side.
void ExpectTrueFiles(const std::string& folder) {
  const std::string wave = ovtest::ReadFile(folder + "/Speaker.wav");
  ASSERT_GE(wave.size(), kWaveHeader);
  const uint32_t blockAlign = static_cast<uint16_t>(U32At(wave, 32));
  ASSERT_GT(blockAlign, 0u);
  EXPECT_EQ(U32At(wave, 64), wave.size() - kWaveHeader);
  EXPECT_EQ(U32At(wave, 4), wave.size() - 8);
  EXPECT_EQ((wave.size() - kWaveHeader) % blockAlign, 0u);

  const std::string video = folder + "/ScreenCapture.h264";
  const ov::FrameIndexFile index = ovtest::ReadFrameIndex(video + ".idx");
  ASSERT_FALSE(index.entries.empty());
  EXPECT_EQ(index.fileBytes, int64_t(sizeof(ov::FrameIndexHeader) +
                                     index.entries.size() * sizeof(ov::FrameIndexEntry)));
  std::error_code ec;
  EXPECT_EQ(index.entries.back().offset + index.entries.back().size, fs::file_size(video, ec));
}

class Survival : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!EncoderLibraryPresent() || !AssemblyPresent())
      GTEST_SKIP() << "needs an encoder library and the muxer";
  }
  void TearDown() override {
    if (!m_mounted.empty()) ovtest::RunCapture("umount -l '" + m_mounted + "'");
  }

  ovtest::ScratchFolder m_scratch{"ovclisurvive"};
  const std::string m_temp = m_scratch.Path() + "/temp";
  const std::string m_out = m_scratch.Path() + "/out.mp4";
  std::string m_mounted;
};

TEST_F(Survival, XServerGoingAwayEndsTheRecordingAndTheHostAssemblesIt) {
  // A server of this test's own, since it dies.
  ovtest::XvfbServer own(640, 480);
  ASSERT_TRUE(own.Running());
  CliProcess record({"record", "--system-audio", "--temp", m_temp, m_out},
                    Environment{"DISPLAY=" + own.Display()});
  ASSERT_TRUE(record.WaitForErr("Recording", 60000));
  SleepMs(2500);
  own.End();
  CliResult r = record.Finish(120000);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("the X server went away"), std::string::npos) << r.err;
  EXPECT_NE(ovtest::Probe(m_out, "-show_entries stream=codec_type").find("video"),
            std::string::npos);
  EXPECT_GT(AudioSeconds(m_out), 0.5) << "the sound before the loss is kept";
  EXPECT_EQ(ovtest::DecodeErrors(m_out), "");
}

TEST_F(Survival, KilledRecordingIsKeptAgainstANewOneAndRecovered) {
  CliProcess record({"record", "--system-audio", "--temp", m_temp, m_out});
  ASSERT_TRUE(record.WaitForErr("Recording", 60000));
  SleepMs(3000);
  record.Signal(SIGKILL);
  ASSERT_EQ(record.Finish(10000).exitCode, 128 + SIGKILL);
  const std::string video = m_temp + "/ScreenCapture.h264", wave = m_temp + "/Speaker.wav";
  const std::string videoBefore = ovtest::ReadFile(video), waveBefore = ovtest::ReadFile(wave);
  ASSERT_GT(waveBefore.size(), kWaveHeader) << "sound reached the disk before the kill";
  EXPECT_EQ(U32At(waveBefore, 64), 0xFFFFFFFFu) << "a killed writer never finished the header";

  // A new recording into the folder leaves the leftovers alone.
  CliResult again = RunCli({"record", "--seconds", "1", "--temp", m_temp, m_out});
  EXPECT_NE(again.exitCode, 0) << again.err;
  EXPECT_NE(again.err.find("orvanta recover"), std::string::npos) << again.err;
  EXPECT_TRUE(ovtest::ReadFile(video) == videoBefore);
  EXPECT_TRUE(ovtest::ReadFile(wave) == waveBefore);
  EXPECT_FALSE(fs::exists(m_out));

  CliResult recovered = RunCli({"recover", m_temp, m_out});
  ASSERT_EQ(recovered.exitCode, 0) << recovered.err;
  ExpectTrueFiles(m_temp);
  EXPECT_EQ(ovtest::DecodeErrors(m_out), "");
  // All of the sound on the disk is in the file, and every frame.
  EXPECT_NEAR(AudioSeconds(m_out), (fs::file_size(wave) - kWaveHeader) / 192000.0, 0.1);
  EXPECT_EQ(std::atoi(ovtest::Probe(m_out,
                                    "-select_streams v -count_frames -show_entries "
                                    "stream=nb_read_frames")
                          .c_str()),
            static_cast<int>(ovtest::ReadFrameIndex(video + ".idx").entries.size()));
}

TEST_F(Survival, FullDiskStopsTheRecordingWithTrueFiles) {
  const std::string disk = m_scratch.Path() + "/small";
  fs::create_directory(disk);
  int code = -1;
  ovtest::RunCapture("mount -t tmpfs -o size=2m tmpfs '" + disk + "' 2>&1", &code);
  if (code != 0) GTEST_SKIP() << "cannot mount a small tmpfs here";
  m_mounted = disk;
  // A trim past the end keeps the command from assembling, so that the temp
  // files stay to be looked at.
  CliResult r = RunCli(
      {"record", "--system-audio", "--seconds", "20", "--trim", "19,0", "--temp", disk, m_out});
  EXPECT_NE(r.err.find("the disk of the temp folder is full"), std::string::npos) << r.err;
  ExpectTrueFiles(disk);
  // What the disk holds makes a file.
  CliResult recovered = RunCli({"recover", disk, m_out});
  EXPECT_EQ(recovered.exitCode, 0) << recovered.err;
  EXPECT_EQ(ovtest::DecodeErrors(m_out), "");
}

}  // namespace
}  // namespace clitest
