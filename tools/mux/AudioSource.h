// The raw audio that the engine prepared, read through its inherited
// descriptor and encoded.
#pragma once

#include <cstdint>
#include <vector>

#include "Containers.h"
#include "Libav.h"
#include "MuxJob.h"

namespace mux {

class AudioSource {
 public:
  // False, with a log line, when the encoder can't be had or opened.
  bool Open(const MuxJob& job, bool globalHeader);
  const AVCodecContext* Encoder() const { return m_encoder.get(); }
  AVRational TimeBase() const { return m_encoder->time_base; }

  // kPacket with the next packet, kEnd, or kFailed with a log line.
  int Next(AVPacket* packet);
  // Sample frames read so far, of how many.
  int64_t FramesRead() const { return m_framesRead; }
  int64_t FramesTotal() const { return m_framesTotal; }

 private:
  bool SendNextFrame();
  int64_t ReadRaw(int64_t frames);

  CodecContextPtr m_encoder;
  ResamplerPtr m_resampler;
  FramePtr m_input;
  FramePtr m_frame;
  int m_fd = -1;
  int m_rawFrameBytes = 0;
  int m_frameSize = 0;
  int64_t m_framesRead = 0;
  int64_t m_framesTotal = 0;
  bool m_flushed = false;
};

}  // namespace mux
