// The mux readers on wave temp files written here: pass-through, volume,
// the mix of two tracks of different formats, the trim seek, and the choice
// of tracks from the record of a recording.
#include <gtest/gtest.h>

#include <cmath>
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
  while (const uint32_t n = reader.Read(buffer.data(), step))
    all.insert(all.end(), buffer.begin(), buffer.begin() + n);
  return all;
}

class MuxAudioReaderTest : public ::testing::Test {
 protected:
  std::wstring Track(const char* name, const WAVEFORMATEXTENSIBLE& format,
                     const std::vector<uint8_t>& samples) {
    const std::string path = m_folder.Path() + "/" + name;
    audiotest::WriteWaveTempFile(path, format, samples);
    return ov::FromUtf8(path);
  }
  // One track at a volume, read whole in steps of a second of the wanted format.
  std::vector<uint8_t> ReadOne(const std::wstring& file, const WAVEFORMATEX& wanted, int volume) {
    CMuxAudioReader reader;
    EXPECT_EQ(reader.Open(file.c_str()), S_OK);
    EXPECT_EQ(reader.Initialize(wanted, volume), S_OK);
    return ReadAll(reader, wanted.nAvgBytesPerSec);
  }
  std::vector<uint8_t> ReadMix(const std::wstring& out, const std::wstring& in,
                               const WAVEFORMATEX& wanted) {
    CMuxAudioReader2 reader;
    EXPECT_EQ(reader.Open(out.c_str(), in.c_str()), S_OK);
    EXPECT_EQ(reader.Initialize(wanted, 100, 100), S_OK);
    return ReadAll(reader, wanted.nAvgBytesPerSec);
  }

  ovtest::ScratchFolder m_folder{"orvanta-muxaudio"};
};

TEST_F(MuxAudioReaderTest, VolumeScalesEverySampleAcrossConvertedBlocks) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> level(-1, 1);
  std::vector<float> samples(48000 * 2 * 13 / 10);
  for (auto& x : samples) x = level(rng);
  const auto same = Track("Speaker.wav", MakeFormat(SampleKind::kF32, 2, 48000), Bytes(samples));
  EXPECT_EQ(ReadOne(same, Wanted(SampleKind::kF32, 2, 48000), 100), Bytes(samples))
      << "the same format at full volume passes bit for bit";

  std::vector<int16_t> pcm(44100 * 2 * 3);
  std::uniform_int_distribution<int> value(-32768, 32767);
  for (auto& s : pcm) s = static_cast<int16_t>(value(rng));
  const auto file = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 2, 44100), Bytes(pcm));
  const WAVEFORMATEX wfx = Wanted(SampleKind::kF32, 2, 48000);
  // Reads of 0.7 s against blocks of one second of the file.
  CMuxAudioReader full, half;
  ASSERT_EQ(full.Open(file.c_str()), S_OK);
  ASSERT_EQ(full.Initialize(wfx, 100), S_OK);
  ASSERT_EQ(half.Open(file.c_str()), S_OK);
  ASSERT_EQ(half.Initialize(wfx, 50), S_OK);
  const auto a = As<float>(ReadAll(full, wfx.nAvgBytesPerSec * 7 / 10));
  const auto b = As<float>(ReadAll(half, wfx.nAvgBytesPerSec * 7 / 10));
  ASSERT_EQ(a.size(), 48000u * 2 * 3);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) ASSERT_EQ(b[i], a[i] * 0.5f) << "sample " << i;
}

