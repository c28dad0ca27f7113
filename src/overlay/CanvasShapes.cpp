#include "overlay/CanvasShapes.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "platform/Clock.h"

int32_t g_nCanvasNumber = 0;

namespace {

void SetColor(cairo_t* g, uint32_t argb) {
  cairo_set_source_rgba(g, ((argb >> 16) & 0xFF) / 255.0, ((argb >> 8) & 0xFF) / 255.0,
                        (argb & 0xFF) / 255.0, (argb >> 24) / 255.0);
}

// Smooth edges for this drawing; the surfaces keep them off.
struct Smooth {
  explicit Smooth(cairo_t* g) : m_g(g) { cairo_set_antialias(g, CAIRO_ANTIALIAS_GOOD); }
  ~Smooth() { cairo_set_antialias(m_g, CAIRO_ANTIALIAS_NONE); }
  cairo_t* m_g;
};

PangoLayout* MakeLayout(cairo_t* g, const std::string& text, const std::string& description,
                        int32_t style) {
  PangoLayout* layout = pango_cairo_create_layout(g);
  PangoFontDescription* font = pango_font_description_from_string(description.c_str());
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  if (style & (kFontUnderline | kFontStrikeOut)) {
    PangoAttrList* list = pango_attr_list_new();
    if (style & kFontUnderline)
      pango_attr_list_insert(list, pango_attr_underline_new(PANGO_UNDERLINE_SINGLE));
    if (style & kFontStrikeOut) pango_attr_list_insert(list, pango_attr_strikethrough_new(TRUE));
    pango_layout_set_attributes(layout, list);
    pango_attr_list_unref(list);
  }
  pango_layout_set_text(layout, text.c_str(), static_cast<int>(text.size()));
  return layout;
}

}  // namespace

CTwoPointShape::CTwoPointShape(POINT pt, int32_t size, uint32_t color)
    : m_fWidth(size), m_Color(color), m_ptStart(pt), m_ptEnd(pt) {}

BOOL CTwoPointShape::MoveTo(POINT pt) {
  if (pt.x == m_ptEnd.x && pt.y == m_ptEnd.y) return 0;
  m_ptEnd = pt;
  m_bVisible = pt.x != m_ptStart.x || pt.y != m_ptStart.y;
  return 1;
}

BOOL CRectShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  SetColor(g, m_Color);
  cairo_set_line_width(g, m_fWidth);
  cairo_set_line_join(g, CAIRO_LINE_JOIN_MITER);
  cairo_rectangle(g, std::min(m_ptStart.x, m_ptEnd.x), std::min(m_ptStart.y, m_ptEnd.y),
                  std::abs(m_ptEnd.x - m_ptStart.x), std::abs(m_ptEnd.y - m_ptStart.y));
  cairo_stroke(g);
  return 1;
}

BOOL CEllipseShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  Smooth smooth(g);
  const double w = std::abs(m_ptEnd.x - m_ptStart.x), h = std::abs(m_ptEnd.y - m_ptStart.y);
  SetColor(g, m_Color);
  cairo_set_line_width(g, m_fWidth);
  cairo_set_line_join(g, CAIRO_LINE_JOIN_ROUND);
  cairo_save(g);
  cairo_translate(g, std::min(m_ptStart.x, m_ptEnd.x) + w / 2,
                  std::min(m_ptStart.y, m_ptEnd.y) + h / 2);
  cairo_scale(g, std::max(w, 1e-3) / 2, std::max(h, 1e-3) / 2);
  cairo_arc(g, 0, 0, 1, 0, 2 * M_PI);
  cairo_restore(g);
  cairo_stroke(g);
  return 1;
}

BOOL CLineShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  Smooth smooth(g);
  SetColor(g, m_Color);
  cairo_set_line_width(g, m_fWidth);
  cairo_set_line_cap(g, CAIRO_LINE_CAP_BUTT);
  cairo_move_to(g, m_ptStart.x, m_ptStart.y);
  cairo_line_to(g, m_ptEnd.x, m_ptEnd.y);
  cairo_stroke(g);
  return 1;
}

CBrushShape::CBrushShape(POINT pt, int32_t size, uint32_t color)
    : m_ptLast(pt), m_fWidth(size), m_Color(color), m_Points{pt} {}

