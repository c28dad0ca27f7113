// The annotations drawn over the screen: each knows its geometry, follows
// the pointer while its button is held, and paints itself on cairo. Points
// are in the pixels of the surface's picture; colours are 0xAARRGGBB.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "orvanta/types.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_pattern cairo_pattern_t;

// Badges shown so far, process-wide; g_csCanvas guards it.
extern int32_t g_nCanvasNumber;

// Font style bits.
inline constexpr int32_t kFontBold = 1, kFontItalic = 2, kFontUnderline = 4, kFontStrikeOut = 8;

class CTextShapeCallback {
 public:
  virtual ~CTextShapeCallback() = default;
  virtual void OnTextChanged() = 0;
  virtual void OnTextFinished(BOOL bKeep) = 0;
};

class CCanvasShape {
 public:
  virtual ~CCanvasShape() = default;
  // Paints the shape; false when it painted nothing.
  virtual BOOL Draw(cairo_t*) { return 0; }
  // The pointer moved with the button held; true when the picture changed.
  virtual BOOL MoveTo(POINT) { return 0; }
  // The spray timer fired.
  virtual void Tick(POINT) {}
  // A click beside a text being edited.
  virtual void Finish() {}
  // The button went up or the drag was cancelled.
  virtual void EndDrag() {}

  BOOL m_bVisible = 0;
};

// Rectangle, ellipse and line: a pen of the tool's size and colour.
class CTwoPointShape : public CCanvasShape {
 public:
  CTwoPointShape(POINT pt, int32_t size, uint32_t color);
  BOOL MoveTo(POINT pt) override;

 protected:
  double m_fWidth;
  uint32_t m_Color;
  POINT m_ptStart, m_ptEnd;
};

class CRectShape : public CTwoPointShape {
 public:
  using CTwoPointShape::CTwoPointShape;
  BOOL Draw(cairo_t* g) override;
};

class CEllipseShape : public CTwoPointShape {
 public:
  using CTwoPointShape::CTwoPointShape;
  BOOL Draw(cairo_t* g) override;
};

class CLineShape : public CTwoPointShape {
 public:
  using CTwoPointShape::CTwoPointShape;
  BOOL Draw(cairo_t* g) override;
};

// A free stroke drawn as a smooth cardinal curve through its points.
class CBrushShape : public CCanvasShape {
 public:
  CBrushShape(POINT pt, int32_t size, uint32_t color);
  BOOL MoveTo(POINT pt) override;
  BOOL Draw(cairo_t* g) override;

 protected:
  void AddCurve(cairo_t* g) const;
  POINT m_ptLast;
  double m_fWidth;
  uint32_t m_Color;
  std::vector<POINT> m_Points;
};

// A stroke that overwrites what lies below with an almost clear colour.
class CEraseShape : public CBrushShape {
 public:
  CEraseShape(POINT pt, int32_t size) : CBrushShape(pt, size, 0x01000000) {}
  BOOL Draw(cairo_t* g) override;
};

// A stroke painted with the owner's current blur pattern.
class CBlurShape : public CBrushShape {
 public:
  CBlurShape(POINT pt, int32_t size, cairo_pattern_t* const* slot)
      : CBrushShape(pt, size, 0), m_pSlot(slot) {}
  BOOL Draw(cairo_t* g) override;

 private:
  cairo_pattern_t* const* m_pSlot;
};

class CArrowShape : public CCanvasShape {
 public:
  CArrowShape(POINT pt, int32_t size, uint32_t color);
  BOOL MoveTo(POINT pt) override;
  BOOL Draw(cairo_t* g) override;

 private:
  uint32_t m_Color;
  double m_fWidth;
  POINT m_ptStart, m_ptEnd;
  float m_Outline[6][2] = {};
};

class CAirBrush : public CCanvasShape {
 public:
  CAirBrush(POINT pt, int32_t size, uint32_t color, int32_t width, int32_t height);
  ~CAirBrush() override;
  BOOL MoveTo(POINT pt) override;
  void Tick(POINT pt) override;
  BOOL Draw(cairo_t* g) override;

 private:
  void Spray(POINT pt);
  int32_t m_nWidth, m_nHeight;
  int32_t m_nRadius;
  uint32_t m_Color;  // premultiplied
  uint32_t* m_pBits = nullptr;
  uint32_t m_dwLastTick = 0;
  POINT m_ptLast;
  uint32_t m_nRandom;
};

class CNumberShape : public CCanvasShape {
 public:
  CNumberShape(POINT pt, int32_t size, uint32_t color, const std::string& font, int32_t style,
               uint32_t color2);
  BOOL MoveTo(POINT pt) override;
  BOOL Draw(cairo_t* g) override;

 private:
  std::string m_szText;
  std::string m_szFont;
  int32_t m_nSize, m_nStyle;
  uint32_t m_Color, m_Color2;
  POINT m_ptCenter;
  float m_fRadius;
  float m_fDigitX = 0, m_fDigitY = 0;
};

// Text typed straight onto the screen: a pango layout and a small editor
// (caret, selection, typing) that the surface feeds with keys.
class CTextShape : public CCanvasShape {
 public:
  // Keys the editor knows beside typed text.
  enum Key {
    kKeyOther,
    kKeyBackspace,
    kKeyDelete,
    kKeyLeft,
    kKeyRight,
    kKeyHome,
    kKeyEnd,
    kKeyReturn,
    kKeyEscape,
    kKeySelectAll
  };
  CTextShape(CTextShapeCallback* callback, POINT pt, int32_t size, uint32_t color,
             const std::string& font, int32_t style);
  BOOL Draw(cairo_t* g) override;
  void Finish() override;
  // A key while editing; text is UTF-8 of what it types, or empty.
  void OnKey(Key key, const char* text, bool shift);
  bool Active() const { return m_bActive; }
  const std::string& Text() const { return m_szText; }
  // The layout's font, as pango reads it.
  static std::string FontDescription(const std::string& font, int32_t size, int32_t style);

 private:
  void Changed();
  void DeleteSelection();
  CTextShapeCallback* m_pCallback;
  std::string m_szText;  // UTF-8, without carriage returns
  std::string m_szFont;
  int32_t m_nSize, m_nStyle;
  uint32_t m_Color;
  POINT m_ptPosition;
  size_t m_nCaret = 0, m_nAnchor = 0;  // byte offsets
  bool m_bActive = true;
};

// A filled rectangle: blur from the owner's slot, or an erased patch.
class CBoxShape : public CCanvasShape {
 public:
  CBoxShape(POINT pt, cairo_pattern_t* const* slot) : m_ptStart(pt), m_ptEnd(pt), m_pSlot(slot) {}
  BOOL MoveTo(POINT pt) override;
  BOOL Draw(cairo_t* g) override;
  void EndDrag() override { m_bFrame = 0; }

 private:
  BOOL m_bFrame = 1;
  POINT m_ptStart, m_ptEnd;
  cairo_pattern_t* const* m_pSlot;  // null: erase
};

class CBlurShapeBox : public CBoxShape {
 public:
  CBlurShapeBox(POINT pt, cairo_pattern_t* const* slot) : CBoxShape(pt, slot) {}
};

class CEraseShapeBox : public CBoxShape {
 public:
  explicit CEraseShapeBox(POINT pt) : CBoxShape(pt, nullptr) {}
};
