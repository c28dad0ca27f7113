// The shapes of a drawing surface: the one being drawn, the finished ones in
// order, and those undone (redo brings them back). The screen canvas of a
// recording and the still capture keep theirs here, so that both make the
// same shape for a tool and paint the list alike.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "overlay/CanvasShapes.h"

// The tool the host chose, with its pen and font.
struct ShapeTool {
  int32_t tool = 0, size = 0;
  uint32_t color = 0, color2 = 0;
  std::string font = "Sans";
  int32_t fontStyle = 0;
};

namespace ov {
struct PointerShape;
}  // namespace ov

// The pointer over a surface while the tool is chosen; null for no tool.
// The brush cursor of tools 9 and 11 is made anew when the size changes.
const ov::PointerShape* ToolCursor(const ShapeTool& tool);

// The text editor's key for an X key symbol.
CTextShape::Key TextKey(uint32_t keysym, bool control);

// What a surface gives the shapes that paint a picture of it.
struct ShapeSurface {
  CTextShapeCallback* text = nullptr;
  int32_t width = 0, height = 0;
  // Patterns the strokes and boxes of tools 9 to 12 paint with: restore
  // (null: they erase to clear) and blur.
  cairo_pattern_t* const* restore = nullptr;
  cairo_pattern_t* const* blur = nullptr;
};

class CShapeList {
 public:
  // Makes the tool's shape at pt as the current one; null for no tool.
  CCanvasShape* Begin(const ShapeTool& tool, POINT pt, const ShapeSurface& surface);
  CCanvasShape* Current() const { return m_pCurrentShape.get(); }
  void DropCurrent() { m_pCurrentShape.reset(); }
  // The current shape joins the list if it shows anything; redo is lost.
  void Commit();
  // False when there was nothing to do.
  bool Undo();
  bool Redo();
  // Everything drawn goes to the undone list, the last drawn first, so that
  // redo brings them back in order.
  bool Clear();
  // Paints the visible shapes, the current one last; false when nothing
  // painted.
  BOOL Paint(cairo_t* graphics) const;
  void Reset();

  int Count() const { return static_cast<int>(m_Shapes.size()); }
  BOOL CanUndo() const { return !m_Shapes.empty(); }
  BOOL CanRedo() const { return !m_Undone.empty(); }

 private:
  std::unique_ptr<CCanvasShape> m_pCurrentShape;
  std::vector<std::unique_ptr<CCanvasShape>> m_Shapes;
  std::vector<std::unique_ptr<CCanvasShape>> m_Undone;
};
