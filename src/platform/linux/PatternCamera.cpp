// A camera that shows a fixed picture of flat colours at 30 frames a
// second, in YUYV, NV12, MJPEG or I420: enough to check a preview's conversions,
// layout and snapshots where no camera is plugged in.
#include "platform/linux/PatternCamera.h"

#include <jpeglib.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace ov {

namespace {

std::atomic<bool> g_patternPresent{true};

struct PatternFormat {
  uint32_t fourcc;
  const char* name;
};
constexpr PatternFormat kPatternFormats[] = {{FourCC('Y', 'U', 'Y', 'V'), "YUYV"},
                                             {FourCC('N', 'V', '1', '2'), "NV12"},
                                             {FourCC('M', 'J', 'P', 'G'), "MJPEG"},
                                             {FourCC('Y', 'U', '1', '2'), "I420"}};

uint32_t ColourAt(int x, int y, int width, int height) {
  const int column = x * 4 / width, row = y * 2 / height;
  return kTestCameraColours[row * 4 + column];
}

struct Yuv {
  uint8_t y, u, v;
};

// Video-range BT.601, as cameras give it.
Yuv ToYuv(uint32_t rgb) {
  const int r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
  return {static_cast<uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16),
          static_cast<uint8_t>(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128),
          static_cast<uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128)};
}

std::vector<uint8_t> MakeYuyv(int width, int height) {
  std::vector<uint8_t> frame(static_cast<size_t>(width) * 2 * height);
  uint8_t* p = frame.data();
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; x += 2, p += 4) {
      const Yuv c = ToYuv(ColourAt(x, y, width, height));
      p[0] = c.y, p[1] = c.u, p[2] = c.y, p[3] = c.v;
    }
  return frame;
}

// 4:2:0 with the chroma interleaved (NV12) or in a U plane and a V plane.
std::vector<uint8_t> Make420(int width, int height, bool interleaved) {
  const size_t luma = static_cast<size_t>(width) * height;
  std::vector<uint8_t> frame(luma * 3 / 2);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const Yuv c = ToYuv(ColourAt(x, y, width, height));
      frame[static_cast<size_t>(y) * width + x] = c.y;
      if ((x | y) & 1) continue;
      uint8_t* chroma = frame.data() + luma;
      if (interleaved) {
        uint8_t* uv = chroma + static_cast<size_t>(y / 2) * width + x;
        uv[0] = c.u, uv[1] = c.v;
      } else {
        const size_t at = static_cast<size_t>(y / 2) * (width / 2) + x / 2;
        chroma[at] = c.u, chroma[luma / 4 + at] = c.v;
      }
    }
  return frame;
}

std::vector<uint8_t> MakeMjpeg(int width, int height) {
  std::vector<uint8_t> rgb(static_cast<size_t>(width) * 3 * height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const uint32_t c = ColourAt(x, y, width, height);
      uint8_t* p = rgb.data() + (static_cast<size_t>(y) * width + x) * 3;
      p[0] = static_cast<uint8_t>(c >> 16), p[1] = static_cast<uint8_t>(c >> 8);
      p[2] = static_cast<uint8_t>(c);
    }
  jpeg_compress_struct jpeg{};
  jpeg_error_mgr error{};
  jpeg.err = jpeg_std_error(&error);
  jpeg_create_compress(&jpeg);
  unsigned char* out = nullptr;
  unsigned long outBytes = 0;
  jpeg_mem_dest(&jpeg, &out, &outBytes);
  jpeg.image_width = width;
  jpeg.image_height = height;
  jpeg.input_components = 3;
  jpeg.in_color_space = JCS_RGB;
  jpeg_set_defaults(&jpeg);
  jpeg_set_quality(&jpeg, 95, TRUE);
  jpeg_start_compress(&jpeg, TRUE);
  while (jpeg.next_scanline < jpeg.image_height) {
    JSAMPROW row = rgb.data() + static_cast<size_t>(jpeg.next_scanline) * width * 3;
    jpeg_write_scanlines(&jpeg, &row, 1);
  }
  jpeg_finish_compress(&jpeg);
  std::vector<uint8_t> frame(out, out + outBytes);
  jpeg_destroy_compress(&jpeg);
  std::free(out);
  return frame;
}