BOOL CBrushShape::MoveTo(POINT pt) {
  if (pt.x == m_ptLast.x && pt.y == m_ptLast.y) return 0;
  m_ptLast = pt;
  m_Points.push_back(pt);
  m_bVisible = 1;
  return 1;
}

// A cardinal spline of tension 0.5 through every point, as Bezier pieces.
void CBrushShape::AddCurve(cairo_t* g) const {
  constexpr double k = 0.5 / 3;
  const size_t n = m_Points.size();
  cairo_move_to(g, m_Points[0].x, m_Points[0].y);
  for (size_t i = 0; i + 1 < n; ++i) {
    const POINT& p0 = m_Points[i ? i - 1 : 0];
    const POINT& p1 = m_Points[i];
    const POINT& p2 = m_Points[i + 1];
    const POINT& p3 = m_Points[std::min(i + 2, n - 1)];
    cairo_curve_to(g, p1.x + (p2.x - p0.x) * k, p1.y + (p2.y - p0.y) * k, p2.x - (p3.x - p1.x) * k,
                   p2.y - (p3.y - p1.y) * k, p2.x, p2.y);
  }
  cairo_set_line_width(g, m_fWidth);
  cairo_set_line_cap(g, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(g, CAIRO_LINE_JOIN_ROUND);
}

BOOL CBrushShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  Smooth smooth(g);
  SetColor(g, m_Color);
  AddCurve(g);
  cairo_stroke(g);
  return 1;
}

BOOL CEraseShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  Smooth smooth(g);
  cairo_set_operator(g, CAIRO_OPERATOR_SOURCE);
  SetColor(g, m_Color);
  AddCurve(g);
  cairo_stroke(g);
  cairo_set_operator(g, CAIRO_OPERATOR_OVER);
  return 1;
}

BOOL CBlurShape::Draw(cairo_t* g) {
  if (!m_bVisible || !*m_pSlot) return 0;
  Smooth smooth(g);
  cairo_set_source(g, *m_pSlot);
  AddCurve(g);
  cairo_stroke(g);
  return 1;
}

CArrowShape::CArrowShape(POINT pt, int32_t size, uint32_t color)
    : m_Color(color), m_fWidth(size), m_ptStart(pt), m_ptEnd(pt) {}

BOOL CArrowShape::MoveTo(POINT pt) {
  if (pt.x == m_ptEnd.x && pt.y == m_ptEnd.y) return 0;
  m_ptEnd = pt;
  m_bVisible = pt.x != m_ptStart.x || pt.y != m_ptStart.y;
  if (!m_bVisible) return 1;
  // The head's wings lie 22.5 degrees either side of the shaft, five widths
  // back from the tip; the shaft is a wedge to a third of the head's base.
  const double dx = m_ptStart.x - m_ptEnd.x, dy = m_ptStart.y - m_ptEnd.y;
  const double a = 0.39269908169872414, length = 5.0 * m_fWidth;
  double wing[2][2];
  for (int i = 0; i < 2; ++i) {
    const double angle = i ? -a : a;
    const double rx = dx * std::cos(angle) - dy * std::sin(angle);
    const double ry = dx * std::sin(angle) + dy * std::cos(angle);
    const double norm = std::hypot(rx, ry);
    wing[i][0] = m_ptEnd.x + rx / norm * length;
    wing[i][1] = m_ptEnd.y + ry / norm * length;
  }
  const double points[6][2] = {
      {double(m_ptStart.x), double(m_ptStart.y)},
      {wing[0][0] + (wing[1][0] - wing[0][0]) / 3, wing[0][1] + (wing[1][1] - wing[0][1]) / 3},
      {wing[0][0], wing[0][1]},
      {double(m_ptEnd.x), double(m_ptEnd.y)},
      {wing[1][0], wing[1][1]},
      {wing[1][0] + (wing[0][0] - wing[1][0]) / 3, wing[1][1] + (wing[0][1] - wing[1][1]) / 3}};
  for (int i = 0; i < 6; ++i) {
    m_Outline[i][0] = static_cast<float>(points[i][0]);
    m_Outline[i][1] = static_cast<float>(points[i][1]);
  }
  return 1;
}

