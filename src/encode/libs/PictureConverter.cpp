#include "encode/libs/PictureConverter.h"

#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

namespace ov::enc {

PictureConverter::~PictureConverter() { sws_freeContext(m_sws); }

bool PictureConverter::Init(int width, int height, AVPixelFormat target) {
  m_width = width;
  m_height = height;
  // Same size in and out: the flags only choose how chroma is subsampled.
  m_sws = sws_getContext(width, height, AV_PIX_FMT_BGR0, width, height, target, SWS_FAST_BILINEAR,
                         nullptr, nullptr, nullptr);
  if (!m_sws) return false;
  // Screen pixels are full-range RGB; the encoders announce BT.709 limited.
  const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
  sws_setColorspaceDetails(m_sws, bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
  return true;
}

void PictureConverter::Convert(const uint8_t* bgr32, int stride, AVFrame* target) {
  const uint8_t* planes[1] = {bgr32};
  const int strides[1] = {stride};
  sws_scale(m_sws, planes, strides, 0, m_height, target->data, target->linesize);
  RepeatEdges(target);
}

// Chroma already covers an odd edge (its size rounds up); luma gets the
// column and row beside it.
void PictureConverter::RepeatEdges(AVFrame* target) const {
  uint8_t* luma = target->data[0];
  const int pitch = target->linesize[0];
  if (target->width > m_width) {
    for (int y = 0; y < m_height; ++y) luma[y * pitch + m_width] = luma[y * pitch + m_width - 1];
  }
  if (target->height > m_height) {
    memcpy(luma + m_height * pitch, luma + (m_height - 1) * pitch, target->width);
  }
}

}  // namespace ov::enc
