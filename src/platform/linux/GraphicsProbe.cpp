#include "platform/GraphicsProbe.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstdio>
#include <string>

#include "platform/IsolatedCall.h"
#include "platform/Library.h"

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

}  // namespace

// The driver is loaded only in a throw-away copy of the process: a driver
// that faults cannot take the host down, and what the driver keeps after
// its display is gone (Mesa's loaded and unloaded DRI module) stays there.
bool ProbeOpenGl(GlInfo* info, std::string* error) {
  ProbeReport report;
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