BOOL CArrowShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  Smooth smooth(g);
  SetColor(g, m_Color);
  cairo_set_fill_rule(g, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_move_to(g, m_Outline[0][0], m_Outline[0][1]);
  for (int i = 1; i < 6; ++i) cairo_line_to(g, m_Outline[i][0], m_Outline[i][1]);
  cairo_close_path(g);
  cairo_fill(g);
  cairo_set_fill_rule(g, CAIRO_FILL_RULE_WINDING);
  return 1;
}

CAirBrush::CAirBrush(POINT pt, int32_t size, uint32_t color, int32_t width, int32_t height)
    : m_nWidth(width),
      m_nHeight(height),
      m_nRadius(size),
      m_ptLast(pt),
      m_nRandom(static_cast<uint32_t>(ov::TickCount()) | 1u) {
  const uint32_t a = color >> 24;
  auto mul = [a](uint32_t c) { return (c * a + 127) / 255; };
  m_Color =
      a << 24 | mul((color >> 16) & 0xFF) << 16 | mul((color >> 8) & 0xFF) << 8 | mul(color & 0xFF);
  const size_t bytes = (static_cast<size_t>(width) * height * 4 + 63) & ~size_t{63};
  m_pBits = static_cast<uint32_t*>(std::aligned_alloc(64, bytes));
  if (m_pBits) memset(m_pBits, 0, bytes);
  m_bVisible = 1;
  Spray(pt);
}

CAirBrush::~CAirBrush() { std::free(m_pBits); }

void CAirBrush::Spray(POINT pt) {
  m_dwLastTick = ov::TickCount();
  m_ptLast = pt;
  if (!m_pBits) return;
  const int32_t r = m_nRadius;
  for (int32_t dy = 1 - r; dy <= r - 1; ++dy) {
    const int32_t y = pt.y + dy;
    if (y < 0) continue;
    if (y >= m_nHeight) break;
    for (int32_t dx = 1 - r; dx <= r - 1; ++dx) {
      const int32_t x = pt.x + dx;
      if (x < 0) continue;
      if (x >= m_nWidth) break;
      if (dx * dx + dy * dy > r * r) continue;
      m_nRandom ^= m_nRandom << 13;  // xorshift: one pixel in ten is hit
      m_nRandom ^= m_nRandom >> 17;
      m_nRandom ^= m_nRandom << 5;
      if (m_nRandom % 10 == 0) m_pBits[static_cast<size_t>(y) * m_nWidth + x] = m_Color;
    }
  }
}

BOOL CAirBrush::MoveTo(POINT pt) {
  Spray(pt);
  return 1;
}

void CAirBrush::Tick(POINT pt) {
  if (ov::TickCount() - m_dwLastTick < 10 && pt.x == m_ptLast.x && pt.y == m_ptLast.y) return;
  MoveTo(pt);
}

BOOL CAirBrush::Draw(cairo_t* g) {
  if (!m_bVisible || !m_pBits) return 0;
  cairo_surface_t* s =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(m_pBits),
                                          CAIRO_FORMAT_ARGB32, m_nWidth, m_nHeight, m_nWidth * 4);
  cairo_set_source_surface(g, s, 0, 0);
  cairo_paint(g);
  cairo_surface_destroy(s);
  return 1;
}

CNumberShape::CNumberShape(POINT pt, int32_t size, uint32_t color, const std::string& font,
                           int32_t style, uint32_t color2)
    : m_szFont(font),
      m_nSize(size),
      m_nStyle(style & (kFontBold | kFontItalic | kFontUnderline)),
      m_Color(color),
      m_Color2(color2),
      m_ptCenter(pt) {
  m_szText = std::to_string(++g_nCanvasNumber);
  m_fRadius = static_cast<float>(size * 1.2 * 0.5 + 3.0);
  // The digits' middle is the middle of their ink.
  cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
  cairo_t* g = cairo_create(s);
  PangoLayout* layout = MakeLayout(
      g, m_szText,
      CTextShape::FontDescription(font, 0, m_nStyle) + " " + std::to_string(size) + "px", m_nStyle);
  PangoRectangle ink;
  pango_layout_get_pixel_extents(layout, &ink, nullptr);
  m_fDigitX = ink.x + ink.width / 2.0f;
  m_fDigitY = ink.y + ink.height / 2.0f;
  g_object_unref(layout);
  cairo_destroy(g);
  cairo_surface_destroy(s);
  m_bVisible = 1;
}

