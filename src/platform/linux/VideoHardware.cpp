#include "platform/VideoHardware.h"

#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>
#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

const char kDrm[] = "/sys/class/drm";

std::string ReadLine(const std::string& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  return line;
}

std::string LinkName(const std::string& path) {
  char target[512];
  ssize_t n = readlink(path.c_str(), target, sizeof target - 1);
  if (n <= 0) return "";
  target[n] = '\0';
  const char* slash = std::strrchr(target, '/');
  return slash ? slash + 1 : target;
}

std::vector<std::string> DrmEntries(bool connectors) {
  std::vector<std::string> names;
  DIR* dir = opendir(kDrm);
  if (!dir) return names;
  while (dirent* e = readdir(dir)) {
    std::string name = e->d_name;
    if (name.rfind("card", 0) != 0) continue;
    bool isConnector = name.find('-') != std::string::npos;
    if (isConnector == connectors) names.push_back(name);
  }
  closedir(dir);
  return names;
}

// The monitor's name from its EDID's descriptor blocks.
std::string EdidName(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  unsigned char edid[128];
  if (!in.read(reinterpret_cast<char*>(edid), sizeof edid)) return "";
  for (int block = 54; block <= 108; block += 18) {
    if (edid[block] == 0 && edid[block + 1] == 0 && edid[block + 3] == 0xFC) {
      std::string name(reinterpret_cast<char*>(edid + block + 5), 13);
      return name.substr(0, name.find_first_of("\n"));
    }
  }
  return "";
}

}  // namespace

std::vector<std::vector<std::string>> VideoControllers() {
  std::vector<std::vector<std::string>> controllers;
  for (const std::string& card : DrmEntries(false)) {
    std::string device = std::string(kDrm) + "/" + card + "/device";
    std::vector<std::string> lines;
    lines.push_back("Name=" + card);
    lines.push_back("AdapterCompatibility=" + ReadLine(device + "/vendor"));
    lines.push_back("Device=" + ReadLine(device + "/device"));
    lines.push_back("DriverName=" + LinkName(device + "/driver"));
    lines.push_back("DeviceID=" + LinkName(device));
    controllers.push_back(lines);
  }
  return controllers;
}

std::vector<std::vector<std::string>> DesktopMonitors() {
  std::vector<std::vector<std::string>> monitors;
  for (const std::string& connector : DrmEntries(true)) {
    std::string base = std::string(kDrm) + "/" + connector;
    std::vector<std::string> lines;
    lines.push_back("Name=" + connector);
    lines.push_back("Status=" + ReadLine(base + "/status"));
    std::string name = EdidName(base + "/edid");
    if (!name.empty()) lines.push_back("MonitorName=" + name);
    monitors.push_back(lines);
  }
  return monitors;
}

int OutputRefreshRate(const char* outputName) {
  Display* display = SharedXDisplay();
  if (!display) return 0;
  XErrorTrap trap(display);
  XRRScreenResources* resources = XRRGetScreenResourcesCurrent(display, DefaultRootWindow(display));
  if (!resources) return 0;
  int rate = 0;
  for (int i = 0; i < resources->noutput && rate == 0; ++i) {
    XRROutputInfo* output = XRRGetOutputInfo(display, resources, resources->outputs[i]);
    if (output && output->crtc && std::strcmp(output->name, outputName) == 0) {
      XRRCrtcInfo* crtc = XRRGetCrtcInfo(display, resources, output->crtc);
      for (int m = 0; crtc && m < resources->nmode; ++m) {
        const XRRModeInfo& mode = resources->modes[m];
        if (mode.id == crtc->mode && mode.hTotal && mode.vTotal)
          rate = static_cast<int>(static_cast<double>(mode.dotClock) / (mode.hTotal * mode.vTotal) +
                                  0.5);
      }
      if (crtc) XRRFreeCrtcInfo(crtc);
    }
    if (output) XRRFreeOutputInfo(output);
  }
  XRRFreeScreenResources(resources);
  return rate;
}

int ScreenDepth() {
  Display* display = SharedXDisplay();
  return display ? DefaultDepth(display, DefaultScreen(display)) : 0;
}

DisplayChangeWatcher::DisplayChangeWatcher() {
  Display* display = OpenXConnection();
  if (!display) return;
  int errorBase;
  if (!XRRQueryExtension(display, &m_eventBase, &errorBase)) {
    CloseXConnection(display);
    return;
  }
  XRRSelectInput(display, DefaultRootWindow(display), RRScreenChangeNotifyMask);
  XFlush(display);
  m_display = display;
}

DisplayChangeWatcher::~DisplayChangeWatcher() {
  if (m_display) CloseXConnection(static_cast<Display*>(m_display));
}

int DisplayChangeWatcher::Fd() const {
  return m_display ? ConnectionNumber(static_cast<Display*>(m_display)) : -1;
}

bool DisplayChangeWatcher::Lost() const {
  return m_display && XConnectionLost(static_cast<Display*>(m_display));
}

bool DisplayChangeWatcher::Drain() {
  auto* display = static_cast<Display*>(m_display);
  if (!display) return false;
  bool changed = false;
  while (XPending(display)) {
    XEvent event;
    XNextEvent(display, &event);
    if (event.type == m_eventBase + RRScreenChangeNotify) {
      XRRUpdateConfiguration(&event);
      changed = true;
    }
  }
  return changed;
}

}  // namespace ov
