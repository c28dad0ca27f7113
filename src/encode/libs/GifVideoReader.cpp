#include "encode/libs/GifVideoReader.h"

#include <algorithm>

#include "encode/libs/EncoderLog.h"
#include "platform/Text.h"

namespace ov::enc::gif {

CGifVideoReader::CGifVideoReader(CMediaVideoRender* pRender, int32_t nIndex,
                                 const wchar_t* pMediaFile)
    : CBaseMediaReader(nIndex, pMediaFile), m_pRender(pRender) {
  Log(kMsg, "Create CGifVideoReader\n");
}

CGifVideoReader::~CGifVideoReader() { Log(kMsg, "Destroy CGifVideoReader\n"); }

HRESULT CGifVideoReader::Initialize() {
  if (!m_Video.Open(ov::ToUtf8(m_pMediaFile))) return E_FAIL;
  return m_pRender->SetVideoFormat(m_nIndex, &MEDIASUBTYPE_RGB32, m_Video.Width(),
                                   m_Video.Height()) == 0
             ? S_OK
             : E_FAIL;
}

// A frame that will not decode leaves the last one standing.
void CGifVideoReader::Show(size_t frame) {
  if (const AVFrame* picture = m_Video.Decode(frame))
    m_pRender->RenderFrame(m_nIndex, picture->data[0], picture->linesize[0]);
}

int CGifVideoReader::ShowUpTo(int64_t ticks) {
  if (bEnded) return 1;
  const std::vector<FrameIndexEntry>& frames = m_Video.Frames();
  if (m_nNext >= frames.size()) {
    // The last frame stands until the recording's end.
    if (ticks >= m_Video.EndTicks()) bEnded = 1;
    return 1;
  }
  if (frames[m_nNext].time > ticks && !m_bShowNext) return 1;
  // Frames that fell behind the clock are passed over, not shown.
  const size_t due = std::max(m_nNext, m_Video.FrameAt(ticks));
  m_bShowNext = false;
  Show(due);
  m_nNext = due + 1;
  return 0;
}

void CGifVideoReader::ShowFirst() {
  m_bShowNext = true;
  Idle();
}

REFERENCE_TIME CGifVideoReader::Seek(REFERENCE_TIME t) {
  t = std::clamp<REFERENCE_TIME>(t, 0, TicksToTime(m_Video.EndTicks()));
  m_nNext = m_Video.FrameAt(TimeToTicks(t));
  m_bShowNext = true;
  bEnded = 0;
  return t;
}

int CGifVideoReader::Idle() {
  if (!m_bShowNext || m_nNext >= m_Video.Frames().size()) return 1;
  m_bShowNext = false;
  Show(m_nNext++);
  return 0;
}

}  // namespace ov::enc::gif
