// Wave temp files written and read back by the engine's own pair, and
// checked against what ffprobe and ffmpeg make of them.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string>

#include "AudioTools.h"
#include "audio/WaveEncoder.h"
#include "audio/WaveReader.h"
#include "support/Engine.h"

namespace {

constexpr uint32_t kBuffer = CWaveEncoder::kBufferSize;
constexpr uint32_t kHeader = 68;

// Bytes whose value tells their offset, so that a misplaced block shows.
std::vector<uint8_t> Pattern(size_t size) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 7 + i / 251) & 0xFF);
  return bytes;
}

uint32_t U32At(const std::string& s, size_t offset) {
  uint32_t v;
  std::memcpy(&v, s.data() + offset, 4);
  return v;
}

class WaveFileTest : public ::testing::Test {
 protected:
  std::string PathOf(const char* name) const { return m_folder.Path() + "/" + name; }
  std::wstring WideOf(const char* name) const {
    return std::filesystem::path(PathOf(name)).wstring();
  }
  static uint64_t SizeOf(const std::string& path) { return std::filesystem::file_size(path); }
  ovtest::ScratchFolder m_folder{"ovwave"};
};

TEST_F(WaveFileTest, SamplesReachTheDiskEveryTenthOfASecondAndReadBackExactly) {
  const WAVEFORMATEXTENSIBLE format = ovtest::StereoS16(48000);
  const std::string path = PathOf("pattern.wav");
  const std::vector<uint8_t> data = Pattern(3 * kBuffer + 1000);
  {
    CWaveEncoder encoder;
    ASSERT_EQ(encoder.Initialize(WideOf("pattern.wav").c_str(), &format), S_OK);
    const uint32_t tenth = format.Format.nAvgBytesPerSec / 10;
    // Device packets of 10 ms, then odd blocks, one longer than the buffer:
    // what waits in memory never reaches a tenth of a second.
    size_t at = 0;
    for (uint32_t block : {1920u, 4000u, 1021u * 4, kBuffer + 332u, 77776u}) {
      for (int i = 0; i < 40 && at + block <= data.size(); ++i) {
        ASSERT_EQ(encoder.Write(data.data() + at, block), S_OK);
        at += block;
        ASSERT_LT(at + kHeader - SizeOf(path), tenth + block) << "after " << at << " bytes";
        ASSERT_EQ((SizeOf(path) - kHeader) % 4, 0u) << "only whole sample frames on the disk";
      }
    }
    encoder.Write(data.data() + at, static_cast<uint32_t>(data.size() - at));
  }
  const std::string header = ovtest::ReadFile(path).substr(0, kHeader);
  EXPECT_EQ(U32At(header, 64), data.size());
  EXPECT_EQ(U32At(header, 4), data.size() + 60);
  const std::string probe = ovtest::Probe(WideOf("pattern.wav"));
  EXPECT_EQ(probe.rfind("pcm_s16le,48000,2,", 0), 0u) << probe;
  EXPECT_NEAR(std::stod(probe.substr(probe.rfind(',') + 1)), data.size() / 192000.0, 1e-3);

  CWaveReader reader;
  ASSERT_EQ(reader.Open(WideOf("pattern.wav").c_str()), S_OK);
  EXPECT_EQ(reader.Duration(), static_cast<REFERENCE_TIME>(data.size() * 10000000ull / 192000));
  std::vector<uint8_t> back(data.size());
  size_t got = 0;
  while (uint32_t n = reader.Read(back.data() + got, 100000)) got += n;
  EXPECT_EQ(got, data.size());
  EXPECT_TRUE(back == data);
  EXPECT_TRUE(reader.IsEndOfFile());

  // Into the middle of frame 1000: back to its start, and the end cleared.
  EXPECT_NE(reader.Seek(1000 * 10000000ll / 48000 + 100), 0);
  EXPECT_FALSE(reader.IsEndOfFile());
  uint8_t frame[4];
  ASSERT_EQ(reader.Read(frame, 4), 4u);
  EXPECT_EQ(std::memcmp(frame, data.data() + 4000, 4), 0);
  // The first instant whose byte position is the data length lies outside.
  EXPECT_EQ(reader.Seek((static_cast<REFERENCE_TIME>(data.size()) * 10000000 + 191999) / 192000),
            0);
  EXPECT_EQ(reader.Read(frame, 4), 0u);
}

TEST_F(WaveFileTest, WriterKilledBeforeItsFinishLosesAtMostATenthOfASecond) {
  const WAVEFORMATEXTENSIBLE format = ovtest::StereoS16(48000);
  const uint32_t packet = 1920;  // 10 ms
  const std::vector<uint8_t> data = Pattern(packet * 500);
  struct Case {
    const char* name;
    uint32_t packets;
  };
  for (const Case& c : {Case{"early.wav", 2}, Case{"late.wav", 427}}) {
    SCOPED_TRACE(c.name);
    const std::wstring path = WideOf(c.name);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      auto* encoder = new CWaveEncoder();  // never finished
      encoder->Initialize(path.c_str(), &format);
      for (uint32_t i = 0; i < c.packets; ++i) encoder->Write(data.data() + i * packet, packet);
      raise(SIGKILL);
      _exit(1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));

    const ovtest::WaveContent wave = ovtest::ReadWave(path);
    ASSERT_TRUE(wave.opened);
    EXPECT_EQ(std::memcmp(&wave.format, &format, sizeof format), 0);
    const size_t written = static_cast<size_t>(c.packets) * packet;
    ASSERT_LE(wave.data.size(), written);
    EXPECT_LT(written - wave.data.size(), 19200u) << "lost more than a tenth of a second";
    EXPECT_EQ(wave.data.size() % packet, 0u) << "the file ends between two packets";
    EXPECT_TRUE(std::equal(wave.data.begin(), wave.data.end(), data.begin()));
    const std::string header = ovtest::ReadFile(PathOf(c.name)).substr(0, kHeader);
    EXPECT_EQ(U32At(header, 64), 0xFFFFFFFFu) << "an unfinished file says its length is unknown";
    // Other readers take the unknown length as "to the end of the file".
    const std::string decoded =
        ovtest::RunCapture("ffmpeg -v error -i '" + PathOf(c.name) + "' -f s16le - 2>/dev/null");
    EXPECT_EQ(decoded.size(), wave.data.size());
    EXPECT_EQ(std::memcmp(decoded.data(), data.data(), std::min(decoded.size(), data.size())), 0);
  }
}

TEST_F(WaveFileTest, LengthsPast4GiBComeFromTheFileSize) {
  const WAVEFORMATEXTENSIBLE format = ovtest::StereoS16(48000);
  {
    CWaveEncoder encoder;
    ASSERT_EQ(encoder.Initialize(WideOf("big.wav").c_str(), &format), S_OK);
    encoder.Write(Pattern(64).data(), 64);
  }
  const uint64_t data = (5ull << 30) + 4;
  std::filesystem::resize_file(PathOf("big.wav"), data + kHeader);  // sparse
  CWaveReader reader;
  ASSERT_EQ(reader.Open(WideOf("big.wav").c_str()), S_OK);
  EXPECT_EQ(reader.DataLength(), static_cast<int64_t>(data));
  EXPECT_NE(reader.Seek(27000ll * 10000000), 0);
  EXPECT_EQ(reader.Position(), 27000ll * 192000) << "a position past 4 GiB";
}

}  // namespace
