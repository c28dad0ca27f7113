// Audio recordings through ovVideoRecord against a private PulseAudio
// daemon: known signals are played into null sinks, and the wave files must
// hold exactly what was played, in the device's own format.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "AudioTools.h"
#include "audio/AudioStream.h"
#include "core/Globals.h"
#include "orvanta/orvanta.h"
#include "platform/Clock.h"
#include "session/ScreenCapture.h"
#include "support/Engine.h"

namespace {

using ovtest::RawFormat;
using ovtest::Signal;
using ovtest::WaveContent;

constexpr RawFormat kNullSink{"s16le", 48000, 2};

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

std::string Pactl(const std::string& args) { return ovtest::RunCapture("pactl " + args + " 2>&1"); }

double Seconds(REFERENCE_TIME t) { return t / 1e7; }

// The played signal must stand in the recording unchanged and whole, with
// silence around it and nothing else. The time line may drop or repeat a
// single frame now and then (at most one in 400) to follow the device's
// clock; every other frame is the device's, bit for bit.
void ExpectHoldsExactly(const WaveContent& wave, const Signal& played,
                        const std::vector<uint32_t>& channelOf = {}) {
  size_t first = 0, last = 0;
  ASSERT_TRUE(ovtest::NonSilentSpan(wave, &first, &last)) << "nothing but silence";
  const size_t corrections = played.Frames() / 400 + 1;
  const size_t span = last - first + 1;
  ASSERT_LE(std::max(span, played.Frames()) - std::min(span, played.Frames()), corrections)
      << "the signal is not there whole: " << span << " frames of " << played.Frames();
  const RawFormat f = played.Format();
  const uint32_t sample = f.SampleBytes();
  auto same = [&](size_t got, size_t want) {
    if (want >= played.Frames()) return false;
    for (uint32_t c = 0; c < f.channels; ++c) {
      const uint32_t from = channelOf.empty() ? c : channelOf[c];
      if (std::memcmp(wave.Frame(got) + c * sample,
                      played.Bytes().data() + want * f.FrameBytes() + from * sample, sample) != 0)
        return false;
    }
    return true;
  };
  size_t mismatches = 0, moved = 0;
  size_t want = 0;
  for (size_t n = first; n <= last; ++n, ++want) {
    if (same(n, want)) continue;
    // A repeated frame, or one dropped.
    if (want > 0 && same(n, want - 1)) {
      --want;
      ++moved;
    } else if (same(n, want + 1)) {
      ++want;
      ++moved;
    } else {
      ++mismatches;
    }
  }
  EXPECT_EQ(mismatches, 0u) << "samples differ from what was played";
  EXPECT_LE(moved, corrections);
}

void ExpectFormat(const WaveContent& wave, RawFormat raw, uint32_t mask, bool isFloat) {
  ASSERT_TRUE(wave.opened);
  // The record is packed: its fields are read by value, never bound to.
  const WAVEFORMATEX f = wave.format.Format;
  const int tag = f.wFormatTag, channels = f.nChannels, bits = f.wBitsPerSample;
  const uint32_t rate = f.nSamplesPerSec, channelMask = wave.format.dwChannelMask;
  const GUID subFormat = wave.format.SubFormat;
  EXPECT_EQ(tag, WAVE_FORMAT_EXTENSIBLE);
  EXPECT_EQ(channels, raw.channels);
  EXPECT_EQ(rate, raw.rate);
  EXPECT_EQ(bits, 8 * raw.SampleBytes());
  EXPECT_EQ(channelMask, mask);
  EXPECT_TRUE(
      IsEqualGUID(subFormat, isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM));
}

struct Options {
  VideoOpt video{};
  AudioOpt audio{};
  MouseOpt mouse{};
  Options(BOOL render, BOOL capture) {
    video.FrameRate = 30;
    audio = {render, capture};
  }
};

class AudioCaptureTest : public ::testing::Test {
 protected:
  CScreenCapture* Record(Options o) {
    HRESULT hr = E_FAIL;
    CScreenRecoderObject* recorder =
        ovVideoRecord(0, m_folder.WidePath().c_str(), &o.video, o.audio, &o.mouse, 0, &hr);
    EXPECT_EQ(hr, S_OK);
    return dynamic_cast<CScreenCapture*>(recorder);
  }
  pid_t Play(const Signal& s, const std::string& sink, const std::string& map = "") {
    pid_t pid = ovtest::Play(s, sink, m_folder.Path(), map);
    EXPECT_GT(pid, 0);
    return pid;
  }
  void TearDown() override { FreeCapturedFile(1); }
  ovtest::ScratchFolder m_folder{"ovaudio"};
};

TEST_F(AudioCaptureTest, BothDevicesRecordWhatWasPlayedUnchanged) {
  const ovtest::LogMark mark;
  CScreenCapture* session = Record(Options(1, 1));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->m_pClock, static_cast<CRecoderProvidedClock*>(
                                   session->m_pAudioStream->Source(AudioDevice_Render)))
      << "the loopback source is the clock";
  const Signal speaker = Signal::Tone(kNullSink, 2.0, 1000, 0.5);
  const Signal voice = Signal::Tone(kNullSink, 1.0, 600, 0.25);
  SleepMs(300);  // packets arrive, and are dropped
  EXPECT_EQ(session->m_pClock->GetTime(), 0u) << "nothing is written before the start";

