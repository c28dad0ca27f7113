// The mux readers on wave temp files written here: pass-through, volume,
// the mix of two tracks of different formats, the trim seek, and the choice
// of tracks from the record of a recording.
#include <gtest/gtest.h>

#include <cwchar>
#include <random>

#include "AudioTestUtil.h"
#include "core/Globals.h"
#include "output/MuxAudioReader.h"
#include "platform/Files.h"
#include "support/TestEnv.h"

namespace {

using audiotest::As;
using audiotest::Bytes;
using audiotest::MakeFormat;
using ov::audio::SampleKind;

WAVEFORMATEX Wanted(SampleKind kind, int channels, uint32_t rate) {
  return MakeFormat(kind, channels, rate, false).Format;
}

// Reads to the end in steps of `step` bytes, as a muxer does.
std::vector<uint8_t> ReadAll(CMuxAudioReader& reader, uint32_t step) {
  std::vector<uint8_t> all, buffer(step);
  for (;;) {
    const uint32_t n = reader.Read(buffer.data(), step);
    if (n == 0) return all;
    all.insert(all.end(), buffer.begin(), buffer.begin() + n);
  }
}

class MuxAudioReaderTest : public ::testing::Test {
 protected:
  std::wstring Track(const char* name, const WAVEFORMATEXTENSIBLE& format,
                     const std::vector<uint8_t>& samples) {
    const std::string path = m_folder.Path() + "/" + name;
    audiotest::WriteWaveTempFile(path, format, samples);
    return ov::FromUtf8(path);
  }

  ovtest::ScratchFolder m_folder{"orvanta-muxaudio"};
};

TEST_F(MuxAudioReaderTest, SameFormatAtFullVolumeIsDeliveredBitForBit) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> level(-1, 1);
  std::vector<float> samples(48000 * 2 * 13 / 10);
  for (auto& x : samples) x = level(rng);
  const auto file = Track("Speaker.wav", MakeFormat(SampleKind::kF32, 2, 48000), Bytes(samples));

  CMuxAudioReader reader;
  ASSERT_EQ(reader.Open(file.c_str()), S_OK);
  EXPECT_EQ(reader.Duration(), 13'000'000);
  const WAVEFORMATEX wfx = Wanted(SampleKind::kF32, 2, 48000);
  ASSERT_EQ(reader.Initialize(wfx, 100), S_OK);
  EXPECT_EQ(ReadAll(reader, wfx.nAvgBytesPerSec), Bytes(samples));
  EXPECT_EQ(reader.Read(samples.data(), 64), 0u);
}

TEST_F(MuxAudioReaderTest, SixteenBitVolumeTruncatesAndWrapsWithoutLimit) {
  const std::vector<int16_t> samples = {-3, 3, 32767, -32768, 1001, -1001};
  const auto file =
      Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 1, 8000), Bytes(samples));
  const WAVEFORMATEX wfx = Wanted(SampleKind::kI16, 1, 8000);
  {
    CMuxAudioReader reader;
    ASSERT_EQ(reader.Open(file.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(wfx, 50), S_OK);
    EXPECT_EQ(As<int16_t>(ReadAll(reader, wfx.nAvgBytesPerSec)),
              (std::vector<int16_t>{-1, 1, 16383, -16384, 500, -500}));
  }
  {
    CMuxAudioReader reader;
    ASSERT_EQ(reader.Open(file.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(wfx, 300), S_OK);
    // 98301 keeps its low 16 bits.
    EXPECT_EQ(As<int16_t>(ReadAll(reader, wfx.nAvgBytesPerSec)),
              (std::vector<int16_t>{-9, 9, 32765, -32768, 3003, -3003}));
  }
}

TEST_F(MuxAudioReaderTest, VolumeCoversReadsThatCrossConvertedBlocks) {
  std::vector<int16_t> samples(44100 * 2 * 3);
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> value(-32768, 32767);
  for (auto& s : samples) s = static_cast<int16_t>(value(rng));
  const auto file = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 2, 44100), Bytes(samples));
  const WAVEFORMATEX wfx = Wanted(SampleKind::kF32, 2, 48000);
  // Reads of 0.7 s against blocks of one second of the file.
  const uint32_t step = wfx.nAvgBytesPerSec * 7 / 10;

  CMuxAudioReader full, half;
  ASSERT_EQ(full.Open(file.c_str()), S_OK);
  ASSERT_EQ(full.Initialize(wfx, 100), S_OK);
  ASSERT_EQ(half.Open(file.c_str()), S_OK);
  ASSERT_EQ(half.Initialize(wfx, 50), S_OK);
  const auto a = As<float>(ReadAll(full, step));
  const auto b = As<float>(ReadAll(half, step));
  ASSERT_EQ(a.size(), 48000u * 2 * 3);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) ASSERT_EQ(b[i], a[i] * 0.5f) << "sample " << i;
}

