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

#include "CliProcess.h"
#include "support/FrameIndexFile.h"
#include "support/Media.h"

namespace clitest {
namespace {

namespace fs = std::filesystem;

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
