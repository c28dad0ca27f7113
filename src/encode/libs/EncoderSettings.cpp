#include "encode/libs/EncoderSettings.h"

#include <algorithm>
#include <thread>

namespace ov::enc {

int32_t CodedSide(int32_t codecType, int32_t side) {
  const int32_t smallest = codecType == kH265 ? 16 : 2;
  return std::max((side + 1) & ~1, smallest);
}

const char* EncoderName(Backend backend, int32_t codecType) {
  switch (backend) {
    case Backend::Software:
      return codecType == kH264    ? "libx264"
             : codecType == kH265  ? "libx265"
             : codecType == kMpeg2 ? "mpeg2video"
                                   : nullptr;
    case Backend::Vaapi:
      return codecType == kH264    ? "h264_vaapi"
             : codecType == kH265  ? "hevc_vaapi"
             : codecType == kMpeg2 ? "mpeg2_vaapi"
                                   : nullptr;
    case Backend::Nvenc:
      return codecType == kH264 ? "h264_nvenc" : codecType == kH265 ? "hevc_nvenc" : nullptr;
  }
  return nullptr;
}

QualityLevel QualityFor(int32_t videoQuality) {
  static constexpr QualityLevel kLevels[] = {
      {24, 32, 12, 32}, {21, 30, 9, 29}, {18, 28, 6, 26},
      {16, 26, 5, 24},  {14, 24, 4, 22}, {12, 22, 3, 20},
  };
  int step = videoQuality >= 1 && videoQuality <= 6 ? videoQuality : 3;
  return kLevels[step - 1];
}

int32_t EncoderThreads(int32_t width, int32_t height, int32_t frameRate) {
  constexpr int64_t kFullHd30 = int64_t{1920} * 1080 * 30;
  const int64_t pixelRate = int64_t{width} * height * frameRate;
  const int cores = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, 8);
  return static_cast<int32_t>(std::clamp<int64_t>(1 + (pixelRate - 1) / kFullHd30, 1, cores));
}

}  // namespace ov::enc
