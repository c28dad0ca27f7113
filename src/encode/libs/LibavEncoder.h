// One opened encoder: libavcodec's software, VA-API or NVENC encoders, or
// libx264 directly for software H.264, behind the same send and receive
// calls. Hardware pictures are uploaded here, so callers always hand over
// plain pictures in InputFormat().
#pragma once

#include <cstdint>

#include "encode/libs/EncoderSettings.h"
#include "encode/libs/PictureConverter.h"
#include "encode/libs/X264Encoder.h"
#include "platform/NonCopyable.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace ov::enc {

class LibavEncoder : private ov::NonCopyable {
 public:
  LibavEncoder() = default;
  ~LibavEncoder();

  // Opens the encoder of this backend; on failure returns the libavcodec
  // error and leaves the object closed. Logs nothing: it also runs inside
  // the start-up probe.
  int Open(const BackendChoice& choice, const EncoderConfig& config);
  void Close();
  bool IsOpen() const { return m_context != nullptr || m_x264.IsOpen(); }
  const char* Name() const;

  // The pixel format of the pictures that Send takes.
  AVPixelFormat InputFormat() const { return m_inputFormat; }
  // Encoder time stamps: in 90 kHz ticks when true, else frame numbers
  // (MPEG-2 has no other clock than its fixed frame rate).
  bool PtsAreTicks() const { return m_ptsAreTicks; }

  // Sends one picture with its pts; key asks for an IDR. Pixels outside
  // changed equal those of the picture sent before. Null drains the encoder.
  // Returns a libavcodec error or 0.
  int Send(AVFrame* picture, int64_t pts, bool key,
           const PictureArea& changed = {0, 0, INT32_MAX, INT32_MAX});
  // 0 with a packet, AVERROR(EAGAIN) when more input is needed, AVERROR_EOF
  // after the last packet of a drain, or another error.
  int Receive(AVPacket* packet);

 private:
  int OpenHardwareFrames(const BackendChoice& choice, const EncoderConfig& config);
  void SetOptions(Backend backend, const EncoderConfig& config, AVDictionary** options);

  X264Encoder m_x264;
  AVCodecContext* m_context = nullptr;
  AVBufferRef* m_device = nullptr;
  AVFrame* m_hwPicture = nullptr;  // upload target, VA-API only
  AVPixelFormat m_inputFormat = AV_PIX_FMT_NONE;
  bool m_ptsAreTicks = true;
  int m_qscaleLambda = 0;  // fixed MPEG-2 quantiser, carried by every picture
};

// Whether the encoder of this backend opens on this machine for a codec
// type, tried on a small picture.
bool CanOpen(const BackendChoice& choice, int32_t codecType);

}  // namespace ov::enc
