#include "WatermarkBlend.h"

#include <cstring>

namespace mux {

bool WatermarkBlend::Init(const uint8_t* raster, size_t bytes, int width, int height) {
  const size_t pixels = static_cast<size_t>(width) * height;
  if (width <= 0 || height <= 0 || width % 2 || height % 2 || bytes < pixels * 4) return false;
  const int cw = width / 2, ch = height / 2;
  m_planes[0] = {raster, raster + pixels * 3 / 2, width, height, {}};
  m_planes[1] = {raster + pixels, raster + pixels * 5 / 2, cw, ch, {}};
  m_planes[2] = {raster + pixels * 5 / 4, raster + pixels * 5 / 2, cw, ch, {}};
  for (Plane& plane : m_planes) Scan(&plane);
  return true;
}

bool WatermarkBlend::Covers(const uint8_t* raster, size_t bytes, int width, int height) {
  const size_t pixels = static_cast<size_t>(width) * height;
  if (width <= 0 || height <= 0 || bytes < pixels * 4) return true;
  const uint8_t* alpha = raster + pixels * 3 / 2;
  const size_t count = pixels + pixels / 4;
  for (size_t i = 0; i < count; ++i)
    if (alpha[i] != 0) return true;
  return false;
}

void WatermarkBlend::Scan(Plane* plane) {
  plane->rows.resize(static_cast<size_t>(plane->height));
  for (int y = 0; y < plane->height; ++y) {
    const uint8_t* a = plane->alpha + static_cast<size_t>(y) * plane->width;
    int begin = 0, end = plane->width;
    while (begin < end && a[begin] == 0) ++begin;
    while (end > begin && a[end - 1] == 0) --end;
    plane->rows[static_cast<size_t>(y)] = {begin, end};
  }
}

void WatermarkBlend::BlendPlane(const Plane& plane, const uint8_t* from, int fromPitch, uint8_t* to,
                                int toPitch) {
  for (int y = 0; y < plane.height; ++y) {
    const uint8_t* in = from + static_cast<ptrdiff_t>(y) * fromPitch;
    uint8_t* out = to + static_cast<ptrdiff_t>(y) * toPitch;
    std::memcpy(out, in, static_cast<size_t>(plane.width));
    const Span span = plane.rows[static_cast<size_t>(y)];
    const uint8_t* colour = plane.colour + static_cast<size_t>(y) * plane.width;
    const uint8_t* alpha = plane.alpha + static_cast<size_t>(y) * plane.width;
    for (int x = span.begin; x < span.end; ++x) {
      const uint32_t a = alpha[x];
      out[x] = static_cast<uint8_t>((in[x] * (255 - a) + colour[x] * a + 127) / 255);
    }
  }
}

void WatermarkBlend::Apply(const AVFrame* source, AVFrame* target) const {
  for (int p = 0; p < 3; ++p)
    BlendPlane(m_planes[p], source->data[p], source->linesize[p], target->data[p],
               target->linesize[p]);
}

}  // namespace mux
