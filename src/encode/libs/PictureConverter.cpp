#include "encode/libs/PictureConverter.h"

#include <algorithm>
#include <cstring>

#include "pixels/PixelDispatch.h"

namespace ov::enc {

bool PictureConverter::Init(int width, int height, AVPixelFormat target) {
  if (width < 1 || height < 1 || (target != AV_PIX_FMT_YUV420P && target != AV_PIX_FMT_NV12))
    return false;
  m_width = width;
  m_height = height;
  m_nv12 = target == AV_PIX_FMT_NV12;
  // Chosen here rather than once per process, so that a cap on the
  // instruction set set in the environment applies to the next recording.
  m_kernels = &ov::PixelKernelsForLevel(ov::DetectPixelCpuLevel());
  // The margins are at most a few columns wide and one row deep, except for
  // codecs with a minimum size; one row of the widest coded picture holds
  // either, and two rows a strip of any width.
  m_edge.assign(static_cast<size_t>(std::max(width, 64) + 64) * 2 * 4, 0);
  return true;
}

void PictureConverter::Convert(const uint8_t* bgr32, int stride, AVFrame* target) {
  ConvertArea(bgr32, stride, target, {0, 0, target->width, target->height});
}

PictureArea PictureConverter::TargetArea(const PictureArea& changed, int codedWidth,
                                         int codedHeight) const {
  const int evenWidth = m_width & ~1, evenHeight = m_height & ~1;
  PictureArea area;
  area.left = std::clamp(changed.left & ~1, 0, evenWidth);
  area.top = std::clamp(changed.top & ~1, 0, evenHeight);
  area.right = changed.right >= m_width
                   ? codedWidth
                   : std::clamp((changed.right + 1) & ~1, area.left, evenWidth);
  area.bottom = changed.bottom >= m_height
                    ? codedHeight
                    : std::clamp((changed.bottom + 1) & ~1, area.top, evenHeight);
  return area;
}

void PictureConverter::CopyRows(const AVFrame& from, AVFrame* target, int top, int bottom) const {
  for (int plane = 0; plane < (m_nv12 ? 2 : 3); ++plane) {
    const int shift = plane == 0 ? 0 : 1;
    const ptrdiff_t pitch = target->linesize[plane];
    if (bottom <= top || pitch != from.linesize[plane]) continue;
    memcpy(target->data[plane] + (top >> shift) * pitch, from.data[plane] + (top >> shift) * pitch,
           static_cast<size_t>(((bottom - top) >> shift) * pitch));
  }
}

void PictureConverter::ConvertArea(const uint8_t* bgr32, int stride, AVFrame* target,
                                   const PictureArea& area) {
  uint8_t* y = target->data[0];
  const ptrdiff_t yPitch = target->linesize[0];
  uint8_t* u = target->data[1];
  uint8_t* v = m_nv12 ? u + 1 : target->data[2];
  const ptrdiff_t uvPitch = target->linesize[1];
  const int step = m_nv12 ? 2 : 1;
  const int codedWidth = target->width, codedHeight = target->height;
  const int evenWidth = m_width & ~1, evenHeight = m_height & ~1;
  const int top = area.top, bottom = area.bottom, bandEnd = std::min(bottom, evenHeight);
  const int left = area.left, right = std::min(area.right, evenWidth);
  const auto convert = m_kernels->bgr32ToVideoYuv;
  const uint8_t* lastColumn = bgr32 + static_cast<ptrdiff_t>(m_width - 1) * 4;

  if (right > left && bandEnd > top) {
    const ptrdiff_t chroma = top / 2 * uvPitch + left / 2 * step;
    convert(y + top * yPitch + left, yPitch, u + chroma, v + chroma, uvPitch, step,
            bgr32 + static_cast<ptrdiff_t>(top) * stride + left * 4, stride, right - left,
            bandEnd - top);
  }

  // Columns from the even width on: each row's last pixel, repeated.
  const int stripWidth = codedWidth - evenWidth;
  uint8_t* edge = m_edge.data();
  if (area.right > evenWidth && stripWidth > 0 &&
      static_cast<size_t>(stripWidth) * 8 <= m_edge.size()) {
    for (int row = top; row < bandEnd; row += 2) {
      for (int r = 0; r < 2; ++r) {
        const uint8_t* pixel = lastColumn + static_cast<ptrdiff_t>(row + r) * stride;
        for (int x = 0; x < stripWidth; ++x) memcpy(edge + (r * stripWidth + x) * 4, pixel, 4);
      }
      const ptrdiff_t chroma = row / 2 * uvPitch + evenWidth / 2 * step;
      convert(y + row * yPitch + evenWidth, yPitch, u + chroma, v + chroma, uvPitch, step, edge,
              stripWidth * 4, stripWidth, 2);
    }
  }

  // Rows from the even height on: the last row, its last pixel repeated,
  // read twice for each pair of rows.
  if (bottom > evenHeight && codedHeight > evenHeight &&
      static_cast<size_t>(codedWidth) * 4 <= m_edge.size()) {
    const uint8_t* last = bgr32 + static_cast<ptrdiff_t>(m_height - 1) * stride;
    memcpy(edge, last, static_cast<size_t>(m_width) * 4);
    for (int x = m_width; x < codedWidth; ++x) memcpy(edge + x * 4, last + (m_width - 1) * 4, 4);
    const ptrdiff_t chroma = evenHeight / 2 * uvPitch;
    convert(y + evenHeight * yPitch, yPitch, u + chroma, v + chroma, uvPitch, step, edge, 0,
            codedWidth, codedHeight - evenHeight);
  }
}

}  // namespace ov::enc