TEST_F(MuxAudioReaderTest, SixteenBitVolumeWrapsAndTheMixLimits) {
  const std::vector<int16_t> a = {30000, 1000, -3, -30000, 7};
  const std::vector<int16_t> b = {30000, 2000, 0, -30000, -7};
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 1, 8000), Bytes(a));
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 1, 8000, false), Bytes(b));
  const WAVEFORMATEX wfx = Wanted(SampleKind::kI16, 1, 8000);
  EXPECT_EQ(As<int16_t>(ReadOne(out, wfx, 50)), (std::vector<int16_t>{15000, 500, -1, -15000, 3}))
      << "truncated towards zero";
  // 90000 keeps its low 16 bits.
  EXPECT_EQ(As<int16_t>(ReadOne(out, wfx, 300)),
            (std::vector<int16_t>{24464, 3000, -9, -24464, 21}));
  EXPECT_EQ(As<int16_t>(ReadMix(out, in, wfx)), (std::vector<int16_t>{32767, 4500, -4, -32768, 0}));
}

// A 48,000 Hz float device and a 44,100 Hz 16-bit microphone, each with its
// own converter: each tone keeps its level in the mix, found by correlation
// over one second (whole cycles of both).
TEST_F(MuxAudioReaderTest, TracksOfDifferentFormatsMixWithBothTonesAtTheirLevel) {
  auto sine = [](double f, uint32_t rate, size_t n) {
    std::vector<float> x(n);
    for (size_t i = 0; i < n; ++i)
      x[i] = static_cast<float>(0.3 * std::sin(2 * M_PI * f * i / rate));
    return x;
  };
  std::vector<int16_t> mic;
  for (float x : sine(1000, 44100, 44100 * 2))
    mic.push_back(static_cast<int16_t>(std::lrint(x * 32767)));
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kF32, 1, 48000),
                         Bytes(sine(440, 48000, 48000 * 3)));
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 1, 44100), Bytes(mic));
  const auto mixed = As<float>(ReadMix(out, in, Wanted(SampleKind::kF32, 1, 48000)));
  ASSERT_EQ(mixed.size(), 48000u * 2);  // the microphone's two seconds
  for (const double f : {440.0, 1000.0}) {
    double s = 0, c = 0;
    for (size_t i = 0; i < 48000; ++i) {
      s += mixed[i] * std::sin(2 * M_PI * f * i / 48000);
      c += mixed[i] * std::cos(2 * M_PI * f * i / 48000);
    }
    EXPECT_NEAR(std::hypot(s, c) * 2 / 48000, 0.2, 0.002) << f << " Hz";
  }
}

TEST_F(MuxAudioReaderTest, TrimSeekLandsOnTheFilesOwnFrameOrPastTheEnd) {
  // Frame i of the ramp holds i and -i.
  std::vector<int16_t> ramp;
  for (int16_t i = 0; i < 16000; ++i) ramp.insert(ramp.end(), {i, static_cast<int16_t>(-i)});
  const auto out = Track("Speaker.wav", MakeFormat(SampleKind::kI16, 2, 8000), Bytes(ramp));
  const auto in = Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 2, 8000), Bytes(ramp));
  // 32,000 bytes a second x 1.2345678 s = byte 39,506.2, inside frame 9,876.
  const REFERENCE_TIME start = 12'345'678;
  for (SampleKind kind : {SampleKind::kI16, SampleKind::kF32}) {
    CMuxAudioReader reader, late;
    ASSERT_EQ(reader.Open(out.c_str()), S_OK);
    ASSERT_EQ(reader.Initialize(Wanted(kind, 2, 8000), 100), S_OK);
    EXPECT_TRUE(SeekMuxAudioReader(&reader, start));
    float frame[2];
    ASSERT_EQ(reader.Read(frame, 4), 4u);
    if (kind == SampleKind::kI16)
      EXPECT_EQ(As<int16_t>(reinterpret_cast<uint8_t*>(frame), 4),
                (std::vector<int16_t>{9876, -9876}));
    else
      EXPECT_EQ(frame[0], 9876.0f / 32767.0f);
    // Seeks come before any read: a fresh reader for the end.
    ASSERT_EQ(late.Open(out.c_str()), S_OK);
    ASSERT_EQ(late.Initialize(Wanted(kind, 2, 8000), 100), S_OK);
    EXPECT_FALSE(SeekMuxAudioReader(&late, 20'000'000)) << "exactly the end";
    EXPECT_EQ(late.Read(frame, sizeof frame), 0u);
  }
  CMuxAudioReader2 mix;
  ASSERT_EQ(mix.Open(out.c_str(), in.c_str()), S_OK);
  ASSERT_EQ(mix.Initialize(Wanted(SampleKind::kI16, 2, 8000), 100, 100), S_OK);
  EXPECT_TRUE(SeekMuxAudioReader(&mix, start));
  EXPECT_EQ(mix.m_Reader2.Position(), 9876 * 4) << "both files";
  int16_t frame[2];
  ASSERT_EQ(mix.Read(frame, 4), 4u);
  EXPECT_EQ(frame[0], 9876 * 2 * 3 / 2);
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