TEST_F(MuxAudioReaderTest, TwoTracksMixAndEndWithTheShorter) {
  const int rate = 8000;
  std::vector<float> speaker, mic;
  for (int i = 0; i < rate * 10; ++i) speaker.insert(speaker.end(), {1.2f, -1.2f});
  for (int i = 0; i < rate * 7; ++i) mic.insert(mic.end(), {1.2f, -1.2f});
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kF32, 2, rate), Bytes(speaker));
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kF32, 2, rate), Bytes(mic));

  CMuxAudioReader2 reader;
  ASSERT_EQ(reader.Open(out.c_str(), in.c_str()), S_OK);
  const WAVEFORMATEX wfx = Wanted(SampleKind::kF32, 2, rate);
  ASSERT_EQ(reader.Initialize(wfx, 100, 100), S_OK);
  const auto mixed = As<float>(ReadAll(reader, wfx.nAvgBytesPerSec));
  ASSERT_EQ(mixed.size(), static_cast<size_t>(rate) * 7 * 2);
  // 2.4 / 1.5 is cut to full scale, and so is its negative.
  for (size_t i = 0; i < mixed.size(); i += 2) {
    ASSERT_EQ(mixed[i], 1.0f);
    ASSERT_EQ(mixed[i + 1], -1.0f);
  }
}

TEST_F(MuxAudioReaderTest, SixteenBitMixAmplifiesAndLimits) {
  const std::vector<int16_t> a = {30000, 1000, -3, -30000, 7};
  const std::vector<int16_t> b = {30000, 2000, 0, -30000, -7};
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 1, 8000), Bytes(a));
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 1, 8000, false), Bytes(b));
  CMuxAudioReader2 reader;
  ASSERT_EQ(reader.Open(out.c_str(), in.c_str()), S_OK);
  const WAVEFORMATEX wfx = Wanted(SampleKind::kI16, 1, 8000);
  ASSERT_EQ(reader.Initialize(wfx, 100, 100), S_OK);
  EXPECT_EQ(As<int16_t>(ReadAll(reader, wfx.nAvgBytesPerSec)),
            (std::vector<int16_t>{32767, 4500, -4, -32768, 0}));
}

// A 48,000 Hz float device and a 44,100 Hz 16-bit microphone, each with its
// own converter to the common format.
TEST_F(MuxAudioReaderTest, TracksOfDifferentFormatsMixWithBothTonesAtTheirLevel) {
  const auto tone440 = audiotest::Sine(440, 0.3, 48000, 48000 * 3);
  std::vector<float> speaker;
  for (float x : tone440) speaker.insert(speaker.end(), {x, x});
  const auto tone1k = audiotest::Sine(1000, 0.3, 44100, 44100 * 2);
  std::vector<int16_t> mic;
  for (float x : tone1k) {
    const auto s = static_cast<int16_t>(std::lrint(x * 32767));
    mic.insert(mic.end(), {s, s});
  }
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kF32, 2, 48000), Bytes(speaker));
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 2, 44100), Bytes(mic));

  CMuxAudioReader2 reader;
  ASSERT_EQ(reader.Open(out.c_str(), in.c_str()), S_OK);
  const WAVEFORMATEX wfx = Wanted(SampleKind::kF32, 2, 48000);
  ASSERT_EQ(reader.Initialize(wfx, 100, 100), S_OK);
  const auto mixed = As<float>(ReadAll(reader, wfx.nAvgBytesPerSec));
  ASSERT_EQ(mixed.size(), 48000u * 2 * 2);  // the microphone's two seconds
  const auto left = audiotest::Channel(mixed, 2, 0);
  const double a440 = audiotest::AmplitudeAt(left, 48000, 440, 48000);
  const double a1k = audiotest::AmplitudeAt(left, 48000, 1000, 48000);
  EXPECT_NEAR(a440, 0.2, 0.0005);
  EXPECT_NEAR(a1k, 0.2, 0.002);
}