BOOL CNumberShape::MoveTo(POINT pt) {
  if (pt.x == m_ptCenter.x && pt.y == m_ptCenter.y) return 0;
  m_ptCenter = pt;
  return 1;
}

BOOL CNumberShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  Smooth smooth(g);
  SetColor(g, m_Color2);
  cairo_arc(g, m_ptCenter.x, m_ptCenter.y, m_fRadius, 0, 2 * M_PI);
  cairo_fill(g);
  PangoLayout* layout = MakeLayout(
      g, m_szText,
      CTextShape::FontDescription(m_szFont, 0, m_nStyle) + " " + std::to_string(m_nSize) + "px",
      m_nStyle);
  SetColor(g, m_Color);
  cairo_move_to(g, m_ptCenter.x - m_fDigitX, m_ptCenter.y - m_fDigitY);
  pango_cairo_show_layout(g, layout);
  g_object_unref(layout);
  return 1;
}

CTextShape::CTextShape(CTextShapeCallback* callback, POINT pt, int32_t size, uint32_t color,
                       const std::string& font, int32_t style)
    : m_pCallback(callback),
      m_szFont(font),
      m_nSize(size),
      m_nStyle(style),
      m_Color(color),
      m_ptPosition(pt) {
  m_bVisible = 1;
}

std::string CTextShape::FontDescription(const std::string& font, int32_t size, int32_t style) {
  std::string d = font.empty() ? "Sans" : font;
  if (style & kFontBold) d += " Bold";
  if (style & kFontItalic) d += " Italic";
  // The size in points becomes pixels at 96 dots an inch.
  if (size > 0) {
    d += ' ';
    d += std::to_string((size * 96 + 36) / 72);
    d += "px";
  }
  return d;
}

BOOL CTextShape::Draw(cairo_t* g) {
  if (m_szText.empty() && !m_bActive) return 1;
  Smooth smooth(g);
  PangoLayout* layout =
      MakeLayout(g, m_szText, FontDescription(m_szFont, m_nSize, m_nStyle), m_nStyle);
  if (m_bActive) {
    // The editor's frame, caret and selection, while typing.
    PangoRectangle logical, caret;
    pango_layout_get_pixel_extents(layout, nullptr, &logical);
    pango_layout_get_cursor_pos(layout, static_cast<int>(m_nCaret), &caret, nullptr);
    const double x = m_ptPosition.x, y = m_ptPosition.y;
    const double w = std::max(logical.width, 4) + 4.0,
                 h = std::max(logical.height, caret.height / PANGO_SCALE) + 4.0;
    if (m_nAnchor != m_nCaret) {
      PangoRectangle a, b;
      pango_layout_index_to_pos(layout, static_cast<int>(std::min(m_nAnchor, m_nCaret)), &a);
      pango_layout_index_to_pos(layout, static_cast<int>(std::max(m_nAnchor, m_nCaret)), &b);
      cairo_set_source_rgba(g, 0.2, 0.4, 0.9, 0.4);
      cairo_rectangle(g, x + a.x / PANGO_SCALE, y + a.y / PANGO_SCALE, (b.x - a.x) / PANGO_SCALE,
                      std::max(a.height, b.height) / PANGO_SCALE);
      cairo_fill(g);
    }
    cairo_set_line_width(g, 1.0);
    cairo_set_source_rgba(g, 1, 1, 1, 0.5);
    cairo_rectangle(g, x - 2.5, y - 2.5, w, h);
    cairo_stroke(g);
    const double dash = 4;
    cairo_set_dash(g, &dash, 1, 0);
    cairo_set_source_rgb(g, 0, 0, 0);
    cairo_rectangle(g, x - 2.5, y - 2.5, w, h);
    cairo_stroke(g);
    cairo_set_dash(g, nullptr, 0, 0);
    SetColor(g, m_Color | 0xFF000000u);
    cairo_rectangle(g, x + caret.x / PANGO_SCALE, y + caret.y / PANGO_SCALE, 1,
                    caret.height / PANGO_SCALE);
    cairo_fill(g);
  }
  SetColor(g, m_Color);
  cairo_move_to(g, m_ptPosition.x, m_ptPosition.y);
  pango_cairo_show_layout(g, layout);
  g_object_unref(layout);
  return 1;
}