// The record of a recording chooses the tracks: those in use at a volume
// above zero, mixed when both are.
TEST_F(MuxAudioReaderTest, CreateReadsTheTracksInUseAtAVolume) {
  CapturedFile record{};
  record.bWaveOutStream = record.bUseWaveOut = record.bWaveInStream = record.bUseWaveIn = 1;
  record.lWaveOutVolume = record.lWaveInVolume = 100;
  std::wcsncpy(record.szWaveOutFile,
               Track("Speaker.wav", MakeFormat(SampleKind::kF32, 2, 48000),
                     Bytes(std::vector<float>(48000 * 2, 0.25f)))
                   .c_str(),
               OV_MAX_PATH - 1);
  std::wcsncpy(record.szWaveInFile,
               Track("AudioCapture.wav", MakeFormat(SampleKind::kI16, 1, 44100),
                     Bytes(std::vector<int16_t>(22050, 16384)))
                   .c_str(),
               OV_MAX_PATH - 1);
  g_Recording = &record;
  FloatStereoMuxer muxer;
  auto reader = muxer.CreateMuxAudioReader();
  ASSERT_NE(dynamic_cast<CMuxAudioReader2*>(reader.get()), nullptr) << "both: a mix";
  EXPECT_EQ(muxer.m_source.Format.nSamplesPerSec, 48000u) << "chosen from the speaker's format";
  EXPECT_EQ(ReadAll(*reader, 48000 * 8).size(), 48000u * 8 / 2) << "the microphone's half second";

  record.lWaveOutVolume = 0;
  reader = muxer.CreateMuxAudioReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(dynamic_cast<CMuxAudioReader2*>(reader.get()), nullptr);
  EXPECT_EQ(muxer.m_source.Format.nSamplesPerSec, 44100u);
  const auto voice = As<float>(ReadAll(*reader, 48000 * 8));
  ASSERT_EQ(voice.size(), 24000u * 2);
  EXPECT_NEAR(voice[1000], 16384.0f / 32767.0f, 1e-6);

  record.lWaveOutVolume = 100;
  record.bUseWaveIn = 0;
  reader = muxer.CreateMuxAudioReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(As<float>(ReadAll(*reader, 48000 * 8)), std::vector<float>(48000 * 2, 0.25f));

  const ovtest::LogMark mark;
  record.lWaveOutVolume = 0;
  EXPECT_EQ(muxer.CreateMuxAudioReader(), nullptr);
  EXPECT_EQ(muxer.m_nCalls, 3) << "nothing to choose from";
  record.lWaveOutVolume = 100;
  std::wcsncpy(record.szWaveOutFile, (m_folder.WidePath() + L"/gone.wav").c_str(), OV_MAX_PATH - 1);
  EXPECT_EQ(muxer.CreateMuxAudioReader(), nullptr);
  g_Recording = nullptr;
  const std::string log = mark.Text();
  EXPECT_NE(log.find("[ERR]  CreateMuxAudioReader: WaveOut(Stream1, Use1, Volume0), "
                     "WaveIn(Stream1, Use0, Volume100)\n"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("[ERR]  Failed(2) to create file:" + m_folder.Path() + "/gone.wav\n"),
            std::string::npos)
      << log;
}

}  // namespace
