#include "overlay/ShapeList.h"

#include "capture/CursorCatalogue.h"

namespace {

int32_t g_nRoundCursorSize = 0;
ov::PointerShape g_RoundCursor;

}  // namespace

CTextShape::Key TextKey(uint32_t keysym, bool control) {
  switch (keysym) {
    case 0xFF08:
      return CTextShape::kKeyBackspace;
    case 0xFFFF:
      return CTextShape::kKeyDelete;
    case 0xFF51:
      return CTextShape::kKeyLeft;
    case 0xFF53:
      return CTextShape::kKeyRight;
    case 0xFF50:
      return CTextShape::kKeyHome;
    case 0xFF57:
      return CTextShape::kKeyEnd;
    case 0xFF0D:
    case 0xFF8D:
      return CTextShape::kKeyReturn;
    case 0xFF1B:
      return CTextShape::kKeyEscape;
    case 'a':
      if (control) return CTextShape::kKeySelectAll;
      return CTextShape::kKeyOther;
    default:
      return CTextShape::kKeyOther;
  }
}

const ov::PointerShape* ToolCursor(const ShapeTool& t) {
  // Rows of the catalogue's tool cursors.
  static constexpr int kRow[] = {-1, 0, 1, 3, 2, 4, 5, 6, 7, -1, 8, -1, 9};
  if (t.tool == 9 || t.tool == 11) {
    if (t.size != g_nRoundCursorSize) {
      g_nRoundCursorSize = t.size;
      g_RoundCursor = ov::MakeBrushCursor(t.size);
    }
    return &g_RoundCursor;
  }
  if (t.tool <= 0 || t.tool > 12) return nullptr;
  return &ov::g_Cursors.tools[kRow[t.tool]];
}

CCanvasShape* CShapeList::Begin(const ShapeTool& t, POINT pt, const ShapeSurface& s) {
  switch (t.tool) {
    case 1:
      m_pCurrentShape = std::make_unique<CRectShape>(pt, t.size, t.color);
      break;
    case 2:
      m_pCurrentShape = std::make_unique<CEllipseShape>(pt, t.size, t.color);
      break;
    case 3:
      m_pCurrentShape = std::make_unique<CArrowShape>(pt, t.size, t.color);
      break;
    case 4:
      m_pCurrentShape = std::make_unique<CBrushShape>(pt, t.size, t.color);
      break;
    case 5:
      m_pCurrentShape = std::make_unique<CLineShape>(pt, t.size, t.color);
      break;
    case 6:
      m_pCurrentShape = std::make_unique<CAirBrush>(pt, t.size, t.color, s.width, s.height);
      break;
    case 7:
      m_pCurrentShape =
          std::make_unique<CNumberShape>(pt, t.size, t.color, t.font, t.fontStyle, t.color2);
      break;
    case 8:
      m_pCurrentShape =
          std::make_unique<CTextShape>(s.text, pt, t.size, t.color, t.font, t.fontStyle);
      break;
    case 9:
      if (s.restore)
        m_pCurrentShape = std::make_unique<CBlurShape>(pt, t.size, s.restore);
      else
        m_pCurrentShape = std::make_unique<CEraseShape>(pt, t.size);
      break;
    case 10:
      if (s.restore)
        m_pCurrentShape = std::make_unique<CBlurShapeBox>(pt, s.restore);
      else
        m_pCurrentShape = std::make_unique<CEraseShapeBox>(pt);
      break;
    case 11:
      m_pCurrentShape = std::make_unique<CBlurShape>(pt, t.size, s.blur);
      break;
    case 12:
      m_pCurrentShape = std::make_unique<CBlurShapeBox>(pt, s.blur);
      break;
    default:
      return nullptr;
  }
  return m_pCurrentShape.get();
}

void CShapeList::Commit() {
  if (!m_pCurrentShape) return;
  if (m_pCurrentShape->m_bVisible)
    m_Shapes.push_back(std::move(m_pCurrentShape));
  else
    m_pCurrentShape.reset();
  m_Undone.clear();
}

bool CShapeList::Undo() {
  if (m_Shapes.empty()) return false;
  m_Undone.push_back(std::move(m_Shapes.back()));
  m_Shapes.pop_back();
  return true;
}

bool CShapeList::Redo() {
  if (m_Undone.empty()) return false;
  m_Shapes.push_back(std::move(m_Undone.back()));
  m_Undone.pop_back();
  return true;
}

bool CShapeList::Clear() {
  if (m_Shapes.empty()) return false;
  while (!m_Shapes.empty()) {
    m_Undone.push_back(std::move(m_Shapes.back()));
    m_Shapes.pop_back();
  }
  return true;
}

BOOL CShapeList::Paint(cairo_t* graphics) const {
  BOOL painted = 0;
  for (const auto& shape : m_Shapes)
    if (shape->m_bVisible && shape->Draw(graphics)) painted = 1;
  if (m_pCurrentShape && m_pCurrentShape->m_bVisible && m_pCurrentShape->Draw(graphics))
    painted = 1;
  return painted;
}

void CShapeList::Reset() {
  m_pCurrentShape.reset();
  m_Shapes.clear();
  m_Undone.clear();
}
