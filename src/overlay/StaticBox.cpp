// The static box: the rings of its style round a region, in a click-through
// window, and nothing else.
#include <memory>

#include "core/Globals.h"
#include "core/Log.h"
#include "orvanta/boxes.h"
#include "overlay/BoxStyles.h"
#include "overlay/VideoRender.h"

namespace {

class CStaticBox : public CBaseClassObject {
 public:
  CStaticBox() : CBaseClassObject("CStaticBox") {}
  bool Create(const RECT& rect) {
    const int32_t s = ov::TotalRingWidth(ov::g_StaticBoxStyle);
    const RECT grown{rect.left - s, rect.top - s, rect.right + s, rect.bottom + s};
    if (FAILED(m_window.Initialize(grown, true))) return false;
    const int32_t w = grown.right - grown.left, h = grown.bottom - grown.top;
    ov::DrawRings(m_window.Overlay(), m_window.OverlayStride(), w, h, ov::g_StaticBoxStyle,
                  {s, s, w - s, h - s});
    m_window.ShowFrameOnly(s);
    m_window.Draw();
    return true;
  }

 private:
  CVideoRender m_window;
};

}  // namespace

extern "C" OV_API CBaseClassObject* ovShowStaticBox(HWND ownerWindow, const RECT* rect,
                                                    BOOL bTopmost) {
  (void)ownerWindow;  // the box is raised above every window, owned or not
  (void)bTopmost;
  WriteLog(ov::kMsg, "Static box ...\n");
  if (!ov::RectOnDisplay(rect)) return nullptr;
  auto box = std::make_unique<CStaticBox>();
  if (!box->Create(*rect)) return nullptr;
  return box.release();
}
