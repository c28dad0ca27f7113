// Software H.264 straight through libx264, not through libavcodec: only here
// can each picture tell the encoder which macroblocks did not change since
// the picture before it (libavcodec 5.1 passes no per-macroblock hints). Such
// blocks are coded as skips without any analysis, so a small moving area on
// a still screen costs the encoder about as much as the area itself.
//
// The stream is the one libavcodec's libx264 wrapper makes with the same
// settings: Annex B, headers before every IDR, constant QP, BT.709 video
// range, no B-frames, slice threads.
#pragma once

#include <cstdint>
#include <vector>

#include "encode/libs/EncoderSettings.h"
#include "encode/libs/PictureConverter.h"
#include "platform/NonCopyable.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <x264.h>
}

namespace ov::enc {

class X264Encoder : private ov::NonCopyable {
 public:
  X264Encoder() = default;
  ~X264Encoder();

  // 0, or a libavcodec error code; logs nothing (it also runs in the probe).
  int Open(const EncoderConfig& config);
  void Close();
  bool IsOpen() const { return m_encoder != nullptr; }

  // picture: I420 of the configured size, in a single reference-counted
  // buffer; null drains. Pixels outside changed equal those of the picture
  // sent before; inside, the two are compared macroblock by macroblock.
  // Returns 0 or a libavcodec error code.
  int Send(const AVFrame* picture, int64_t pts, bool key, const PictureArea& changed);
  // Hands out the frame that the last Send produced, pointing into the
  // encoder's memory until the next Send: 0, AVERROR(EAGAIN) when there is
  // none, AVERROR_EOF once drained.
  int Receive(AVPacket* packet);

 private:
  // Fills m_mbInfo from the differences between picture and m_previous in
  // the area given; true when there was a previous picture to compare with.
  bool MarkConstantBlocks(const AVFrame* picture, const PictureArea& changed);
  int TakeOutput(int size, const x264_nal_t* nals);

  x264_t* m_encoder = nullptr;
  x264_picture_t m_output{};
  int m_width = 0;
  int m_height = 0;
  int m_mbColumns = 0;
  int m_mbRows = 0;
  std::vector<uint8_t> m_mbInfo;      // one flag byte per macroblock, made once
  std::vector<uint8_t> m_changed;     // per macroblock column of the current row
  AVBufferRef* m_previous = nullptr;  // keeps the planes below alive
  const uint8_t* m_previousPlanes[3] = {};
  int m_previousPitches[3] = {};
  const uint8_t* m_payload = nullptr;  // frame ready for Receive
  int m_payloadSize = 0;
  int64_t m_payloadPts = 0;
  bool m_payloadKey = false;
  bool m_draining = false;
};

}  // namespace ov::enc
