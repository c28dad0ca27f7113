// The camera list and the preview: one capture thread per preview takes the
// camera's frames and hands them to the renderer, which shows them in the
// host's window. The thread waits for a frame with a time-out, so that
// destroying the preview never waits on the camera, and a camera that goes
// away ends the preview with a log line and the host's OnGraphEnd.
#include "camera/CameraDevice.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <vector>

#include "camera/CameraRenderer.h"
#include "core/Log.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/VideoCaptureDevice.h"

CameraDevice CameraDevices[kMaxCameraDevices];

namespace {

int g_nCameraDevices = 0;
constexpr int kFrameWaitMs = 100;

template <size_t N>
void CopyName(wchar_t (&field)[N], const std::string& text) {
  const std::wstring wide = ov::FromUtf8(text);
  const size_t n = std::min(wide.size(), N - 1);
  std::wmemcpy(field, wide.data(), n);
  field[n] = 0;
}

std::string FourCCText(uint32_t fourcc) {
  std::string text(4, ' ');
  for (int i = 0; i < 4; ++i) {
    const char c = static_cast<char>(fourcc >> (8 * i));
    text[i] = c >= 32 && c < 127 ? c : '?';
  }
  return text;
}

void LogFormats(int index, const ov::CameraInfo& info) {
  for (const ov::CameraFormat& format : info.formats) {
    std::string sizes;
    for (const ov::CameraMode& mode : format.sizes) {
      if (!sizes.empty()) sizes += ',';
      sizes += std::to_string(mode.width) + "x" + std::to_string(mode.height);
      if (mode.rateDenominator && mode.rateNumerator) {
        sizes += '@';
        sizes += std::to_string(mode.rateNumerator / mode.rateDenominator);
      }
    }
    WriteLog(ov::kDbg, "Camera format:Index=%d;Format=%s%s;Sizes=%s\n", index,
             FourCCText(format.fourcc).c_str(), format.emulated ? "(converted)" : "",
             sizes.c_str());
  }
}

int BuildCameraList(CameraDevice* table) {
  int count = 0;
  for (const ov::CameraInfo& info : ov::ListCameras(kMaxCameraDevices)) {
    CameraDevice& record = table[count];
    CopyName(record.Name, info.name);
    CopyName(record.DisplayNameName, info.path);
    record.hash = info.identity;
    WriteLog(ov::kMsg, "Find camera device:Index=%d;Name=%ls;DisplayName=%ls\n", count, record.Name,
             record.DisplayNameName);
    LogFormats(count, info);
    ++count;
  }
  return count;
}

// The camera as it is now, found by the name the list gave it.
HRESULT FindCamera(const wchar_t* pwszDisplayName, ov::CameraInfo* info) {
  const std::string path = ov::ToUtf8(pwszDisplayName);
  for (ov::CameraInfo& camera : ov::ListCameras(64))
    if (camera.path == path) {
      *info = std::move(camera);
      return S_OK;
    }
  return ov::CameraStream::kDeviceLost;
}

// A size that fits 1280 x 720 and keeps a fluid rate, as large as there is,
// in a format the camera gives itself and that is cheap to show; a camera
// with nothing the renderer shows gives its first mode, which the renderer
// then refuses.
ov::CameraMode ChooseMode(const ov::CameraInfo& info) {
  ov::CameraMode best;
  auto rank = [](const ov::CameraFormat& format, const ov::CameraMode& mode) {
    const int preference = CCameraRenderer::Preference(format.fourcc);
    const bool fits = mode.width <= 1280 && mode.height <= 720;
    const bool fluid = !mode.rateDenominator || !mode.rateNumerator ||
                       mode.rateNumerator >= 24 * mode.rateDenominator;
    const int64_t area =
        fits ? int64_t{mode.width} * mode.height : -int64_t{mode.width} * mode.height;
    return std::make_tuple(preference >= 0, fits, fluid, area, !format.emulated, -preference);
  };
  bool found = false;
  decltype(rank(ov::CameraFormat{}, ov::CameraMode{})) bestRank{};
  for (const ov::CameraFormat& format : info.formats)
    for (const ov::CameraMode& mode : format.sizes) {
      const auto r = rank(format, mode);
      if (!found || r > bestRank) best = mode, bestRank = r, found = true;
    }
  return best;
}

class CVideoCapturePrev final : public CCameraObject {
 public:
  explicit CVideoCapturePrev(CCameraCallback* pCallback)
      : CCameraObject("CCameraObject"), pCallback(pCallback) {}