  const int64_t begin = ov::MonotonicTime100ns();
  session->Start();
  const pid_t p1 = Play(speaker, "nullsink");
  const pid_t p2 = Play(voice, "micsink");
  SleepMs(1000);
  const std::string inputs = Pactl("list sink-inputs");
  SleepMs(3500);  // a sink that idled plays a new stream up to its render-ahead late
  const double recorded = Seconds(ov::MonotonicTime100ns() - begin);
  session->Destroy();
  ovtest::Stop(p1);
  ovtest::Stop(p2);

  EXPECT_NE(inputs.find("Orvanta silent player"), std::string::npos) << inputs;
  const CapturedFile* file = GetCapturedFile();
  ASSERT_NE(file, nullptr);
  const WaveContent loopback = ovtest::ReadWave(file->szWaveOutFile);
  const WaveContent microphone = ovtest::ReadWave(file->szWaveInFile);
  ExpectFormat(loopback, kNullSink, 3, false);
  ExpectFormat(microphone, kNullSink, 3, false);
  EXPECT_NE(std::wstring(file->szWaveInFile).find(L"/AudioCapture.wav"), std::wstring::npos);

  // As long as the recording, silence included.
  EXPECT_NEAR(Seconds(file->nWaveOutDuration), recorded, 0.03);
  EXPECT_EQ(file->nWaveOutDuration,
            static_cast<REFERENCE_TIME>(loopback.data.size() * 10000000ull / 192000));
  const std::string probe = ovtest::Probe(file->szWaveOutFile);
  EXPECT_EQ(probe.rfind("pcm_s16le,48000,2,", 0), 0u) << probe;
  EXPECT_NEAR(std::stod(probe.substr(probe.rfind(',') + 1)), Seconds(file->nWaveOutDuration), 1e-3);

  ExpectHoldsExactly(loopback, speaker);
  ExpectHoldsExactly(microphone, voice);

  const std::string log = mark.Text();
  EXPECT_NE(log.find("Render Device:Null Output\n"), std::string::npos) << log;
  EXPECT_NE(log.find("Capture Device:Monitor of Null Output\n"), std::string::npos) << log;
  EXPECT_EQ(log.find("Retry:"), std::string::npos);
  EXPECT_NE(log.find("Call:CAudioSource::~CAudioSource\n"), std::string::npos);
}

TEST_F(AudioCaptureTest, MicrophoneAloneIsTheClockAndStartsNoSilentPlayer) {
  CScreenCapture* session = Record(Options(0, 1));
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(session->m_pClock, static_cast<CRecoderProvidedClock*>(
                                   session->m_pAudioStream->Source(AudioDevice_Capture)));
  EXPECT_EQ(session->m_pAudioStream->Source(AudioDevice_Render), nullptr);
  session->Start();
  SleepMs(500);
  const std::string inputs = Pactl("list sink-inputs");
  session->Destroy();
  EXPECT_EQ(inputs.find("Orvanta silent player"), std::string::npos);
  EXPECT_GT(GetCapturedFile()->nWaveInDuration, 0);
  EXPECT_EQ(GetCapturedFile()->nWaveOutDuration, 0);
}

