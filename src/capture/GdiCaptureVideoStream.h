// The capture that works everywhere: one copy of the region from the screen
// per frame.
#pragma once

#include <memory>

#include "capture/CaptureVideoStream.h"
#include "platform/ScreenGrabber.h"

class CGdiCaptureVideoStream : public CCaptureVideoStream {
 public:
  using CCaptureVideoStream::CCaptureVideoStream;
  ~CGdiCaptureVideoStream() override;

 protected:
  bool SetUp() override;
  bool FillFrame(uint8_t* frame, int32_t pitch) override;
  bool UpdateReference(uint8_t* frame) override;

 private:
  std::unique_ptr<ov::ScreenGrabber> m_grabber;
  bool m_bSwapReference = false;  // the reference is the bitmap's back buffer
};
