// Audio-only recordings with the live analysers attached: a known tone is
// played into a float sink, and the blocks, levels and bands the host gets
// must describe it; the temp files then assemble like a screen recording's.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AudioTools.h"
#include "orvanta/orvanta.h"
#include "output/AudioAnalysers.h"
#include "platform/Text.h"
#include "support/Doubles.h"
#include "support/Engine.h"

namespace {

constexpr ovtest::RawFormat kFloatSink{"float32le", 48000, 2};

// Feeds each block to a meter and a spectrogram, and keeps what they say.
class Analysis : public CAudioCallback, public VolumeMeasureCallback, public SpectrogramCallback {
 public:
  void OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) override {
    blocks.push_back(nFrames);
    types.push_back(type);
    meter->OnAudioData(type, pSamples, nFrames);
    spectrogram->OnAudioData(type, pSamples, nFrames);
  }
  void OnVolume(int32_t, float level) override { levels.push_back(level); }
  void OnSpectrum(int32_t, const float* pBands) override {
    spectra.emplace_back(pBands, pBands + CSpectrogram::kBands);
  }
  CVolumeMeasureObject* meter = CreateVolumeMeasureObject(this);
  CSpectrogramObject* spectrogram = CreateSpectrogramObject(this);
  std::vector<uint32_t> blocks;
  std::vector<int32_t> types;
  std::vector<float> levels;
  std::vector<std::vector<float>> spectra;
};

TEST(AudioRecorderTest, ToneReachesMeterSpectrogramAndMux) {
  ovtest::ScratchFolder folder{"ovaudioonly"};
  const std::string module = ovtest::RunCapture(
      "pactl load-module module-null-sink sink_name=floatsink format=float32le rate=48000 "
      "channels=2 2>&1");
  ASSERT_GT(std::atoi(module.c_str()), 0) << module;
  ovtest::RunCapture("pactl set-default-sink floatsink");

  Analysis analysis;
  CAudioRecoderObject* recorder =
      ovAudioRecord(folder.WidePath().c_str(), AudioOpt{1, 0}, &analysis);
  ASSERT_NE(recorder, nullptr);
  EXPECT_EQ(ovAudioRecord(folder.WidePath().c_str(), AudioOpt{1, 0}, nullptr), nullptr)
      << "one recording at a time";
  const WAVEFORMATEX format = recorder->GetAudioFormat(0);
  EXPECT_EQ(format.wFormatTag, WAVE_FORMAT_IEEE_FLOAT);
  EXPECT_EQ(format.nSamplesPerSec, 48000u);
  analysis.meter->SetFormat(&format);
  analysis.spectrogram->SetFormat(&format);

  recorder->Start();
  const pid_t player =
      ovtest::Play(ovtest::Signal::Tone(kFloatSink, 3.0, 1000, 0.5), "floatsink", folder.Path());
  std::this_thread::sleep_for(std::chrono::milliseconds(6000));
  uint32_t seconds = 0;
  uint64_t samples = 0;
  recorder->GetProgress(&seconds, &samples);
  recorder->Destroy();
  ovtest::Stop(player);
  ovtest::RunCapture("pactl set-default-sink nullsink");
  ovtest::RunCapture("pactl unload-module " + std::to_string(std::atoi(module.c_str())));

  // Every block is a tenth of a second or a little more, and together they
  // are all that was written, but for the last unfinished one.
  ASSERT_FALSE(analysis.blocks.empty());
  uint64_t delivered = 0;
  for (uint32_t frames : analysis.blocks) {
    EXPECT_GE(frames, 4800u);
    EXPECT_LT(frames, 9600u);
    delivered += frames;
  }
  EXPECT_GE(seconds, 5u);
  const uint64_t written = GetCapturedFile()->nWaveOutDuration * 48 / 10000;
  EXPECT_LE(delivered, written);
  EXPECT_GT(delivered + 9600, written);
  EXPECT_GT(samples, written);
  EXPECT_LE(samples, written * 2);
  EXPECT_EQ(std::count(analysis.types.begin(), analysis.types.end(), 0),
            static_cast<long>(analysis.types.size()));

  // The tone is 3 s of blocks at half scale; the rest is exact silence.
  ASSERT_EQ(analysis.levels.size(), analysis.blocks.size());
  ASSERT_EQ(analysis.spectra.size(), analysis.blocks.size());
  std::vector<size_t> tone;
  for (size_t i = 0; i < analysis.levels.size(); ++i) {
    const float level = analysis.levels[i];
    if (level > 0.25f && (i == 0 || analysis.levels[i - 1] > 0.25f) &&
        (i + 1 == analysis.levels.size() || analysis.levels[i + 1] > 0.25f)) {
      tone.push_back(i);
      EXPECT_NEAR(20 * std::log10(level / 0.5), 0.0, 1.0) << "block " << i;
    }
  }
  EXPECT_NEAR(static_cast<double>(tone.size()), 30.0, 3.0);
  EXPECT_NE(std::find(analysis.levels.begin(), analysis.levels.end(), 0.0f), analysis.levels.end())
      << "silence reads as 0";

  // A band reads one component of the bin at half its position: the band
  // whose bin lies nearest 1 kHz stands out of every tone block's spectrum.
  int expected = 0;
  for (int b = 0; b < CSpectrogram::kBands; ++b)
    if (std::abs(CSpectrogram::BandPosition(b, 48000) / 2 * 48000.0 / 4096 - 1000) <
        std::abs(CSpectrogram::BandPosition(expected, 48000) / 2 * 48000.0 / 4096 - 1000))
      expected = b;
  std::vector<float> loudest(CSpectrogram::kBands, -100.0f);
  for (size_t i : tone)
    for (int b = 0; b < CSpectrogram::kBands; ++b)
      loudest[b] = std::max(loudest[b], analysis.spectra[i][b]);
  EXPECT_EQ(std::max_element(loudest.begin(), loudest.end()) - loudest.begin(), expected);

  // The mux stage takes the files as it takes a screen recording's.
  const std::string out = folder.Path() + "/tone.m4a";
  const ovtest::LogMark mark;
  ovtest::MuxWaiter waiter;
  ASSERT_EQ(FFMux(FFMUX_M4A, 0, ov::FromUtf8(out).c_str(), 0, &waiter), S_OK);
  ASSERT_TRUE(waiter.Wait(120));
  EXPECT_EQ(waiter.Result(), S_OK) << mark.Text();
  const std::string probe = ovtest::Probe(ov::FromUtf8(out));
  EXPECT_EQ(probe.rfind("aac,48000,2,", 0), 0u) << probe;
  EXPECT_NEAR(std::stod(probe.substr(probe.rfind(',') + 1)), written / 48000.0, 0.1);

  analysis.meter->Destroy();
  analysis.spectrogram->Destroy();
  FreeCapturedFile(1);
}

}  // namespace