// Frame i of a ramp track holds i and -i.
std::vector<int16_t> Ramp(int frames) {
  std::vector<int16_t> v;
  for (int i = 0; i < frames; ++i)
    v.insert(v.end(), {static_cast<int16_t>(i), static_cast<int16_t>(-i)});
  return v;
}

TEST_F(MuxAudioReaderTest, TrimStartInsideAFrameStartsAtThatFrameInBothFiles) {
  const auto ramp = Bytes(Ramp(16000));
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 2, 8000), ramp);
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 2, 8000), ramp);
  // 32,000 bytes a second x 1.2345678 s = byte 39,506.2, inside frame 9,876.
  const REFERENCE_TIME start = 12'345'678;
  {
    CMuxAudioReader reader;
    ASSERT_EQ(reader.Open(out.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(Wanted(SampleKind::kI16, 2, 8000), 100), S_OK);
    EXPECT_TRUE(SeekMuxAudioReader(&reader, start));
    int16_t frame[2];
    ASSERT_EQ(reader.Read(frame, 4), 4u);
    EXPECT_EQ(frame[0], 9876);
    EXPECT_EQ(frame[1], -9876);
  }
  {
    CMuxAudioReader2 reader;
    ASSERT_EQ(reader.Open(out.c_str(), in.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(Wanted(SampleKind::kI16, 2, 8000), 100, 100), S_OK);
    EXPECT_TRUE(SeekMuxAudioReader(&reader, start));
    EXPECT_EQ(reader.m_Reader2.Position(), 9876 * 4);
    int16_t frame[2];
    ASSERT_EQ(reader.Read(frame, 4), 4u);
    EXPECT_EQ(frame[0], 9876 * 2 * 3 / 2);
    EXPECT_EQ(frame[1], -9876 * 2 * 3 / 2);
  }
  {
    // Through a converter the seek still lands on the file's own frame.
    CMuxAudioReader reader;
    ASSERT_EQ(reader.Open(out.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(Wanted(SampleKind::kF32, 2, 8000), 100), S_OK);
    EXPECT_TRUE(SeekMuxAudioReader(&reader, start));
    float frame[2];
    ASSERT_EQ(reader.Read(frame, 8), 8u);
    EXPECT_EQ(frame[0], 9876.0f / 32767.0f);
  }
}

TEST_F(MuxAudioReaderTest, TrimStartBeyondTheEndReadsNothing) {
  const auto file = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 2, 8000), Bytes(Ramp(8000)));
  for (bool convert : {false, true}) {
    CMuxAudioReader reader;
    ASSERT_EQ(reader.Open(file.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(Wanted(convert ? SampleKind::kF32 : SampleKind::kI16, 2, 8000), 50),
              S_OK);
    EXPECT_FALSE(SeekMuxAudioReader(&reader, 10'000'000));  // exactly the end
    uint8_t buffer[64];
    EXPECT_EQ(reader.Read(buffer, sizeof buffer), 0u);
  }
}

TEST_F(MuxAudioReaderTest, UnfinishedFilesAndUnsupportedFormatsAreRefusedWithTheirLines) {
  const auto good = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 2, 8000), Bytes(Ramp(800)));
  // A writer that died leaves its header room unwritten.
  const std::string crashed = m_folder.Path() + "/AudioCapture.wav";
  ovtest::WriteFile(crashed, std::string(68 + 3200, '\0'));
  {
    ovtest::LogMark mark;
    CMuxAudioReader2 reader;
    EXPECT_EQ(reader.Open(good.c_str(), ov::FromUtf8(crashed).c_str()), E_FAIL);
    const std::string log = mark.Text();
    EXPECT_NE(log.find("[ERR]  Error format:" + crashed + "\n"), std::string::npos) << log;
    EXPECT_NE(log.find("[ERR]  Failed(0x80004005) in m_Reader2.Open(szWaveFile2), "
                       "FILE:MuxAudioReader.cpp, LINE:"),
              std::string::npos)
        << log;
  }
  {
    ovtest::LogMark mark;
    CMuxAudioReader2 reader;
    ASSERT_EQ(reader.Open(good.c_str(), good.c_str()), S_OK);
    EXPECT_EQ(reader.Initialize(Wanted(SampleKind::kU8, 2, 8000), 100, 100), E_FAIL);
    EXPECT_NE(mark.Text().find("[ERR]  Audio Mux: Can't Support audio convert!\n"),
              std::string::npos)
        << mark.Text();
  }
}

