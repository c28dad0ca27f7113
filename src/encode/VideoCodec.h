// The one encoder interface between a capture stream and the temp video file.
// Encoder libraries implement it behind their C entry points; the session owns
// the object and deletes it through the virtual destructor.
#pragma once

#include <cstdint>

#include "core/FrameRateControl.h"
#include "core/WriterStatistics.h"
#include "orvanta/types.h"
#include "platform/NonCopyable.h"

class CVideoCodec : private ov::NonCopyable {
 public:
  CVideoCodec(CWriterStatistics* pStatistics, CFrameRateControl* pRateControl)
      : m_pStatistics(pStatistics), m_pRateControl(pRateControl) {}
  virtual ~CVideoCodec() = default;

  // width and height are the region's true size; file is the temp video
  // path, valid for the whole recording. The encoder creates the file.
  virtual HRESULT Initialize(int32_t codecType, int32_t width, int32_t height, int32_t frameRate,
                             int32_t quality, const wchar_t* file) = 0;
  // frame: BGR32 rows of stride bytes, valid for the call only. time in
  // 100-ns units from the start. Returns 1 when the frame was skipped as
  // unchanged, else 0.
  virtual int32_t WriteFrame(const uint8_t* frame, int32_t stride, int64_t time, BOOL keyFrame,
                             BOOL unchanged) = 0;
  // Called once after the last WriteFrame; on return the file is complete.
  virtual void Finish() = 0;
  // A hint for the next WriteFrame only: pixels outside the rectangle
  // (right and bottom exclusive) equal those of the frame handed over before
  // it. Without it every pixel counts as changed; an encoder may ignore it.
  virtual void SetChangedArea(int32_t left, int32_t top, int32_t right, int32_t bottom) {
    (void)left, (void)top, (void)right, (void)bottom;
  }

 protected:
  CWriterStatistics* m_pStatistics;
  CFrameRateControl* m_pRateControl;
};

class CBaseMediaReader;
class CMediaVideoRender;
class CMuxCallback;

// Entry points of the encoder libraries.
extern "C" {
typedef int32_t (*InitCodecFn)(int32_t* vendorTable);
typedef int32_t (*IntelInitCodecFn)(int32_t* vendorTable, int32_t reserved);
typedef BOOL (*IsSupport4KCodecFn)(int32_t codecType);
typedef CVideoCodec* (*CreateVideoCodecFn)(int32_t codecType, CWriterStatistics* pStatistics,
                                           CFrameRateControl* pRateControl);
typedef CVideoCodec* (*GifCreateVideoCodecFn)(CWriterStatistics* pStatistics,
                                              CFrameRateControl* pRateControl);
typedef CBaseMediaReader* (*GifCreateVideoReaderFn)(CMediaVideoRender* pRender, int32_t nIndex,
                                                    const wchar_t* pwszTempFile);
typedef HRESULT (*GifMuxFn)(const wchar_t* pwszTempFile, const wchar_t* pwszOutFile,
                            REFERENCE_TIME nTrimStart, REFERENCE_TIME nTrimEnd,
                            REFERENCE_TIME nLimit, CMuxCallback* pCallback);
}
