// The built-in pattern sources behind the camera interface.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/VideoCaptureDevice.h"

namespace ov {

inline constexpr char kPatternCameraPrefix[] = "pattern:";

// The pattern sources when ORVANTA_TEST_CAMERA is set (and they have not
// been made to vanish); empty otherwise.
std::vector<CameraInfo> ListPatternCameras();
HRESULT OpenPatternCamera(const std::string& path, std::unique_ptr<CameraStream>* stream);

}  // namespace ov
