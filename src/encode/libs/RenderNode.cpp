#include "encode/libs/RenderNode.h"

#include <unistd.h>

#include <cstring>

namespace ov::enc {

namespace {

constexpr int kFirstRenderMinor = 128;
constexpr int kRenderMinors = 64;

std::string DriverOf(int minor) {
  char link[96];
  snprintf(link, sizeof link, "/sys/class/drm/renderD%d/device/driver", minor);
  char target[512];
  ssize_t n = readlink(link, target, sizeof target - 1);
  if (n <= 0) return {};
  target[n] = '\0';
  const char* slash = strrchr(target, '/');
  return slash ? slash + 1 : target;
}

}  // namespace

std::string FindRenderNode(std::initializer_list<const char*> drivers) {
  for (int minor = kFirstRenderMinor; minor < kFirstRenderMinor + kRenderMinors; ++minor) {
    std::string driver = DriverOf(minor);
    if (driver.empty()) continue;
    for (const char* wanted : drivers) {
      if (driver == wanted) return "/dev/dri/renderD" + std::to_string(minor);
    }
  }
  return {};
}

}  // namespace ov::enc
