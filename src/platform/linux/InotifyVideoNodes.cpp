// Video4linux nodes under /dev, watched through inotify: udev makes and
// removes them as cameras come and go.
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

#include "platform/DeviceWatch.h"

namespace ov {

namespace {

bool IsVideoNode(const char* name) { return std::strncmp(name, "video", 5) == 0; }

class InotifyVideoNodes : public DeviceEventSource {
 public:
  explicit InotifyVideoNodes(int fd) : m_fd(fd) {}
  ~InotifyVideoNodes() override { close(m_fd); }
  int Fd() const override { return m_fd; }

  bool Drain() override {
    alignas(inotify_event) char buffer[4096];
    bool relevant = false;
    for (;;) {
      const ssize_t n = read(m_fd, buffer, sizeof buffer);
      if (n <= 0) return relevant;
      for (ssize_t at = 0; at < n;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        if (event->len && IsVideoNode(event->name)) relevant = true;
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
  }

 private:
  int m_fd;
};

}  // namespace

std::unique_ptr<DeviceEventSource> WatchVideoNodes() {
  const int fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (fd < 0) return nullptr;
  const uint32_t mask = IN_CREATE | IN_DELETE | IN_ATTRIB | IN_MOVED_FROM | IN_MOVED_TO;
  if (inotify_add_watch(fd, "/dev", mask) < 0) {
    close(fd);
    return nullptr;
  }
  return std::make_unique<InotifyVideoNodes>(fd);
}

}  // namespace ov