  ~CVideoCapturePrev() override {
    {
      std::lock_guard<std::mutex> lock(m_csState);
      m_bRun = false;
    }
    m_StateChanged.notify_all();
    // A host may destroy the preview from OnGraphEnd, on the capture thread
    // itself, which touches nothing of the object after that call.
    if (m_thread.joinable() && m_thread.get_id() == std::this_thread::get_id())
      m_thread.detach();
    else if (m_thread.joinable())
      m_thread.join();
    m_pRenderer.reset();
    m_pStream.reset();
  }

  HRESULT OpenGraph(HWND hwndRenderer, int index);

  void Resize() override {
    if (m_pRenderer) m_pRenderer->RequestLayout();
  }
  void Reserved() override {}
  HRESULT ShowPinProperties(HWND) override { return S_FALSE; }
  HRESULT ShowFilterProperties(HWND) override { return S_FALSE; }
  void GetVideoSize(int* pWidth, int* pHeight) override {
    if (m_pRenderer) m_pRenderer->GetVideoSize(pWidth, pHeight);
  }
  int CheckFormat() override;
  HRESULT Pause() override { return SetPaused(true); }
  HRESULT Run() override { return SetPaused(false); }
  HRESULT SaveImage(int encoder, const wchar_t* pwszFile) override {
    return m_pRenderer ? m_pRenderer->SaveImage(encoder, pwszFile) : E_FAIL;
  }

 private:
  HRESULT SetPaused(bool paused);
  void Capture();
  void End(HRESULT hr);

