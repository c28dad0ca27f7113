// The video of a WMV recording (CodecType 0): the ASF temp file read and
// decoded in this process, one frame held ahead of the clock.
#pragma once

#include <cstdint>
#include <string>

#include "core/MediaReader.h"

struct AVFormatContext;
struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

class CWMVVideoReader final : public CBaseMediaReader {
 public:
  CWMVVideoReader(int32_t nIndex, const wchar_t* pMediaFile, REFERENCE_TIME nDuration,
                  CMediaVideoRender* pRender);
  ~CWMVVideoReader() override;

  // Opens the file and its video decoder, and gives the render the format;
  // the failure, with a log line, otherwise.
  HRESULT Initialize();

  int Update(REFERENCE_TIME t) override;
  int ShowAt(REFERENCE_TIME t) override;
  void ShowFirst() override;
  REFERENCE_TIME Seek(REFERENCE_TIME t) override;

 private:
  // Decodes the next frame into m_pNext; false at the end or on a failure.
  bool GetNextSample();
  // The frame in m_pNext, shown.
  void ShowNext();
  void Show(AVFrame* frame);
  // Keeps the sample just read: it becomes the held one.
  void Hold();

  CMediaVideoRender* m_pRender;
  AVFormatContext* m_pFormat = nullptr;
  AVCodecContext* m_pCodec = nullptr;
  AVPacket* m_pPacket = nullptr;
  AVFrame* m_pNext = nullptr;  // the sample just read
  AVFrame* m_pHeld = nullptr;  // the held sample, when m_bHeld
  SwsContext* m_pScaler = nullptr;
  uint8_t* m_pPixels = nullptr;  // one converted frame
  int m_nStream = -1;
  bool m_bExhausted = false;
  bool m_bHeld = false;
  bool m_bDraining = false;
  REFERENCE_TIME m_nDuration;
  REFERENCE_TIME m_nHeldTime = 0;
  REFERENCE_TIME m_nNextTime = 0;
  int32_t m_nStride = 0;
};