class PatternStream final : public CameraStream {
 public:
  PatternStream(uint32_t fourcc, int width, int height) {
    m_mode = {fourcc, width, height, 30, 1};
    if (fourcc == FourCC('Y', 'U', 'Y', 'V')) {
      m_frame = MakeYuyv(width, height);
      m_stride = width * 2;
    } else if (fourcc == FourCC('N', 'V', '1', '2') || fourcc == FourCC('Y', 'U', '1', '2')) {
      m_frame = Make420(width, height, fourcc == FourCC('N', 'V', '1', '2'));
      m_stride = width;
    } else {
      m_frame = MakeMjpeg(width, height);
    }
  }

  const CameraMode& Mode() const override { return m_mode; }
  int32_t Stride() const override { return m_stride; }
  HRESULT Start() override {
    m_next = std::chrono::steady_clock::now();
    return g_patternPresent ? S_OK : kDeviceLost;
  }
  void Stop() override {}

  HRESULT NextFrame(int timeoutMs, CameraFrame* frame) override {
    const auto now = std::chrono::steady_clock::now();
    if (m_next > now + std::chrono::milliseconds(timeoutMs)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(timeoutMs));
      return g_patternPresent ? S_FALSE : kDeviceLost;
    }
    std::this_thread::sleep_until(m_next);
    if (!g_patternPresent) return kDeviceLost;
    m_next = std::max(m_next + std::chrono::milliseconds(33), now);
    *frame = {m_frame.data(), m_frame.size(), m_stride};
    return S_OK;
  }
  void ReleaseFrame() override {}

 private:
  CameraMode m_mode;
  std::vector<uint8_t> m_frame;
  int32_t m_stride = 0;
  std::chrono::steady_clock::time_point m_next;
};

// The size the environment asks for ("1", or a size such as "1280x720").
void PatternSize(int* width, int* height) {
  *width = kTestCameraWidth, *height = kTestCameraHeight;
  const char* wanted = std::getenv("ORVANTA_TEST_CAMERA");
  int w = 0, h = 0;
  if (wanted && std::sscanf(wanted, "%dx%d", &w, &h) == 2 && w >= 8 && h >= 8 && w <= 4096 &&
      h <= 4096)
    *width = w & ~7, *height = h & ~7;
}

}  // namespace

void SetTestCamerasPresent(bool present) { g_patternPresent = present; }

std::vector<CameraInfo> ListPatternCameras() {
  std::vector<CameraInfo> cameras;
  const char* wanted = std::getenv("ORVANTA_TEST_CAMERA");
  if (!wanted || !*wanted || !g_patternPresent) return cameras;
  int width, height;
  PatternSize(&width, &height);
  for (const PatternFormat& format : kPatternFormats) {
    CameraInfo info;
    info.name = std::string("Orvanta pattern camera ") + format.name;
    info.path = std::string(kPatternCameraPrefix) + format.name;
    info.identity = format.fourcc;
    info.formats.push_back({format.fourcc, false, {{format.fourcc, width, height, 30, 1}}});
    cameras.push_back(std::move(info));
  }
  return cameras;
}

HRESULT OpenPatternCamera(const std::string& path, std::unique_ptr<CameraStream>* stream) {
  for (const PatternFormat& format : kPatternFormats)
    if (path == std::string(kPatternCameraPrefix) + format.name) {
      if (!g_patternPresent) return CameraStream::kDeviceLost;
      int width, height;
      PatternSize(&width, &height);
      *stream = std::make_unique<PatternStream>(format.fourcc, width, height);
      return S_OK;
    }
  return E_INVALIDARG;
}

}  // namespace ov
