// The machine's video capture devices (cameras): what they are called, the
// pixel formats and frame sizes they give, and a stream of frames from one.
//
// With ORVANTA_TEST_CAMERA set in the environment the list holds built-in
// pattern sources instead, one per format that cameras commonly give
// (YUYV, NV12, MJPEG, I420), so that the preview can be checked on a machine
// without a camera.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "orvanta/types.h"

namespace ov {

constexpr uint32_t FourCC(char a, char b, char c, char d) {
  return static_cast<uint32_t>(static_cast<uint8_t>(a)) |
         static_cast<uint32_t>(static_cast<uint8_t>(b)) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(c)) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(d)) << 24;
}

struct CameraMode {
  uint32_t fourcc = 0;
  int32_t width = 0, height = 0;
  // Frames per second as a fraction; 0 / 1 when the device does not say.
  uint32_t rateNumerator = 0, rateDenominator = 1;
};

struct CameraFormat {
  uint32_t fourcc = 0;
  bool emulated = false;  // made by the capture library's own conversion
  std::vector<CameraMode> sizes;
};

struct CameraInfo {
  std::string name;
  std::string path;       // what OpenStream takes
  uint32_t identity = 0;  // stable across re-plugging: a hash of the driver's bus and card
  std::vector<CameraFormat> formats;
};

// The devices that capture video, in the system's order, at most maxCount.
std::vector<CameraInfo> ListCameras(size_t maxCount);

struct CameraFrame {
  const uint8_t* data = nullptr;
  size_t bytes = 0;
  int32_t stride = 0;  // of the first plane
};

class CameraStream {
 public:
  // Opens the device at path in the mode (fourcc and size) it accepts
  // nearest to the one asked for; Mode() tells what it took.
  static HRESULT Open(const std::string& path, const CameraMode& wanted,
                      std::unique_ptr<CameraStream>* stream);
  virtual ~CameraStream() = default;

  virtual const CameraMode& Mode() const = 0;
  virtual int32_t Stride() const = 0;
  virtual HRESULT Start() = 0;
  virtual void Stop() = 0;
  // Waits at most timeoutMs for the next frame: S_OK with the frame, which
  // stays valid until ReleaseFrame; S_FALSE when none came in time;
  // kDeviceLost when the device has gone, E_FAIL for other failures.
  virtual HRESULT NextFrame(int timeoutMs, CameraFrame* frame) = 0;
  virtual void ReleaseFrame() = 0;

  static constexpr HRESULT kDeviceLost = static_cast<HRESULT>(0x80070015u);  // not ready
};

// The pattern sources' picture: 4 columns by 2 rows of flat colours, each
// 0xRRGGBB, row by row, at the size below unless ORVANTA_TEST_CAMERA holds
// another ("1280x720").
inline constexpr uint32_t kTestCameraColours[8] = {0xD03030, 0x30D030, 0x3030D0, 0xD0D030,
                                                   0x30D0D0, 0xD030D0, 0xD0D0D0, 0x303030};
inline constexpr int32_t kTestCameraWidth = 320, kTestCameraHeight = 240;
// Makes every pattern source vanish (its streams report kDeviceLost, the
// list no longer has it) or come back.
void SetTestCamerasPresent(bool present);

}  // namespace ov
