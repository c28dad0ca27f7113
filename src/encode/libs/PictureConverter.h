// The one place where captured BGR32 pixels become the encoder's input
// picture. Everything else in the libraries sees only the converted picture,
// so another converter (our own SIMD BGR32 to I420/NV12 kernels) drops in
// here alone; it must produce BT.709 limited-range 4:2:0, which is what the
// encoders announce in the stream.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "platform/NonCopyable.h"

struct SwsContext;

namespace ov::enc {

class PictureConverter : private ov::NonCopyable {
 public:
  PictureConverter() = default;
  ~PictureConverter();

  // width, height: the captured region. The target picture may be larger
  // (coded sizes are even, and have a minimum); the margin repeats the
  // region's last column and row.
  bool Init(int width, int height, AVPixelFormat target);
  // bgr32: the region's top row; stride in bytes, at least width * 4.
  void Convert(const uint8_t* bgr32, int stride, AVFrame* target);

 private:
  void FillMargins(AVFrame* target) const;

  SwsContext* m_sws = nullptr;
  int m_width = 0;
  int m_height = 0;
};

}  // namespace ov::enc
