// Cameras through V4L2, with libv4l2 in between so that the formats a
// camera gives in its own way (vendor layouts, Bayer, JPEG variants) come
// out as common ones. Frames are read from memory-mapped driver buffers; the
// wait for one is a poll with a time-out, so that a device unplugged while
// streaming (ENODEV, POLLERR/POLLHUP) ends a read instead of hanging it.
#include <dirent.h>
#include <fcntl.h>
#include <libv4l2.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/linux/PatternCamera.h"

namespace ov {

namespace {

constexpr int kBufferCount = 4;

int Ioctl(int fd, unsigned long request, void* argument) {
  int result;
  do {
    result = v4l2_ioctl(fd, request, argument);
  } while (result < 0 && errno == EINTR);
  return result;
}

class DeviceFd {
 public:
  explicit DeviceFd(const std::string& path) : m_fd(v4l2_open(path.c_str(), O_RDWR | O_NONBLOCK)) {}
  ~DeviceFd() {
    if (m_fd >= 0) v4l2_close(m_fd);
  }
  DeviceFd(const DeviceFd&) = delete;
  DeviceFd& operator=(const DeviceFd&) = delete;
  int Get() const { return m_fd; }

 private:
  int m_fd;
};

uint32_t Fnv1a(const std::string& text) {
  uint32_t hash = 2166136261u;
  for (unsigned char c : text) hash = (hash ^ c) * 16777619u;
  return hash;
}

// /dev/videoN in the order of N.
std::vector<std::string> VideoNodes() {
  std::vector<std::pair<int, std::string>> nodes;
  if (DIR* dir = opendir("/dev")) {
    while (const dirent* entry = readdir(dir)) {
      const char* name = entry->d_name;
      if (std::strncmp(name, "video", 5) != 0 || !name[5]) continue;
      char* end = nullptr;
      const long number = std::strtol(name + 5, &end, 10);
      if (*end || number < 0) continue;
      nodes.emplace_back(static_cast<int>(number), std::string("/dev/") + name);
    }
    closedir(dir);
  }
  std::sort(nodes.begin(), nodes.end());
  std::vector<std::string> paths;
  for (auto& node : nodes) paths.push_back(std::move(node.second));
  return paths;
}

void RateOf(int fd, uint32_t fourcc, uint32_t width, uint32_t height, CameraMode* mode) {
  v4l2_frmivalenum interval{};
  interval.pixel_format = fourcc;
  interval.width = width;
  interval.height = height;
  if (Ioctl(fd, VIDIOC_ENUM_FRAMEINTERVALS, &interval) < 0) return;
  const v4l2_fract& f =
      interval.type == V4L2_FRMIVAL_TYPE_DISCRETE ? interval.discrete : interval.stepwise.min;
  if (f.numerator) mode->rateNumerator = f.denominator, mode->rateDenominator = f.numerator;
}

std::vector<CameraMode> SizesOf(int fd, uint32_t fourcc) {
  std::vector<CameraMode> sizes;
  v4l2_frmsizeenum size{};
  size.pixel_format = fourcc;
  auto add = [&](uint32_t width, uint32_t height) {
    CameraMode mode{fourcc, static_cast<int32_t>(width), static_cast<int32_t>(height), 0, 1};
    RateOf(fd, fourcc, width, height, &mode);
    sizes.push_back(mode);
  };
  for (; Ioctl(fd, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
    if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
      add(size.discrete.width, size.discrete.height);
      continue;
    }
    // A range: its ends, and the common sizes inside it.
    const v4l2_frmsize_stepwise& s = size.stepwise;
    add(s.min_width, s.min_height);
    for (auto [w, h] : {std::pair<uint32_t, uint32_t>{640, 480}, {1280, 720}})
      if (w > s.min_width && w < s.max_width && h > s.min_height && h < s.max_height) add(w, h);
    add(s.max_width, s.max_height);
    break;
  }
  // A driver that lists no sizes takes a common one and says what it gave.
  if (sizes.empty()) add(640, 480);
  return sizes;
}

bool Describe(const std::string& path, CameraInfo* info) {
  DeviceFd device(path);
  const int fd = device.Get();
  v4l2_capability caps{};
  if (fd < 0 || Ioctl(fd, VIDIOC_QUERYCAP, &caps) < 0) return false;
  const uint32_t have =
      caps.capabilities & V4L2_CAP_DEVICE_CAPS ? caps.device_caps : caps.capabilities;
  if (!(have & V4L2_CAP_VIDEO_CAPTURE) || !(have & V4L2_CAP_STREAMING)) return false;
  const std::string card(reinterpret_cast<const char*>(caps.card),
                         strnlen(reinterpret_cast<const char*>(caps.card), sizeof(caps.card)));
  const std::string bus(
      reinterpret_cast<const char*>(caps.bus_info),
      strnlen(reinterpret_cast<const char*>(caps.bus_info), sizeof(caps.bus_info)));
  info->name = card;
  info->path = path;
  info->identity = Fnv1a(bus + "/" + card);
  v4l2_fmtdesc format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  for (; Ioctl(fd, VIDIOC_ENUM_FMT, &format) == 0; ++format.index)
    info->formats.push_back({format.pixelformat, (format.flags & V4L2_FMT_FLAG_EMULATED) != 0,
                             SizesOf(fd, format.pixelformat)});
  return true;
}

class V4l2Stream final : public CameraStream {
 public:
  ~V4l2Stream() override {
    Stop();
    for (Buffer& b : m_buffers)
      if (b.start != MAP_FAILED) v4l2_munmap(b.start, b.length);
    if (m_fd >= 0) {
      v4l2_requestbuffers none{};
      none.count = 0;
      none.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
      none.memory = V4L2_MEMORY_MMAP;
      Ioctl(m_fd, VIDIOC_REQBUFS, &none);
      v4l2_close(m_fd);
    }
  }