// A server started a moment ago, as a user's is after log-in: nothing reads
// its monitors, the null sink renders far ahead, and the recording starts
// at once. Both files last as long as the recording, whether anything
// plays or not.
TEST_F(AudioCaptureTest, WaveFilesOfAFreshServerLastAsLongAsTheRecording) {
  using Kind = ovtest::PulseServer::Kind;
  for (const Kind kind : {Kind::PulseAudio, Kind::PipeWire}) {
    for (const bool tone : {false, true}) {
      SCOPED_TRACE(std::string(kind == Kind::PipeWire ? "PipeWire" : "PulseAudio") +
                   (tone ? " with a tone" : " silent"));
      ovtest::PulseServer server(kind);
      if (!server.Running() && kind == Kind::PipeWire) {
        std::printf("no PipeWire here: %s\n", server.Missing().c_str());
        break;
      }
      ASSERT_TRUE(server.Running());
      const ovtest::LogMark mark;
      CScreenCapture* session = Record(Options(1, 1));
      ASSERT_NE(session, nullptr);
      const int64_t begin = ov::MonotonicTime100ns();
      session->Start();
      const pid_t player = tone ? Play(Signal::Tone(kNullSink, 2.0, 1000, 0.5), "nullsink") : -1;
      SleepMs(3000);
      const double recorded = Seconds(ov::MonotonicTime100ns() - begin);
      session->Destroy();
      if (player > 0) ovtest::Stop(player);

      const CapturedFile* file = GetCapturedFile();
      ASSERT_NE(file, nullptr);
      EXPECT_NEAR(Seconds(file->nWaveOutDuration), recorded, 0.03);
      EXPECT_NEAR(Seconds(file->nWaveInDuration), recorded, 0.03);
      const WaveContent loopback = ovtest::ReadWave(file->szWaveOutFile);
      ASSERT_TRUE(loopback.opened);
      EXPECT_EQ(file->nWaveOutDuration,
                static_cast<REFERENCE_TIME>(loopback.data.size() * 10000000ull /
                                            loopback.format.Format.nAvgBytesPerSec));
      // The tone may outlast the recording; it is there, and nothing comes of silence.
      size_t first = 0, last = 0;
      EXPECT_EQ(ovtest::NonSilentSpan(loopback, &first, &last), tone) << first;
      const std::string log = mark.Text();
      EXPECT_NE(log.find("eRender timeline: silence="), std::string::npos) << log;
      EXPECT_NE(log.find("Capture timeline: silence="), std::string::npos) << log;
      FreeCapturedFile(1);
    }
  }
}

// A float 5.1 sink laid out in another order than wave files use: the file
// holds the device's own format, the channels in mask order, each unchanged.
TEST_F(AudioCaptureTest, RecordsInTheDevicesOwnFormat) {
  constexpr RawFormat kFormat{"float32le", 44100, 6};
  const char* map = "front-left,front-right,rear-left,rear-right,front-center,lfe";
  const std::string module = Pactl(
      "load-module module-null-sink sink_name=fmtsink format=float32le rate=44100 channels=6 "
      "channel_map=" +
      std::string(map));
  ASSERT_GT(std::atoi(module.c_str()), 0) << module;
  Pactl("set-default-sink fmtsink");
  CScreenCapture* session = Record(Options(1, 0));
  const Signal tone = Signal::Tone(kFormat, 1.0, 700, 0.4);
  if (session) {
    session->Start();
    const pid_t player = Play(tone, "fmtsink", map);
    SleepMs(3500);
    session->Destroy();
    ovtest::Stop(player);
  }
  Pactl("set-default-sink nullsink");
  Pactl("unload-module " + std::to_string(std::atoi(module.c_str())));
  ASSERT_NE(session, nullptr);
  const WaveContent wave = ovtest::ReadWave(GetCapturedFile()->szWaveOutFile);
  ExpectFormat(wave, kFormat, 0x3F, true);
  ExpectHoldsExactly(wave, tone, {0, 1, 4, 5, 2, 3});
}

// Every frame of a counter signal names the instant it was played: a
// recording paused and resumed must hold one long jump, besides the time
// line's own small corrections; silence (a count of 0) stands for what the
// server had not delivered.
void ExpectOneJump(const WaveContent& wave, double minimumJumpSeconds) {
  ASSERT_TRUE(wave.opened);
  std::vector<uint32_t> counts;
  for (size_t n = 0; n < wave.Frames(); ++n)
    if (const uint32_t count = wave.CountAt(n)) counts.push_back(count);
  ASSERT_GT(counts.size(), 48000u);
  std::vector<int64_t> jumps;
  for (size_t i = 1; i < counts.size(); ++i) {
    const int64_t step = int64_t{counts[i]} - counts[i - 1] - 1;
    if (std::abs(step) > 48000 * 20 / 1000) jumps.push_back(step);
  }
  ASSERT_EQ(jumps.size(), 1u) << "first jump " << (jumps.empty() ? 0 : jumps[0]);
  EXPECT_GT(jumps[0], static_cast<int64_t>(minimumJumpSeconds * 48000));
}

