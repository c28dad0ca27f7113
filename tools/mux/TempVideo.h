// The temp video: the encoder's elementary stream, read frame by frame
// through its index, without parsing it.
#pragma once

#include <cstdint>
#include <vector>

#include "JobIndex.h"
#include "Libav.h"
#include "MuxJob.h"
#include "platform/NonCopyable.h"

namespace mux {

// Time base of the index, and so of every video packet read here.
inline constexpr AVRational kIndexTimeBase{1, static_cast<int>(ov::kIndexClock)};

// The codec of the index header's codec type (1 H.264, 2 H.265, else MPEG-2).
AVCodecID CodecOf(int32_t codecType);

class TempVideo : private ov::NonCopyable {
 public:
  TempVideo() = default;
  ~TempVideo();

  // Opens the stream and its index and checks the frames of the range;
  // false with a log line.
  bool Open(const MuxJob& job);
  // The codec parameters of the stream, parameter sets included, from its
  // first frame, which must decode. False with a log line.
  bool Probe(AVCodecParameters* parameters);

  AVCodecID Codec() const { return m_codec; }
  const ov::FrameIndexHeader& Header() const { return m_index.header; }
  AVRational FrameRate() const { return AVRational{static_cast<int>(Header().frameRate), 1}; }
  int32_t First() const { return m_first; }
  int32_t End() const { return m_end; }
  bool IsKey(int32_t i) const;

  // Frame i into packet: its data in the one read buffer, valid until the
  // next read; times from the index, counted from the first frame of the
  // range. False with a log line.
  bool Read(int32_t i, AVPacket* packet);

 private:
  int m_fd = -1;
  std::string m_path;
  ov::FrameIndexFile m_index;
  int32_t m_first = 0;
  int32_t m_end = 0;
  AVCodecID m_codec = AV_CODEC_ID_NONE;
  std::vector<uint8_t> m_buffer;
};

}  // namespace mux
