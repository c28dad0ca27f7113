// The temp video of a GIF recording. A GIF's palette is best chosen from the
// whole clip that is kept, which is only known at assembly, so the recording
// keeps its frames losslessly: FFV1, every frame an intra frame, in the
// library's stream + ".idx" layout. A frame equal to its predecessor is not
// stored; the index's last entry carries no frame and marks the time the
// recording ended, so a still ending keeps its length.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "formats/FrameIndexFile.h"
#include "platform/NonCopyable.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace ov::enc::gif {

inline constexpr int32_t kGifCodecType = 4;
inline constexpr AVCodecID kTempCodec = AV_CODEC_ID_FFV1;
// BGR32 as the capture hands it over, the fourth byte unused.
inline constexpr AVPixelFormat kTempPixels = AV_PIX_FMT_BGR0;
// The closing entry: no bytes, and a picture type that no frame here has.
inline bool IsEndMark(const FrameIndexEntry& e) {
  return e.size == 0 && e.pictureType == kPicturePredicted;
}

// The frames of a temp video, decoded one at a time on the caller's thread.
class TempVideoReader : private ov::NonCopyable {
 public:
  ~TempVideoReader();

  // Reads the index and opens the stream and a decoder; a log line and false
  // on failure.
  bool Open(const std::string& path);

  int Width() const { return static_cast<int>(m_index.header.width); }
  int Height() const { return static_cast<int>(m_index.header.height); }
  const std::vector<FrameIndexEntry>& Frames() const { return m_frames; }
  // Index ticks at which the recording ended: at or after the last frame.
  int64_t EndTicks() const { return m_endTicks; }
  // The last frame at or before ticks, 0 when there is none before it.
  size_t FrameAt(int64_t ticks) const;

  // Frame i in kTempPixels, valid until the next call; null with a log line.
  AVFrame* Decode(size_t i);

 private:
  FrameIndexFile m_index;
  std::vector<FrameIndexEntry> m_frames;
  int64_t m_endTicks = 0;
  std::string m_path;
  int m_stream = -1;
  uint8_t* m_data = nullptr;  // the largest frame and the decoder's padding
  AVCodecContext* m_decoder = nullptr;
  AVPacket* m_packet = nullptr;
  AVFrame* m_picture = nullptr;
};

}  // namespace ov::enc::gif