  HRESULT Open(const std::string& path, const CameraMode& wanted) {
    m_fd = v4l2_open(path.c_str(), O_RDWR | O_NONBLOCK);
    if (m_fd < 0) return errno == ENOENT || errno == ENODEV ? kDeviceLost : E_FAIL;
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = wanted.fourcc;
    format.fmt.pix.width = static_cast<uint32_t>(wanted.width);
    format.fmt.pix.height = static_cast<uint32_t>(wanted.height);
    format.fmt.pix.field = V4L2_FIELD_NONE;
    if (Ioctl(m_fd, VIDIOC_S_FMT, &format) < 0) return E_FAIL;
    m_mode = {format.fmt.pix.pixelformat, static_cast<int32_t>(format.fmt.pix.width),
              static_cast<int32_t>(format.fmt.pix.height), 0, 1};
    m_stride = static_cast<int32_t>(format.fmt.pix.bytesperline);
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (wanted.rateNumerator && Ioctl(m_fd, VIDIOC_G_PARM, &parameters) == 0 &&
        parameters.parm.capture.capability & V4L2_CAP_TIMEPERFRAME) {
      parameters.parm.capture.timeperframe = {wanted.rateDenominator, wanted.rateNumerator};
      Ioctl(m_fd, VIDIOC_S_PARM, &parameters);
    }
    if (Ioctl(m_fd, VIDIOC_G_PARM, &parameters) == 0 &&
        parameters.parm.capture.timeperframe.numerator)
      m_mode.rateNumerator = parameters.parm.capture.timeperframe.denominator,
      m_mode.rateDenominator = parameters.parm.capture.timeperframe.numerator;
    return MapBuffers();
  }

  const CameraMode& Mode() const override { return m_mode; }
  int32_t Stride() const override { return m_stride; }