  CCameraCallback* pCallback;
  std::unique_ptr<ov::CameraStream> m_pStream;
  std::unique_ptr<CCameraRenderer> m_pRenderer;
  std::wstring m_strDevice;
  std::mutex m_csState;
  std::condition_variable m_StateChanged;
  bool m_bRun = true;
  bool m_bPaused = false;
  std::atomic<bool> m_bEnded{false};
  std::thread m_thread;
};

HRESULT CVideoCapturePrev::OpenGraph(HWND hwndRenderer, int index) {
  if (index < 0 || index >= g_nCameraDevices) {
    WriteLog(ov::kErr, "Error Camera Index=%d, Camera Device=%d\n", index, g_nCameraDevices);
    return E_FAIL;
  }
  CameraDevice& device = CameraDevices[index];
  m_strDevice = device.DisplayNameName;
  HRESULT hr;
  ov::CameraInfo info;
  if (OV_FAILED(hr, FindCamera(device.DisplayNameName, &info))) return hr;
  const ov::CameraMode wanted = ChooseMode(info);
  if (OV_FAILED(hr, ov::CameraStream::Open(info.path, wanted, &m_pStream))) return hr;
  m_pRenderer = std::make_unique<CCameraRenderer>(&device, hwndRenderer, pCallback);
  if (OV_FAILED(hr, m_pRenderer->Setup())) {
    m_pRenderer.reset();
    return hr;
  }
  const ov::CameraMode& mode = m_pStream->Mode();
  if (OV_FAILED(hr, m_pRenderer->CheckMediaType(mode, m_pStream->Stride()))) return hr;
  WriteLog(ov::kMsg, "Camera preview:%ls;Format=%s;Size=%dx%d;FrameRate=%d\n", m_strDevice.c_str(),
           CCameraRenderer::FormatName(mode.fourcc), mode.width, mode.height, device.frameRate);
  m_thread = std::thread([this] { Capture(); });
  return S_OK;
}

int CVideoCapturePrev::CheckFormat() {
  if (!m_pStream) return 0;
  const uint32_t fourcc = m_pStream->Mode().fourcc;
  if (CCameraRenderer::Shows(fourcc)) return 0;
  WriteLog(ov::kMsg, "Unsupport capture format:0x%x(%4.4s)\n", fourcc,
           reinterpret_cast<const char*>(&fourcc));
  return 1;
}

HRESULT CVideoCapturePrev::SetPaused(bool paused) {
  if (!m_thread.joinable()) return S_FALSE;
  if (m_bEnded) return E_FAIL;
  {
    std::lock_guard<std::mutex> lock(m_csState);
    m_bPaused = paused;
  }
  m_StateChanged.notify_all();
  return S_OK;
}

void CVideoCapturePrev::Capture() {
  ov::SetCurrentThreadName("ovCamera");
  bool streaming = false;
  HRESULT hr = S_OK;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(m_csState);
      if (m_bPaused && streaming) {
        m_pStream->Stop();
        streaming = false;
      }
      m_StateChanged.wait(lock, [this] { return !m_bRun || !m_bPaused; });
      if (!m_bRun) break;
    }
    if (!streaming) {
      if (OV_FAILED(hr, m_pStream->Start())) break;
      streaming = true;
    }
    ov::CameraFrame frame;
    hr = m_pStream->NextFrame(kFrameWaitMs, &frame);
    if (hr == S_OK) {
      m_pRenderer->DoRenderSample(frame);
      m_pStream->ReleaseFrame();
    } else if (FAILED(hr)) {
      break;
    }
  }
  m_pStream->Stop();
  if (FAILED(hr)) End(hr);
}

void CVideoCapturePrev::End(HRESULT hr) {
  if (hr == ov::CameraStream::kDeviceLost)
    WriteLog(ov::kErr, "Camera device lost:%ls\n", m_strDevice.c_str());
  else
    WriteLog(ov::kErr, "Camera preview failed(0x%x):%ls\n", static_cast<unsigned>(hr),
             m_strDevice.c_str());
  m_bEnded = true;
  if (pCallback) pCallback->OnGraphEnd();
}

}  // namespace

namespace ov {

void BuildCameraCatalogue() {
  std::memset(CameraDevices, 0, sizeof(CameraDevices));
  g_nCameraDevices = BuildCameraList(CameraDevices);
}

}  // namespace ov

int RefreshCameraDevices() {
  std::vector<CameraDevice> fresh(kMaxCameraDevices);  // zeroed
  const int count = BuildCameraList(fresh.data());
  const size_t bytes = sizeof(CameraDevice) * static_cast<size_t>(count);
  if (count == g_nCameraDevices &&
      (count == 0 || std::memcmp(fresh.data(), CameraDevices, bytes) == 0))
    return 0;
  std::memset(CameraDevices, 0, sizeof(CameraDevices));
  std::memcpy(CameraDevices, fresh.data(), bytes);
  g_nCameraDevices = count;
  return 1;
}

extern "C" {

int GetCameraDeviceCount() { return g_nCameraDevices; }

CameraDevice* GetCameraDevice(int index) {
  if (index < 0 || index >= kMaxCameraDevices) {
    OV_BAD_ARG(index);
    return nullptr;
  }
  return &CameraDevices[index];
}

CCameraObject* OpenCamera(HWND hwndRenderer, int index, CCameraCallback* pCallback) {
  auto* camera = new CVideoCapturePrev(pCallback);
  if (FAILED(camera->OpenGraph(hwndRenderer, index))) {
    camera->Destroy();
    return nullptr;
  }
  return camera;
}
}
