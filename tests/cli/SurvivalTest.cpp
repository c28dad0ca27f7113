// Recordings that do not end well: the X server goes away, the host is
// killed, the disk fills up. Each time what reached the disk must be kept,
// its headers must tell the truth, and the host must be able to make the
// final file from it.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

#include "CliEnvironment.h"

namespace clitest {
namespace {

namespace fs = std::filesystem;

constexpr size_t kWaveHeader = 68;
constexpr size_t kIndexHeader = 44;
constexpr size_t kIndexEntry = 24;

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// "codec_type,duration" per stream, and the frame count of the video.
std::string Streams(const std::string& file) {
  return ovtest::RunCapture(
      "ffprobe -v error -count_frames -show_entries stream=codec_type,duration,nb_read_frames "
      "-of csv=p=0 '" +
      file + "' 2>&1");
}

double StreamDuration(const std::string& file, const char* type) {
  return std::atof(ovtest::RunCapture("ffprobe -v error -select_streams " + std::string(type) +
                                      " -show_entries stream=duration -of csv=p=0 '" + file + "'")
                       .c_str());
}

size_t VideoFrames(const std::string& file) {
  return std::strtoul(ovtest::RunCapture("ffprobe -v error -select_streams v -count_frames "
                                         "-show_entries stream=nb_read_frames -of csv=p=0 '" +
                                         file + "'")
                          .c_str(),
                      nullptr, 10);
}

bool DecodesCleanly(const std::string& file) {
  int code = -1;
  std::string errors =
      ovtest::RunCapture("ffmpeg -v error -i '" + file + "' -vsync vfr -f null - 2>&1", &code);
  return code == 0 && errors.empty();
}

uint32_t U32At(const std::string& bytes, size_t offset) {
  uint32_t v = 0;
  if (offset + 4 <= bytes.size()) std::memcpy(&v, bytes.data() + offset, 4);
  return v;
}

// The wave header's data length is what the file holds, in whole frames.
void ExpectTrueWave(const std::string& path) {
  SCOPED_TRACE(path);
  const std::string wave = ovtest::ReadFile(path);
  ASSERT_GE(wave.size(), kWaveHeader);
  const uint32_t blockAlign = static_cast<uint16_t>(U32At(wave, 32));
  ASSERT_GT(blockAlign, 0u);
  EXPECT_EQ(U32At(wave, 64), wave.size() - kWaveHeader);
  EXPECT_EQ(U32At(wave, 4), wave.size() - 8);
  EXPECT_EQ((wave.size() - kWaveHeader) % blockAlign, 0u);
}

// Every index entry's frame lies in the stream, and the stream ends with
// the last one: nothing torn on either side.
void ExpectWholeFrames(const std::string& video) {
  SCOPED_TRACE(video);
  const std::string index = ovtest::ReadFile(video + ".idx");
  std::error_code ec;
  const uint64_t streamSize = fs::file_size(video, ec);
  ASSERT_GE(index.size(), kIndexHeader);
  ASSERT_EQ((index.size() - kIndexHeader) % kIndexEntry, 0u);
  uint64_t end = 0;
  for (size_t at = kIndexHeader; at < index.size(); at += kIndexEntry) {
    uint64_t offset;
    std::memcpy(&offset, index.data() + at + 8, 8);
    end = offset + U32At(index, at + 16);
  }
  EXPECT_EQ(end, streamSize);
}

class Survival : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_pulse = new ovtest::PulseServer();
    s_scene = ovtest::Spawn({OrvantaPath(), "scene"});
    s_tone = ovtest::Spawn({OrvantaPath(), "tone"});
  }
  static void TearDownTestSuite() {
    ovtest::Stop(s_tone);
    ovtest::Stop(s_scene);
    delete s_pulse;
    s_pulse = nullptr;
  }
  void SetUp() override {
    if (!EncoderLibraryPresent() || !AssemblyPresent())
      GTEST_SKIP() << "needs an encoder library and the muxer";
    ASSERT_TRUE(s_pulse->Running());
  }
  void TearDown() override {
    if (!m_mounted.empty()) ovtest::RunCapture("umount -l '" + m_mounted + "'");
  }
  // A folder on a file system of its own, this small; false where this
  // process may not mount one.
  bool MountSmallDisk(const std::string& folder, const char* size) {
    fs::create_directory(folder);
    int code = -1;
    ovtest::RunCapture(
        "mount -t tmpfs -o size=" + std::string(size) + " tmpfs '" + folder + "' 2>&1", &code);
    if (code == 0) m_mounted = folder;
    return code == 0;
  }

  static ovtest::PulseServer* s_pulse;
  static pid_t s_scene;
  static pid_t s_tone;
  ovtest::ScratchFolder m_scratch{"ovclisurvive"};
  const std::string m_temp = m_scratch.Path() + "/temp";
  const std::string m_out = m_scratch.Path() + "/out.mp4";
  std::string m_mounted;
};

ovtest::PulseServer* Survival::s_pulse = nullptr;
pid_t Survival::s_scene = -1;
pid_t Survival::s_tone = -1;

TEST_F(Survival, XServerGoingAwayEndsTheRecordingAndTheHostAssemblesIt) {
  // A server of this test's own, since it dies.
  ovtest::XvfbServer own(640, 480);
  ASSERT_TRUE(own.Running());
  CliProcess record({"record", "--system-audio", "--temp", m_temp, m_out},
                    Environment{{"DISPLAY=" + own.Display()}, {}});
  ASSERT_TRUE(record.WaitForErr("Recording", 60000));
  SleepMs(2500);
  own.End();
  CliResult r = record.Finish(120000);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("the X server went away"), std::string::npos) << r.err;
  const std::string streams = Streams(m_out);
  EXPECT_NE(streams.find("video"), std::string::npos) << streams;
  EXPECT_GT(StreamDuration(m_out, "a"), 0.5) << "the sound before the loss is kept\n" << streams;
  EXPECT_TRUE(DecodesCleanly(m_out));
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
  ExpectTrueWave(wave);
  ExpectWholeFrames(video);
  EXPECT_TRUE(DecodesCleanly(m_out));
  // All of the sound on the disk is in the file, and every frame.
  const double waveSeconds = (fs::file_size(wave) - kWaveHeader) / 192000.0;
  EXPECT_NEAR(StreamDuration(m_out, "a"), waveSeconds, 0.1) << Streams(m_out);
  const size_t frames = (fs::file_size(video + ".idx") - kIndexHeader) / kIndexEntry;
  EXPECT_EQ(VideoFrames(m_out), frames) << Streams(m_out);
}

TEST_F(Survival, FullDiskStopsTheRecordingWithTrueFiles) {
  const std::string disk = m_scratch.Path() + "/small";
  if (!MountSmallDisk(disk, "2m")) GTEST_SKIP() << "cannot mount a small tmpfs here";
  // A trim past the end keeps the command from assembling, so that the temp
  // files stay to be looked at.
  CliResult r = RunCli(
      {"record", "--system-audio", "--seconds", "20", "--trim", "19,0", "--temp", disk, m_out});
  EXPECT_NE(r.err.find("the disk of the temp folder is full"), std::string::npos) << r.err;
  ExpectTrueWave(disk + "/Speaker.wav");
  ExpectWholeFrames(disk + "/ScreenCapture.h264");
  // What the disk holds makes a file.
  CliResult recovered = RunCli({"recover", disk, m_out});
  EXPECT_EQ(recovered.exitCode, 0) << recovered.err;
  EXPECT_TRUE(DecodesCleanly(m_out));
}

}  // namespace
}  // namespace clitest