// A muxer that wants float stereo at 48,000 Hz and notes what it was asked.
class FloatStereoMuxer : public CMuxAudioReaderFormat {
 public:
  void ChooseAudioFormat(const WAVEFORMATEXTENSIBLE* pSourceFormat,
                         WAVEFORMATEX* pWantedFormat) override {
    m_source = *pSourceFormat;
    *pWantedFormat = Wanted(SampleKind::kF32, 2, 48000);
    ++m_nCalls;
  }
  WAVEFORMATEXTENSIBLE m_source{};
  int m_nCalls = 0;
};

class CreateMuxAudioReaderTest : public MuxAudioReaderTest {
 protected:
  void SetUp() override {
    m_speaker = Track("Speaker.wav", MakeFormat(SampleKind::kF32, 2, 48000),
                      Bytes(std::vector<float>(48000 * 2, 0.25f)));
    m_mic = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 1, 44100),
                  Bytes(std::vector<int16_t>(22050, 16384)));
    m_record.bWaveOutStream = m_record.bUseWaveOut = 1;
    m_record.bWaveInStream = m_record.bUseWaveIn = 1;
    m_record.lWaveOutVolume = m_record.lWaveInVolume = 100;
    std::wcsncpy(m_record.szWaveOutFile, m_speaker.c_str(), OV_MAX_PATH - 1);
    std::wcsncpy(m_record.szWaveInFile, m_mic.c_str(), OV_MAX_PATH - 1);
    g_Recording = &m_record;
  }
  void TearDown() override { g_Recording = nullptr; }

  std::wstring m_speaker, m_mic;
  CapturedFile m_record{};
  FloatStereoMuxer m_muxer;
};

TEST_F(CreateMuxAudioReaderTest, BothTracksGiveAMixChosenFromTheSpeakerFormat) {
  auto reader = m_muxer.CreateMuxAudioReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_NE(dynamic_cast<CMuxAudioReader2*>(reader.get()), nullptr);
  EXPECT_EQ(m_muxer.m_nCalls, 1);
  EXPECT_EQ(m_muxer.m_source.Format.nSamplesPerSec, 48000u);
  // Half a second of microphone ends the mix.
  EXPECT_EQ(ReadAll(*reader, 48000 * 8).size(), 48000u * 8 / 2);
}

TEST_F(CreateMuxAudioReaderTest, VolumeZeroTakesATrackOut) {
  m_record.lWaveOutVolume = 0;
  auto reader = m_muxer.CreateMuxAudioReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(dynamic_cast<CMuxAudioReader2*>(reader.get()), nullptr);
  EXPECT_EQ(m_muxer.m_source.Format.nSamplesPerSec, 44100u);
  const auto samples = As<float>(ReadAll(*reader, 48000 * 8));
  ASSERT_EQ(samples.size(), 24000u * 2);
  EXPECT_NEAR(samples[1000], 16384.0f / 32767.0f, 1e-6);

  m_record.lWaveOutVolume = 100;
  m_record.bUseWaveIn = 0;
  reader = m_muxer.CreateMuxAudioReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(dynamic_cast<CMuxAudioReader2*>(reader.get()), nullptr);
  EXPECT_EQ(As<float>(ReadAll(*reader, 48000 * 8)), std::vector<float>(48000 * 2, 0.25f));
}

TEST_F(CreateMuxAudioReaderTest, NoUsableTrackGivesNullAndTheSixValues) {
  m_record.lWaveOutVolume = 0;
  m_record.lWaveInVolume = 0;
  {
    ovtest::LogMark mark;
    EXPECT_EQ(m_muxer.CreateMuxAudioReader(), nullptr);
    EXPECT_NE(mark.Text().find("[ERR]  CreateMuxAudioReader: WaveOut(Stream1, Use1, Volume0), "
                               "WaveIn(Stream1, Use1, Volume0)\n"),
              std::string::npos)
        << mark.Text();
  }
  EXPECT_EQ(m_muxer.m_nCalls, 0);
}

TEST_F(CreateMuxAudioReaderTest, MissingFileGivesNull) {
  std::wcsncpy(m_record.szWaveInFile, (m_folder.WidePath() + L"/gone.wav").c_str(),
               OV_MAX_PATH - 1);
  ovtest::LogMark mark;
  EXPECT_EQ(m_muxer.CreateMuxAudioReader(), nullptr);
  EXPECT_NE(mark.Text().find("[ERR]  Failed(2) to create file:" + m_folder.Path() + "/gone.wav\n"),
            std::string::npos)
      << mark.Text();
}

}  // namespace
