// The one place where captured BGR32 pixels become the encoder's input
// picture: video-range BT.709 4:2:0 (I420 or NV12, whichever the encoder
// takes), which is what the encoders announce in the stream. The engine's own
// kernels write straight from the capture surface into the picture, on the
// fastest instruction set of this processor; all of them give the same bytes.
#pragma once

#include <cstdint>
#include <vector>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "pixels/PixelKernels.h"
#include "platform/NonCopyable.h"

namespace ov::enc {

// A rectangle of a picture in pixels, right and bottom exclusive.
struct PictureArea {
  int left, top, right, bottom;
};

class PictureConverter : private ov::NonCopyable {
 public:
  // width, height: the captured region. The target picture may be larger
  // (coded sizes are even, and have a minimum); the margin repeats the
  // region's last column and row. False for a format other than I420 or NV12.
  bool Init(int width, int height, AVPixelFormat target);
  // bgr32: the region's top row; stride in bytes, at least width * 4. Reads
  // only the region's pixels.
  void Convert(const uint8_t* bgr32, int stride, AVFrame* target);
  // The target area that a change to the region's area makes new: whole
  // pairs of rows and columns, with the margins beyond the region's last row
  // and column where the change reaches them.
  PictureArea TargetArea(const PictureArea& changed, int codedWidth, int codedHeight) const;
  // Convert for a target area only, as TargetArea gives it.
  void ConvertArea(const uint8_t* bgr32, int stride, AVFrame* target, const PictureArea& area);
  // Copies the target rows [top, bottom), both even, of a picture of the same
  // layout.
  void CopyRows(const AVFrame& from, AVFrame* target, int top, int bottom) const;

 private:
  const ov::pixels::PixelKernels* m_kernels = nullptr;
  int m_width = 0;
  int m_height = 0;
  bool m_nv12 = false;
  std::vector<uint8_t> m_edge;  // pixels of the margins, made once
};

}  // namespace ov::enc
