#include "platform/GraphicsProbe.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "platform/IsolatedCall.h"
#include "platform/Library.h"
#include "platform/Text.h"

namespace ov {

namespace {

constexpr unsigned kGlVersion = 0x1F02;
constexpr unsigned kGlRenderer = 0x1F01;
// Software drivers compile shaders at start-up; a hung one is given up.
constexpr uint32_t kProbeTimeoutMs = 10000;

struct Egl {
  PFNEGLGETPROCADDRESSPROC getProcAddress;
  PFNEGLGETDISPLAYPROC getDisplay;
  PFNEGLINITIALIZEPROC initialize;
  PFNEGLTERMINATEPROC terminate;
  PFNEGLBINDAPIPROC bindApi;
  PFNEGLCHOOSECONFIGPROC chooseConfig;
  PFNEGLCREATECONTEXTPROC createContext;
  PFNEGLDESTROYCONTEXTPROC destroyContext;
  PFNEGLMAKECURRENTPROC makeCurrent;
};

bool Bind(const SharedLibrary& lib, Egl* egl) {
  egl->getProcAddress = reinterpret_cast<PFNEGLGETPROCADDRESSPROC>(lib.Symbol("eglGetProcAddress"));
  egl->getDisplay = reinterpret_cast<PFNEGLGETDISPLAYPROC>(lib.Symbol("eglGetDisplay"));
  egl->initialize = reinterpret_cast<PFNEGLINITIALIZEPROC>(lib.Symbol("eglInitialize"));
  egl->terminate = reinterpret_cast<PFNEGLTERMINATEPROC>(lib.Symbol("eglTerminate"));
  egl->bindApi = reinterpret_cast<PFNEGLBINDAPIPROC>(lib.Symbol("eglBindAPI"));
  egl->chooseConfig = reinterpret_cast<PFNEGLCHOOSECONFIGPROC>(lib.Symbol("eglChooseConfig"));
  egl->createContext = reinterpret_cast<PFNEGLCREATECONTEXTPROC>(lib.Symbol("eglCreateContext"));
  egl->destroyContext = reinterpret_cast<PFNEGLDESTROYCONTEXTPROC>(lib.Symbol("eglDestroyContext"));
  egl->makeCurrent = reinterpret_cast<PFNEGLMAKECURRENTPROC>(lib.Symbol("eglMakeCurrent"));
  return egl->getProcAddress && egl->getDisplay && egl->initialize && egl->terminate &&
         egl->bindApi && egl->chooseConfig && egl->createContext && egl->destroyContext &&
         egl->makeCurrent;
}

// A surfaceless display needs no X server; the default one is the fallback.
EGLDisplay OpenDisplay(const Egl& egl) {
  auto getPlatformDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
      egl.getProcAddress("eglGetPlatformDisplayEXT"));
  if (getPlatformDisplay) {
    EGLDisplay display =
        getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    EGLint major, minor;
    if (display != EGL_NO_DISPLAY && egl.initialize(display, &major, &minor)) return display;
  }
  EGLDisplay display = egl.getDisplay(EGL_DEFAULT_DISPLAY);
  EGLint major, minor;
  if (display != EGL_NO_DISPLAY && egl.initialize(display, &major, &minor)) return display;
  return EGL_NO_DISPLAY;
}

bool ProbeInThisProcess(GlInfo* info, std::string* error) {
  SharedLibrary lib;
  if (!lib.Load("libEGL.so.1")) {
    *error = lib.Error();
    return false;
  }
  Egl egl;
  if (!Bind(lib, &egl)) {
    *error = "incomplete libEGL";
    return false;
  }
  EGLDisplay display = OpenDisplay(egl);
  if (display == EGL_NO_DISPLAY) {
    *error = "no EGL display";
    return false;
  }
  bool ok = false;
  const EGLint configAttributes[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint configs = 0;
  egl.bindApi(EGL_OPENGL_API);
  egl.chooseConfig(display, configAttributes, &config, 1, &configs);
  // A core profile reports the highest version the driver has; a
  // compatibility context may stop lower.
  const EGLint coreAttributes[] = {EGL_CONTEXT_MAJOR_VERSION,
                                   4,
                                   EGL_CONTEXT_MINOR_VERSION,
                                   6,
                                   EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                   EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                   EGL_NONE};
  EGLContext context =
      egl.createContext(display, configs ? config : nullptr, EGL_NO_CONTEXT, coreAttributes);
  if (context == EGL_NO_CONTEXT)
    context = egl.createContext(display, configs ? config : nullptr, EGL_NO_CONTEXT, nullptr);
  if (context == EGL_NO_CONTEXT) {
    *error = "no OpenGL context";
  } else if (!egl.makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
    *error = "no surfaceless context";
  } else {
    using GetStringFn = const unsigned char* (*)(unsigned);
    auto getString = reinterpret_cast<GetStringFn>(egl.getProcAddress("glGetString"));
    const char* version =
        getString ? reinterpret_cast<const char*>(getString(kGlVersion)) : nullptr;
    const char* renderer =
        getString ? reinterpret_cast<const char*>(getString(kGlRenderer)) : nullptr;
    if (version && std::sscanf(version, "%d.%d", &info->major, &info->minor) == 2) {
      info->version = version;
      info->renderer = renderer ? renderer : "";
      ok = true;
    } else {
      *error = "no GL_VERSION";
    }
    egl.makeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  }
  if (context != EGL_NO_CONTEXT) egl.destroyContext(display, context);
  egl.terminate(display);
  return ok;
}

// What the probe's copy hands back: fixed-size, as it crosses a pipe.
struct ProbeReport {
  int ok = 0;
  int major = 0;
  int minor = 0;
  char version[160] = {};
  char renderer[160] = {};
  char error[96] = {};
};

void Copy(char* field, size_t room, const std::string& text) {
  std::snprintf(field, room, "%s", text.c_str());
}

void ProbeInCopy(void* data, void*) {
  auto* report = static_cast<ProbeReport*>(data);
  GlInfo info;
  std::string error;
  report->ok = ProbeInThisProcess(&info, &error) ? 1 : 0;
  report->major = info.major;
  report->minor = info.minor;
  Copy(report->version, sizeof report->version, info.version);
  Copy(report->renderer, sizeof report->renderer, info.renderer);
  Copy(report->error, sizeof report->error, error);
}

// The probe loads the whole driver (for Mesa that is LLVM too), some 30 ms of
// CPU on every start for an answer that changes only with the driver. The
// answer is kept in the user's cache folder with what it depends on: the
// boot (kernel modules, devices), the render nodes, the driver settings in
// the environment, and the folders that hold the EGL vendors and drivers,
// whose times change whenever a package puts a file there.
std::wstring CacheFile() { return CacheFolder() + L"/orvanta/opengl-probe"; }

void AddFolderTime(std::ostringstream& key, const std::string& path) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return;
  key << "dir " << path << ' ' << st.st_ino << ' ' << st.st_mtim.tv_sec << '.' << st.st_mtim.tv_nsec
      << '\n';
}

bool IsDriverSetting(const char* entry) {
  static const char* const kPrefixes[] = {"MESA_",  "LIBGL_",  "GALLIUM_", "__EGL_",
                                          "__GLX_", "EGL_",    "DRI_",     "LP_",
                                          "__NV",   "NVIDIA_", "VK_",      "LD_LIBRARY_PATH="};
  for (const char* prefix : kPrefixes)
    if (std::strncmp(entry, prefix, std::strlen(prefix)) == 0) return true;
  return false;
}

std::string ProbeKey() {
  std::ostringstream key;
  std::ifstream boot("/proc/sys/kernel/random/boot_id");
  std::string bootId;
  std::getline(boot, bootId);
  key << "boot " << bootId << '\n';
  // The X display is asked only where a surfaceless one is missing; which
  // local display it is does not change the driver, a remote one does.
  const char* display = std::getenv("DISPLAY");
  key << "display "
      << (!display || !*display                                         ? "none"
          : display[0] == ':' || std::strncmp(display, "unix:", 5) == 0 ? "local"
                                                                        : display)
      << '\n';
  std::vector<std::string> lines;
  for (char** entry = environ; *entry; ++entry)
    if (IsDriverSetting(*entry)) lines.emplace_back(*entry);
  std::vector<FolderEntry> nodes;
  if (ListFolder(L"/dev/dri", &nodes))
    for (const FolderEntry& node : nodes) lines.push_back("node " + ToUtf8(node.name));
  std::sort(lines.begin(), lines.end());
  for (const std::string& line : lines) key << line << '\n';
  AddFolderTime(key, "/usr/share/glvnd/egl_vendor.d");
  AddFolderTime(key, "/etc/glvnd/egl_vendor.d");
  // The drivers sit beside the C library (the multiarch folder) and in its
  // dri folder.
  Dl_info self{};
  if (dladdr(reinterpret_cast<void*>(&std::fopen), &self) && self.dli_fname) {
    std::string libc = self.dli_fname;
    const std::string folder = libc.substr(0, libc.find_last_of('/'));
    AddFolderTime(key, folder);
    AddFolderTime(key, folder + "/dri");
  }
  return key.str();
}

// The file: the key's lines, a line "--", then ok, major, minor, version,
// renderer and error, one to a line.
bool ReadCache(const std::wstring& file, const std::string& key, ProbeReport* report) {
  std::ifstream in(ToUtf8(file));
  if (!in) return false;
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (text.compare(0, key.size(), key) != 0) return false;
  std::istringstream rest(text.substr(key.size()));
  std::string marker, version, renderer, error;
  ProbeReport cached;
  if (!std::getline(rest, marker) || marker != "--") return false;
  if (!(rest >> cached.ok >> cached.major >> cached.minor)) return false;
  rest.ignore(1);
  if (!std::getline(rest, version) || !std::getline(rest, renderer) || !std::getline(rest, error))
    return false;
  Copy(cached.version, sizeof cached.version, version);
  Copy(cached.renderer, sizeof cached.renderer, renderer);
  Copy(cached.error, sizeof cached.error, error);
  *report = cached;
  return true;
}

// Written under a private name and renamed, so that a reader never sees half
// a file; a folder that cannot be written only costs the next start a probe.
void WriteCache(const std::wstring& file, const std::string& key, const ProbeReport& report) {
  const std::wstring folder = FolderOf(file);
  CreateFolder(FolderOf(folder));
  CreateFolder(folder);
  std::wstring temp;
  if (CreateUniqueFile(folder, L".opengl-probe", &temp) != 0) return;
  std::ofstream out(ToUtf8(temp), std::ios::trunc);
  out << key << "--\n"
      << report.ok << ' ' << report.major << ' ' << report.minor << '\n'
      << report.version << '\n'
      << report.renderer << '\n'
      << report.error << '\n';
  out.close();
  if (!out || ReplaceFile(temp, file) != 0) RemoveFile(temp);
}

}  // namespace

// The driver is loaded only in a throw-away copy of the process: a driver
// that faults cannot take the host down, and what the driver keeps after
// its display is gone (Mesa's loaded and unloaded DRI module) stays there.
// A crash or a hang is not kept: the next start asks again.
bool ProbeOpenGl(GlInfo* info, std::string* error, bool* cached) {
  ProbeReport report;
  const std::wstring file = CacheFile();
  const std::string key = ProbeKey();
  *cached = ReadCache(file, key, &report);
  if (!*cached) {
    const IsolatedResult result =
        RunIsolated(&report, sizeof report, ProbeInCopy, nullptr, kProbeTimeoutMs);
    if (result.outcome == IsolatedOutcome::Crashed) {
      *error = "the OpenGL driver crashed (signal " + std::to_string(result.signal) + ")";
      return false;
    }
    if (result.outcome != IsolatedOutcome::Completed) {
      *error = "the OpenGL probe did not finish";
      return false;
    }
    WriteCache(file, key, report);
  }
  if (!report.ok) {
    *error = report.error;
    return false;
  }
  info->major = report.major;
  info->minor = report.minor;
  info->version = report.version;
  info->renderer = report.renderer;
  return true;
}

}  // namespace ov
