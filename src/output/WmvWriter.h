// The ASF temp file of a WMV recording: one video stream of compressed
// samples, written as the encoder gives them out. The samples keep the
// capture's time stamps, so unchanged frames are gaps in time, not repeated
// samples; every sample claims one millisecond.
#pragma once

#include <cstdint>

#include "core/WriterStatistics.h"
#include "orvanta/types.h"
#include "platform/NonCopyable.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace ov::wmv {

inline constexpr int64_t WMC_Video_Bitrate = 8000000;
inline constexpr int32_t WMC_Video_BufferWindow = 1000;   // ms
inline constexpr int64_t WMC_Video_KeyframeDistance = 1;  // s

// Sample flags, as the encoder thread and the muxer hand them over.
inline constexpr uint32_t WM_SF_CLEANPOINT = 1;
inline constexpr uint32_t WM_SF_DISCONTINUITY = 2;

// The VBR quality of a videoQuality from the recording options.
int32_t VbrQuality(int32_t videoQuality);

}  // namespace ov::wmv

class CWmvWriter : private ov::NonCopyable {
 public:
  explicit CWmvWriter(CWriterStatistics* pStatistics) : m_pWriterStatistics(pStatistics) {}
  virtual ~CWmvWriter();

  // The profile of the file: one video stream with the parameters of the
  // opened encoder, its rate and size, and the recording's quality.
  HRESULT VideoInitialize(const AVCodecContext* pType, int32_t frameRate, int32_t vbrQuality);
  // Removes an old file, creates the new one and writes its header.
  HRESULT Start(const wchar_t* szOutFile);
  // One compressed sample of the video stream; the writer does not keep it.
  HRESULT InputStream(int64_t cnsSampleTime, int64_t cnsSampleDuration, uint32_t dwFlags,
                      AVPacket* pBuffer);
  // Writes the index and the final header; the file is complete.
  HRESULT EndWriting();

 private:
  AVFormatContext* m_pWriter = nullptr;
  bool m_bWriting = false;
  int64_t m_nLastTimeMs = -1;
  CWriterStatistics* m_pWriterStatistics;
};