void CTextShape::Finish() {
  if (!m_bActive) return;
  m_bActive = false;
  m_pCallback->OnTextFinished(!m_szText.empty());
}

void CTextShape::DeleteSelection() {
  const size_t from = std::min(m_nAnchor, m_nCaret), to = std::max(m_nAnchor, m_nCaret);
  m_szText.erase(from, to - from);
  m_nCaret = m_nAnchor = from;
}

void CTextShape::OnKey(Key key, const char* text, bool shift) {
  if (!m_bActive) return;
  constexpr size_t kMaxText = 1024;
  auto previous = [this](size_t i) {
    if (i == 0) return i;
    do --i;
    while (i > 0 && (static_cast<unsigned char>(m_szText[i]) & 0xC0) == 0x80);
    return i;
  };
  auto next = [this](size_t i) {
    if (i >= m_szText.size()) return m_szText.size();
    do ++i;
    while (i < m_szText.size() && (static_cast<unsigned char>(m_szText[i]) & 0xC0) == 0x80);
    return i;
  };
  auto moveCaret = [&](size_t to) {
    m_nCaret = to;
    if (!shift) m_nAnchor = to;
  };
  switch (key) {
    case kKeyEscape:
      Finish();
      return;
    case kKeyLeft:
      moveCaret(previous(m_nCaret));
      break;
    case kKeyRight:
      moveCaret(next(m_nCaret));
      break;
    case kKeyHome: {
      const size_t start = m_nCaret ? m_szText.rfind('\n', m_nCaret - 1) : std::string::npos;
      moveCaret(start == std::string::npos ? 0 : start + 1);
      break;
    }
    case kKeyEnd: {
      const size_t end = m_szText.find('\n', m_nCaret);
      moveCaret(end == std::string::npos ? m_szText.size() : end);
      break;
    }
    case kKeySelectAll:
      m_nAnchor = 0;
      m_nCaret = m_szText.size();
      break;
    case kKeyBackspace:
      if (m_nAnchor == m_nCaret) m_nAnchor = previous(m_nCaret);
      DeleteSelection();
      break;
    case kKeyDelete:
      if (m_nAnchor == m_nCaret) m_nAnchor = next(m_nCaret);
      DeleteSelection();
      break;
    case kKeyReturn:
      text = "\n";
      [[fallthrough]];
    default: {
      if (!text || !*text) return;
      DeleteSelection();
      const size_t n = std::min(strlen(text), kMaxText - std::min(kMaxText, m_szText.size()));
      m_szText.insert(m_nCaret, text, n);
      m_nCaret = m_nAnchor = m_nCaret + n;
      break;
    }
  }
  Changed();
}

void CTextShape::Changed() { m_pCallback->OnTextChanged(); }

BOOL CBoxShape::MoveTo(POINT pt) {
  if (pt.x == m_ptEnd.x && pt.y == m_ptEnd.y) return 0;
  m_ptEnd = pt;
  m_bVisible = pt.x != m_ptStart.x || pt.y != m_ptStart.y;
  return 1;
}

BOOL CBoxShape::Draw(cairo_t* g) {
  if (!m_bVisible) return 0;
  const int32_t x = std::min(m_ptStart.x, m_ptEnd.x), y = std::min(m_ptStart.y, m_ptEnd.y);
  const int32_t w = std::abs(m_ptEnd.x - m_ptStart.x), h = std::abs(m_ptEnd.y - m_ptStart.y);
  cairo_rectangle(g, x, y, w, h);
  if (m_pSlot) {
    if (*m_pSlot) cairo_set_source(g, *m_pSlot);
    cairo_fill(g);
  } else {
    cairo_set_operator(g, CAIRO_OPERATOR_SOURCE);
    SetColor(g, 0x01000000);
    cairo_fill(g);
    cairo_set_operator(g, CAIRO_OPERATOR_OVER);
  }
  if (m_bFrame) {
    SetColor(g, 0xFF6464C8);
    cairo_set_line_width(g, 1.0);
    cairo_rectangle(g, x + 0.5, y + 0.5, w - 1, h - 1);
    cairo_stroke(g);
  }
  return 1;
}
