#include "AudioTestUtil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "audio/WaveEncoder.h"
#include "audio/convert/ConvertFunctions.h"
#include "core/Log.h"
#include "platform/Text.h"
#include "support/TestEnv.h"

namespace audiotest {

WAVEFORMATEXTENSIBLE MakeFormat(SampleKind kind, int channels, uint32_t rate, bool extensible) {
  WAVEFORMATEXTENSIBLE f{};
  const int bits = ov::audio::BytesPerSample(kind) * 8;
  const bool isFloat = kind == SampleKind::kF32;
  f.Format.wFormatTag =
      extensible ? WAVE_FORMAT_EXTENSIBLE : (isFloat ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM);
  f.Format.nChannels = static_cast<WORD>(channels);
  f.Format.nSamplesPerSec = rate;
  f.Format.wBitsPerSample = static_cast<WORD>(bits);
  f.Format.nBlockAlign = static_cast<WORD>(bits / 8 * channels);
  f.Format.nAvgBytesPerSec = f.Format.nBlockAlign * rate;
  if (extensible) {
    f.Format.cbSize = 22;
    f.Samples.wValidBitsPerSample = static_cast<WORD>(bits);
    f.dwChannelMask = channels == 2 ? 3 : 0;
    f.SubFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
  }
  return f;
}

std::vector<uint8_t> RunMember(SampleKind from, int fromChannels, SampleKind to, int toChannels,
                               const std::vector<uint8_t>& input) {
  auto fn = ov::audio::FindConvertFunction(from, fromChannels, to, toChannels);
  EXPECT_NE(fn, nullptr);
  if (!fn) return {};
  const size_t frames = input.size() / (ov::audio::BytesPerSample(from) * fromChannels);
  std::vector<uint8_t> out(frames * ov::audio::BytesPerSample(to) * toChannels + 64);
  const int32_t n = fn(out.data(), input.data(), static_cast<int32_t>(input.size()));
  out.resize(static_cast<size_t>(n));
  return out;
}

namespace {

class LogEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    setenv("XDG_DOCUMENTS_DIR", m_folder.Path().c_str(), 1);
    ASSERT_GE(ov::OpenLogFile(), 0);
  }

 private:
  ovtest::ScratchFolder m_folder{"orvanta-audiolog"};
};

[[maybe_unused]] auto* const g_logEnvironment =
    ::testing::AddGlobalTestEnvironment(new LogEnvironment);

}  // namespace

void WriteWaveTempFile(const std::string& path, const WAVEFORMATEXTENSIBLE& format,
                       const std::vector<uint8_t>& samples) {
  CWaveEncoder writer;
  ASSERT_EQ(writer.Initialize(ov::FromUtf8(path).c_str(), &format), S_OK);
  if (!samples.empty()) {
    ASSERT_EQ(writer.Write(samples.data(), static_cast<uint32_t>(samples.size())), S_OK);
  }
}

}  // namespace audiotest