TEST_F(AudioCaptureTest, PausedStretchIsAbsentFromFilesAndClock) {
  CScreenCapture* session = Record(Options(1, 1));
  ASSERT_NE(session, nullptr);
  const Signal counter = Signal::Counter(kNullSink, 8.0);
  const pid_t p1 = Play(counter, "nullsink");
  const pid_t p2 = Play(counter, "micsink");
  SleepMs(500);
  session->Start();
  // A sink that idled plays a new stream up to two seconds late: the pause
  // comes after the counter is surely heard.
  SleepMs(3000);
  session->Pause();
  SleepMs(100);  // the packet in hand when the flag fell is written still
  const uint64_t atPause = session->m_pClock->GetTime();
  const uint64_t micAtPause = session->m_pAudioStream->Source(AudioDevice_Capture)->GetTime();
  SleepMs(1500);
  EXPECT_EQ(session->m_pClock->GetTime(), atPause) << "the clock stands still while paused";
  EXPECT_EQ(session->m_pAudioStream->Source(AudioDevice_Capture)->GetTime(), micAtPause);

  const uint32_t before = ov::TickCount();
  session->Resume();
  const uint32_t after = ov::TickCount();
  // The video time line rests on the audio written so far, one frame ahead.
  const uint32_t audioMs = static_cast<uint32_t>(atPause / 10000);
  const uint32_t start = session->m_dwStartTick.load();
  EXPECT_LE(start - (before - session->m_dwBaseInterval - audioMs), after - before);
  SleepMs(1000);
  session->Destroy();
  ovtest::Stop(p1);
  ovtest::Stop(p2);

  const CapturedFile* file = GetCapturedFile();
  ExpectOneJump(ovtest::ReadWave(file->szWaveOutFile), 1.0);
  ExpectOneJump(ovtest::ReadWave(file->szWaveInFile), 1.0);
  EXPECT_LT(Seconds(file->nWaveOutDuration), 4.5) << "the pause is not in the file";
}

// A device unloaded during the recording ends its own source; the other one
// and the session go on, and both files are finished.
TEST_F(AudioCaptureTest, VanishingDeviceEndsOnlyItsOwnSource) {
  for (const bool render : {true, false}) {
    SCOPED_TRACE(render ? "output" : "microphone");
    const std::string module = Pactl("load-module module-null-sink sink_name=gonesink rate=48000");
    ASSERT_GT(std::atoi(module.c_str()), 0) << module;
    Pactl(render ? "set-default-sink gonesink" : "set-default-source gonesink.monitor");
    const ovtest::LogMark mark;
    CScreenCapture* session = Record(Options(1, 1));
    if (session) {
      session->Start();
      SleepMs(700);
      Pactl("unload-module " + std::to_string(std::atoi(module.c_str())));
      SleepMs(1300);
      session->Destroy();
    }
    Pactl("set-default-sink nullsink");
    Pactl("set-default-source micsink.monitor");
    ASSERT_NE(session, nullptr);

    const std::string log = mark.Text();
    EXPECT_NE(log.find("Failed(0x88890004) in "
                       "m_pCaptureClient->GetNextPacketSize(&NumFramesInNextPacket), FILE:"),
              std::string::npos)
        << log;
    const CapturedFile* file = GetCapturedFile();
    const REFERENCE_TIME lost = render ? file->nWaveOutDuration : file->nWaveInDuration;
    const REFERENCE_TIME kept = render ? file->nWaveInDuration : file->nWaveOutDuration;
    // The lost one ends where its device went, the other at the stop.
    EXPECT_LT(Seconds(lost), Seconds(kept) - 1.0);
    EXPECT_GT(Seconds(kept), 1.5) << "the other source went on";
    for (const wchar_t* path : {file->szWaveOutFile, file->szWaveInFile}) {
      const std::string probe = ovtest::Probe(path);
      EXPECT_EQ(probe.rfind("pcm_s16le,48000,2,", 0), 0u) << probe;
    }
    EXPECT_EQ(ovtest::ReadWave(file->szWaveOutFile).data.size() * 10000000ull / 192000,
              static_cast<uint64_t>(file->nWaveOutDuration));
    FreeCapturedFile(1);
  }
}

TEST_F(AudioCaptureTest, MicrophoneFailureFailsTheWholeStart) {
  // A folder where the microphone's file should go: it cannot be created.
  std::filesystem::create_directory(m_folder.Path() + "/AudioCapture.wav");
  const ovtest::LogMark mark;
  Options o(1, 1);
  HRESULT hr = S_OK;
  EXPECT_EQ(ovVideoRecord(0, m_folder.WidePath().c_str(), &o.video, o.audio, &o.mouse, 0, &hr),
            nullptr);
  EXPECT_EQ(hr, E_FAIL);
  EXPECT_FALSE(g_bRunning.load());
  const std::string log = mark.Text();
  const size_t created = log.find("Failed(21) to create file:");
  ASSERT_NE(created, std::string::npos) << log;
  EXPECT_NE(log.find("Failed(0x80004005) to Initialize recorder, delete...\n", created),
            std::string::npos)
      << log;
  // The loopback source had started: it was stopped and its file finished.
  EXPECT_TRUE(ovtest::ReadWave(GetCapturedFile()->szWaveOutFile).opened);
}

}  // namespace
