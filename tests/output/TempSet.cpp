#include "TempSet.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <cwchar>
#include <sstream>

#include "audio/WaveEncoder.h"
#include "core/Globals.h"
#include "encode/VendorTable.h"
#include "platform/Files.h"
#include "support/FrameIndexFile.h"

namespace ovtest {

namespace {

constexpr int kCodeBits = 12;
constexpr int kCodeSquare = 16;

void Fill(std::vector<uint32_t>* pixels, int stride, int x, int y, int w, int h, uint32_t bgr) {
  for (int row = y; row < y + h; ++row)
    for (int col = x; col < x + w; ++col) (*pixels)[static_cast<size_t>(row) * stride + col] = bgr;
}

void DrawFrame(const VideoSpec& video, int i, int stride, std::vector<uint32_t>* pixels) {
  Fill(pixels, stride, 0, 0, video.width, video.height, 0x606060);
  const int barX = (i * 7) % (video.width - 24);
  Fill(pixels, stride, barX, kCodeSquare * 2, 24, video.height - kCodeSquare * 2, 0x20C0F0);
  for (int bit = 0; bit < kCodeBits; ++bit) {
    const bool one = (i >> bit) & 1;
    Fill(pixels, stride, bit * kCodeSquare, 0, kCodeSquare, kCodeSquare, one ? 0xFFFFFF : 0x000000);
  }
}

std::string Quoted(const std::string& path) { return "'" + path + "'"; }

void CopyPath(wchar_t* field, const std::string& path) {
  std::wcsncpy(field, ov::FromUtf8(path).c_str(), OV_MAX_PATH - 1);
}

}  // namespace

bool WriteTempVideo(const std::wstring& path, const VideoSpec& video) {
  NullStatistics reports;
  std::unique_ptr<CVideoCodec> encoder(
      ov::CreateLibraryVideoCodec(video.codecType, &reports, &reports));
  if (!encoder || encoder->Initialize(video.codecType, video.width, video.height, video.fps, 3,
                                      path.c_str()) != S_OK)
    return false;
  const int stride = (video.width + 63) / 64 * 64;
  std::vector<uint32_t> pixels(static_cast<size_t>(stride) * video.height);
  int64_t nextKey = 0;
  for (int i = 0; i < video.frames; ++i) {
    const int64_t time = static_cast<int64_t>(i) * 10000000 / video.fps;
    const bool key = time >= nextKey;
    if (key) nextKey += static_cast<int64_t>(video.keyEverySeconds) * 10000000;
    const bool unchanged = !key && video.skipEvery > 0 && i % video.skipEvery == 0;
    if (!unchanged) DrawFrame(video, i, stride, &pixels);
    encoder->WriteFrame(reinterpret_cast<const uint8_t*>(pixels.data()), stride * 4, time, key,
                        unchanged);
  }
  encoder->Finish();
  return true;
}

bool WriteWave(const std::wstring& path, const WaveSpec& wave) {
  WAVEFORMATEXTENSIBLE format{};
  WAVEFORMATEX& f = format.Format;
  f.wFormatTag = WAVE_FORMAT_PCM;
  f.nChannels = static_cast<WORD>(wave.channels);
  f.nSamplesPerSec = static_cast<DWORD>(wave.rate);
  f.wBitsPerSample = wave.floatSamples ? 32 : 16;
  f.nBlockAlign = static_cast<WORD>(f.nChannels * f.wBitsPerSample / 8);
  f.nAvgBytesPerSec = f.nSamplesPerSec * f.nBlockAlign;
  if (wave.floatSamples) {
    f.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.cbSize = 22;
    format.Samples.wValidBitsPerSample = 32;
    format.dwChannelMask = wave.channels == 2 ? 3 : 4;
    format.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
  }
  CWaveEncoder writer;
  if (writer.Initialize(path.c_str(), &format) != S_OK) return false;

  const int frames = static_cast<int>(wave.seconds * wave.rate);
  const int block = wave.rate / 10;
  std::vector<uint8_t> bytes(static_cast<size_t>(block) * f.nBlockAlign);
  for (int start = 0; start < frames; start += block) {
    const int count = std::min(block, frames - start);
    for (int n = 0; n < count; ++n) {
      const double t = static_cast<double>(start + n) / wave.rate;
      double value = 0;
      for (double beep : wave.beeps)
        if (t >= beep && t < beep + 0.05) value = 0.5 * std::sin(2 * M_PI * 1000 * (t - beep));
      for (int c = 0; c < wave.channels; ++c) {
        uint8_t* at =
            bytes.data() + (static_cast<size_t>(n) * wave.channels + c) * (f.wBitsPerSample / 8);
        if (wave.floatSamples) {
          const float sample = static_cast<float>(value);
          std::memcpy(at, &sample, 4);
        } else {
          const auto sample = static_cast<int16_t>(std::lround(value * 32767));
          std::memcpy(at, &sample, 2);
        }
      }
    }
    writer.Write(bytes.data(), static_cast<uint32_t>(count) * f.nBlockAlign);
  }
  return true;
}

const BaseSet& BaseTempSet() {
  static ScratchFolder folder("ovmuxbase");
  static const BaseSet set = [] {
    BaseSet made;
    made.folder = folder.Path();
    made.video.skipEvery = 7;
    RecordingSet record(made.folder);
    WriteTempVideo(ov::FromUtf8(record.VideoPath()), made.video);
    WaveSpec speaker;
    speaker.beeps.assign(std::begin(kBaseBeeps), std::end(kBaseBeeps));
    WriteWave(ov::FromUtf8(made.folder + "/Speaker.wav"), speaker);
    WriteWave(ov::FromUtf8(made.folder + "/AudioCapture.wav"), WaveSpec{false, 44100, 1, 10.0, {}});
    made.entries = ReadFrameIndex(record.VideoPath() + ".idx").entries;
    return made;
  }();
  return set;
}

void CopyBaseSet(const std::string& folder) {
  const std::string from = BaseTempSet().folder;
  for (const char* name :
       {"ScreenCapture.h264", "ScreenCapture.h264.idx", "Speaker.wav", "AudioCapture.wav"})
    WriteFile(folder + "/" + name, ReadFile(from + "/" + name));
}

std::string MakeWatermarkPicture(const std::string& folder) {
  const std::string path = folder + "/watermark.png";
  RunCapture(
      "ffmpeg -nostdin -v error -y -f lavfi -i color=c=red:s=64x48 -vf "
      "format=rgba,colorchannelmixer=aa=0.5 -frames:v 1 " +
      Quoted(path) + " 2>&1");
  return path;
}

RecordingSet::RecordingSet(const std::string& folder)
    : m_folder(folder), m_record(std::make_unique<CapturedFile>()) {
  g_Recording = m_record.get();
}

RecordingSet::~RecordingSet() { g_Recording = nullptr; }

std::string RecordingSet::VideoPath(int codecType) const {
  static const char* const kExtensions[] = {"wmv", "h264", "h265", "mpg", "gif"};
  return m_folder + "/ScreenCapture." + kExtensions[codecType];
}

void RecordingSet::UseVideo(int codecType) {
  m_record->bScreenStream = 1;
  m_record->CodecType = codecType;
  CopyPath(m_record->szScreenCaptureFile, VideoPath(codecType));
}

void RecordingSet::UseSpeaker() {
  m_record->bWaveOutStream = m_record->bUseWaveOut = 1;
  m_record->lWaveOutVolume = 100;
  CopyPath(m_record->szWaveOutFile, m_folder + "/Speaker.wav");
}

void RecordingSet::UseMicrophone() {
  m_record->bWaveInStream = m_record->bUseWaveIn = 1;
  m_record->lWaveInVolume = 100;
  CopyPath(m_record->szWaveInFile, m_folder + "/AudioCapture.wav");
}

HRESULT RunMux(int muxer, const std::string& output, int duration, MuxWaiter* waiter) {
  MuxWaiter own;
  if (!waiter) waiter = &own;
  const HRESULT started = FFMux(muxer, 0, ov::FromUtf8(output).c_str(), duration, waiter);
  if (started != S_OK) return started;
  // Generous: the host must never be left waiting, and a slow machine is no hang.
  if (!waiter->Wait(120)) return 0x7FFF0001;
  return waiter->Result();
}

std::vector<StreamInfo> ProbeStreams(const std::string& file) {
  std::vector<StreamInfo> streams;
  const std::string out = RunCapture(
      "ffprobe -v error -show_entries stream=codec_type,codec_name,duration -of csv=p=0 " +
      Quoted(file) + " 2>/dev/null");
  for (const std::string& line : Lines(out)) {
    std::istringstream fields(line);
    StreamInfo info;
    std::string duration;
    std::getline(fields, info.codec, ',');
    std::getline(fields, info.type, ',');
    std::getline(fields, duration, ',');
    info.duration = std::atof(duration.c_str());
    if (!info.type.empty()) streams.push_back(info);
  }
  return streams;
}

std::string Codecs(const std::string& file) {
  std::string text;
  for (const StreamInfo& s : ProbeStreams(file)) text += (text.empty() ? "" : "+") + s.codec;
  return text;
}

// Variable-rate files: "-vsync vfr" keeps ffmpeg's null output off a guessed
// frame-rate grid that two close frames would collide on.
std::string DecodeErrors(const std::string& file) {
  int code = 0;
  std::string out = RunCapture(
      "ffmpeg -nostdin -v error -i " + Quoted(file) + " -vsync vfr -f null - 2>&1", &code);
  if (code != 0) out += "\nffmpeg exit code " + std::to_string(code);
  return out;
}

std::vector<double> VideoTimes(const std::string& file) {
  std::vector<double> times;
  const std::string out =
      RunCapture("ffprobe -v error -select_streams v:0 -show_entries packet=pts_time -of csv=p=0 " +
                 Quoted(file) + " 2>/dev/null");
  for (const std::string& line : Lines(out)) times.push_back(std::atof(line.c_str()));
  std::sort(times.begin(), times.end());
  return times;
}

std::string PictureAt(const std::string& file, double t) {
  return RunCapture("ffmpeg -nostdin -v error -ss " + std::to_string(t) + " -i " + Quoted(file) +
                    " -map 0:v:0 -frames:v 1 -f rawvideo -pix_fmt rgb24 - 2>/dev/null");
}

std::vector<int> FrameNumbers(const std::string& file) {
  const int width = kCodeBits * kCodeSquare, height = kCodeSquare;
  const std::string raw =
      RunCapture("ffmpeg -nostdin -v error -i " + Quoted(file) +
                 " -map 0:v:0 -fps_mode passthrough -vf crop=" + std::to_string(width) + ":" +
                 std::to_string(height) + ":0:0 -f rawvideo -pix_fmt gray - 2>/dev/null");
  std::vector<int> numbers;
  const size_t frameBytes = static_cast<size_t>(width) * height;
  for (size_t at = 0; at + frameBytes <= raw.size(); at += frameBytes) {
    int number = 0;
    for (int bit = 0; bit < kCodeBits; ++bit) {
      const auto luma = static_cast<uint8_t>(
          raw[at + static_cast<size_t>(height / 2) * width + bit * kCodeSquare + kCodeSquare / 2]);
      if (luma > 128) number |= 1 << bit;
    }
    numbers.push_back(number);
  }
  return numbers;
}

std::vector<double> BeepTimes(const std::string& file) {
  constexpr int kRate = 8000, kWindow = 40;  // 5 ms
  const std::string raw = RunCapture("ffmpeg -nostdin -v error -i " + Quoted(file) +
                                     " -map 0:a:0 -ac 1 -ar 8000 -f s16le - 2>/dev/null");
  std::vector<double> onsets;
  const size_t samples = raw.size() / 2;
  bool loud = false;
  for (size_t start = 0; start + kWindow <= samples; start += kWindow) {
    double sum = 0;
    for (size_t n = start; n < start + kWindow; ++n) {
      int16_t s;
      std::memcpy(&s, raw.data() + n * 2, 2);
      sum += static_cast<double>(s) * s;
    }
    const bool now = std::sqrt(sum / kWindow) > 3000;
    if (now && !loud) onsets.push_back(static_cast<double>(start) / kRate);
    loud = now;
  }
  return onsets;
}

}  // namespace ovtest
