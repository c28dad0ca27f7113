// What the output tests work on: a temp set made by the real encoder library
// and the real wave writer, the recording record set by hand, and probes of
// the files made.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "formats/FrameIndex.h"
#include "orvanta/orvanta.h"
#include "support/Doubles.h"
#include "support/TestEnv.h"

namespace ovtest {

// Frames of a synthetic screen: a grey field, a bar that moves, and the
// frame's number in 12 bits as black and white squares along the top.
struct VideoSpec {
  int codecType = 1;
  int width = 320;
  int height = 240;
  int fps = 30;
  int frames = 300;
  int keyEverySeconds = 5;
  int skipEvery = 0;  // every n-th frame is left out (unchanged), so the rate varies
};
// Writes the temp video and its ".idx" through the encoder library.
bool WriteTempVideo(const std::wstring& path, const VideoSpec& video);

struct WaveSpec {
  bool floatSamples = true;  // 32-bit float extensible, else 16-bit PCM
  int rate = 48000;
  int channels = 2;
  double seconds = 10.0;
  std::vector<double> beeps;  // start times of 50 ms bursts of 1 kHz
};
bool WriteWave(const std::wstring& path, const WaveSpec& wave);

// The record of a recording in folder, set as g_Recording while it lives.
class RecordingSet {
 public:
  explicit RecordingSet(const std::string& folder);
  ~RecordingSet();
  CapturedFile& Record() { return *m_record; }
  std::string VideoPath(int codecType = 1) const;
  void UseVideo(int codecType = 1);
  void UseSpeaker();
  void UseMicrophone();

 private:
  std::string m_folder;
  std::unique_ptr<CapturedFile> m_record;
};

// One temp set for the whole program, made at first use: 10 s of H.264 at
// 30 fps with a key frame every 5 s and every 7th frame left out, a
// loopback track of float stereo at 48 kHz with bursts at kBaseBeeps, and a
// silent 16-bit mono microphone track at 44.1 kHz.
inline constexpr double kBaseBeeps[] = {0.2, 2.7, 5.3, 8.2, 9.0};
struct BaseSet {
  std::string folder;
  VideoSpec video;
  std::vector<ov::FrameIndexEntry> entries;
};
const BaseSet& BaseTempSet();
// Copies the base set's files into folder.
void CopyBaseSet(const std::string& folder);

// A 64 x 48 red picture at half opacity, folder/watermark.png; its path.
std::string MakeWatermarkPicture(const std::string& folder);

// Runs FFMux and waits for its end: the result of FFMux when it did not
// start, else that of OnComplete (0x7FFF0001 when that never came).
HRESULT RunMux(int muxer, const std::string& output, int duration = 0, MuxWaiter* waiter = nullptr);

struct StreamInfo {
  std::string type;  // "video", "audio"
  std::string codec;
  double duration = 0;
};
std::vector<StreamInfo> ProbeStreams(const std::string& file);
// The streams' codecs as "h264+aac".
std::string Codecs(const std::string& file);
// What ffmpeg says while decoding the whole file; empty when clean.
std::string DecodeErrors(const std::string& file);
// Presentation times in seconds of the first video stream's packets.
std::vector<double> VideoTimes(const std::string& file);
// The decoded picture at time t of the file as RGB rows of width * 3.
std::string PictureAt(const std::string& file, double t);
// The number drawn in each decoded frame, in order.
std::vector<int> FrameNumbers(const std::string& file);
// Start times in seconds of the bursts heard in the file's audio.
std::vector<double> BeepTimes(const std::string& file);

}  // namespace ovtest
