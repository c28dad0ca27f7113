// Lays the engine's watermark raster on decoded pictures.
//
// The raster, for a w x h frame: Y (w * h), U and V (w * h / 4 each), the
// alpha of Y (w * h) and the alpha of the chroma planes (w * h / 4), colours
// straight; a pixel becomes (pixel * (255 - alpha) + picture * alpha) / 255.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
}

namespace mux {

class WatermarkBlend {
 public:
  // False for an odd size, or when the raster of a width x height frame
  // needs more than bytes.
  bool Init(const uint8_t* raster, size_t bytes, int width, int height);
  // Writes source with the picture laid on it into target (both 8-bit
  // 4:2:0, the size given to Init); only the covered spans are blended.
  void Apply(const AVFrame* source, AVFrame* target) const;
  // Whether any alpha of the raster is above 0; a raster of another size
  // than bytes allow counts as covering (and fails at Init).
  static bool Covers(const uint8_t* raster, size_t bytes, int width, int height);

 private:
  struct Span {
    int begin;
    int end;
  };
  struct Plane {
    const uint8_t* colour;
    const uint8_t* alpha;
    int width;
    int height;
    std::vector<Span> rows;  // the covered part of each row
  };
  static void Scan(Plane* plane);
  static void BlendPlane(const Plane& plane, const uint8_t* from, int fromPitch, uint8_t* to,
                         int toPitch);

  Plane m_planes[3]{};
};

}  // namespace mux
