// The recording side of GIF: each changed frame goes losslessly into the
// temp video (GifTempVideo.h), on the capture thread. A still screen costs
// nothing: unchanged frames are not stored, key frame requests included.
#pragma once

#include <chrono>
#include <cstdint>

#include "encode/VideoCodec.h"
#include "encode/libs/FrameTimeReport.h"
#include "encode/libs/TempVideoWriter.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace ov::enc::gif {

class CGifVideoCodec final : public CVideoCodec {
 public:
  CGifVideoCodec(CWriterStatistics* pStatistics, CFrameRateControl* pRateControl)
      : CVideoCodec(pStatistics, pRateControl) {}
  ~CGifVideoCodec() override;

  HRESULT Initialize(int32_t codecType, int32_t width, int32_t height, int32_t frameRate,
                     int32_t quality, const wchar_t* file) override;
  int32_t WriteFrame(const uint8_t* frame, int32_t stride, int64_t time, BOOL keyFrame,
                     BOOL unchanged) override;
  void Finish() override;

 private:
  void Fail(const char* step, int error);

  TempVideoWriter m_writer;
  AVCodecContext* m_encoder = nullptr;
  AVFrame* m_picture = nullptr;
  AVPacket* m_packet = nullptr;
  bool m_initializeCalled = false;
  bool m_open = false;  // between a good Initialize and Finish
  bool m_failed = false;
  int m_width = 0;
  int m_height = 0;
  int64_t m_lastTicks = -1;  // of the last frame stored
  int64_t m_endTicks = 0;    // of the last frame handed in, stored or not
  FrameTimeReport m_frameTime;
};

}  // namespace ov::enc::gif