  HRESULT Start() override {
    if (m_streaming) return S_OK;
    for (uint32_t i = 0; i < m_buffers.size(); ++i) {
      v4l2_buffer buffer = Describe(i);
      if (Ioctl(m_fd, VIDIOC_QBUF, &buffer) < 0) return Failure();
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (Ioctl(m_fd, VIDIOC_STREAMON, &type) < 0) return Failure();
    m_streaming = true;
    return S_OK;
  }

  void Stop() override {
    if (!m_streaming) return;
    m_held = -1;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    Ioctl(m_fd, VIDIOC_STREAMOFF, &type);
    m_streaming = false;
  }

  HRESULT NextFrame(int timeoutMs, CameraFrame* frame) override {
    ReleaseFrame();
    pollfd waiting{m_fd, POLLIN, 0};
    const int ready = poll(&waiting, 1, timeoutMs);
    if (ready < 0) return errno == EINTR ? S_FALSE : Failure();
    if (ready == 0) return S_FALSE;
    if (waiting.revents & (POLLHUP | POLLNVAL)) return kDeviceLost;
    v4l2_buffer buffer = Describe(0);
    if (Ioctl(m_fd, VIDIOC_DQBUF, &buffer) < 0)
      return errno == EAGAIN && !(waiting.revents & POLLERR) ? S_FALSE : Failure(true);
    m_held = static_cast<int>(buffer.index);
    if (buffer.flags & V4L2_BUF_FLAG_ERROR || buffer.index >= m_buffers.size()) {
      ReleaseFrame();
      return S_FALSE;
    }
    *frame = {static_cast<const uint8_t*>(m_buffers[buffer.index].start), buffer.bytesused,
              m_stride};
    return S_OK;
  }

  void ReleaseFrame() override {
    if (m_held < 0) return;
    v4l2_buffer buffer = Describe(static_cast<uint32_t>(m_held));
    m_held = -1;
    Ioctl(m_fd, VIDIOC_QBUF, &buffer);
  }

 private:
  struct Buffer {
    void* start = MAP_FAILED;
    size_t length = 0;
  };

  v4l2_buffer Describe(uint32_t index) const {
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.index = index;
    return buffer;
  }

  // A device that is gone answers ENODEV; a failed dequeue after an error
  // poll is taken the same way, since a driver has no other way to say it.
  static HRESULT Failure(bool afterPoll = false) {
    return errno == ENODEV || errno == ENXIO || afterPoll ? kDeviceLost : E_FAIL;
  }

  HRESULT MapBuffers() {
    v4l2_requestbuffers request{};
    request.count = kBufferCount;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (Ioctl(m_fd, VIDIOC_REQBUFS, &request) < 0 || request.count < 2) return E_FAIL;
    m_buffers.resize(request.count);
    for (uint32_t i = 0; i < request.count; ++i) {
      v4l2_buffer buffer = Describe(i);
      if (Ioctl(m_fd, VIDIOC_QUERYBUF, &buffer) < 0) return E_FAIL;
      m_buffers[i].length = buffer.length;
      m_buffers[i].start = v4l2_mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED,
                                     m_fd, buffer.m.offset);
      if (m_buffers[i].start == MAP_FAILED) return E_FAIL;
    }
    return S_OK;
  }

  int m_fd = -1;
  CameraMode m_mode;
  int32_t m_stride = 0;
  std::vector<Buffer> m_buffers;
  bool m_streaming = false;
  int m_held = -1;
};

}  // namespace

std::vector<CameraInfo> ListCameras(size_t maxCount) {
  std::vector<CameraInfo> cameras;
  if (const char* test = std::getenv("ORVANTA_TEST_CAMERA"); test && *test)
    cameras = ListPatternCameras();
  else
    for (const std::string& path : VideoNodes()) {
      if (cameras.size() >= maxCount) break;
      CameraInfo info;
      if (Describe(path, &info)) cameras.push_back(std::move(info));
    }
  if (cameras.size() > maxCount) cameras.resize(maxCount);
  return cameras;
}

HRESULT CameraStream::Open(const std::string& path, const CameraMode& wanted,
                           std::unique_ptr<CameraStream>* stream) {
  if (path.rfind(kPatternCameraPrefix, 0) == 0) return OpenPatternCamera(path, stream);
  auto made = std::make_unique<V4l2Stream>();
  const HRESULT hr = made->Open(path, wanted);
  if (FAILED(hr)) return hr;
  *stream = std::move(made);
  return S_OK;
}

}  // namespace ov
