// Change detection against the last frame handed to the encoder.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/NonCopyable.h"

class CFrameDetect : private ov::NonCopyable {
 public:
  // width and height are the rounded frame size.
  CFrameDetect(int32_t width, int32_t height);
  ~CFrameDetect();

  // False when the frame equals the reference; otherwise it becomes the
  // reference and the result is true.
  bool IsChanged(const uint8_t* pixels);
  // The same for the rows [top, bottom) and columns [left, right) of the
  // frame, when the caller knows that the rest equals the reference.
  bool IsChanged(const uint8_t* pixels, int32_t top, int32_t bottom, int32_t left, int32_t right);

  // Moves the reference, as it is, into memory that someone else owns (at
  // least m_nFrameSize bytes); from then on it is that memory's owner's to
  // keep alive.
  void MoveReference(uint8_t* block);

  // Rounds a region's side up to a multiple of 64, at least 64.
  static int32_t RoundSize(int32_t n);

  uint32_t m_nFrameSize;
  uint8_t* m_pLastFrame = nullptr;
  size_t m_nBlockSize = 0;
  int32_t m_nWidth;
  int32_t m_nHeight;

 private:
  uint8_t* m_pBlock = nullptr;  // the reference's own block, until MoveReference
};
