// Where the video packets of the output come from: the temp video's frames
// as they are, or decoded, overlaid with the watermark and encoded again.
#pragma once

#include <cstdint>
#include <memory>

#include "Libav.h"
#include "MuxJob.h"
#include "OutputFile.h"
#include "TempVideo.h"

namespace mux {

class VideoSource {
 public:
  virtual ~VideoSource();
  // The parameters of the video stream to write, valid once opened.
  const AVCodecParameters* Parameters() const { return m_parameters; }
  AVRational TimeBase() const { return kIndexTimeBase; }
  AVRational FrameRate() const { return m_video->FrameRate(); }
  // kPacket with the next packet in decoding order, kEnd, or kFailed with a
  // log line. A packet may point into a buffer that the next call reuses.
  virtual int Next(AVPacket* packet) = 0;
  // Frames of the temp video taken so far.
  int32_t FramesDone() const { return m_next - m_video->First(); }

 protected:
  explicit VideoSource(std::unique_ptr<TempVideo> video);
  std::unique_ptr<TempVideo> m_video;
  AVCodecParameters* m_parameters;
  int32_t m_next;
};

// Opens the temp video for the output: copied when the container takes its
// codec and no watermark is asked for, else re-encoded. Null with a log line.
std::unique_ptr<VideoSource> OpenVideoSource(const MuxJob& job, const OutputFile& output);

}  // namespace mux
