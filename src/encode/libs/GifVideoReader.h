// Playback of a GIF recording before assembly: the temp video's frames, each
// whole in itself, decoded when due and handed to the player's renderer.
#pragma once

#include <cstddef>

#include "core/MediaReader.h"
#include "encode/libs/GifTempVideo.h"

namespace ov::enc::gif {

class CGifVideoReader final : public CBaseMediaReader {
 public:
  CGifVideoReader(CMediaVideoRender* pRender, int32_t nIndex, const wchar_t* pMediaFile);
  ~CGifVideoReader() override;

  // Opens the temp video and gives its format to the renderer.
  HRESULT Initialize();

  int Update(REFERENCE_TIME t) override { return ShowUpTo(TimeToTicks(t)); }
  int ShowAt(REFERENCE_TIME t) override { return ShowUpTo(TimeToTicks(t)); }
  void ShowFirst() override;
  REFERENCE_TIME Seek(REFERENCE_TIME t) override;
  int Idle() override;

 private:
  int ShowUpTo(int64_t ticks);
  void Show(size_t frame);

  CMediaVideoRender* m_pRender;
  TempVideoReader m_Video;
  size_t m_nNext = 0;        // the first frame not shown yet
  bool m_bShowNext = false;  // after a seek: show m_nNext whatever its time
};

}  // namespace ov::enc::gif
