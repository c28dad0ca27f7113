// What the machine's OpenGL stack offers, asked through EGL.
#pragma once

#include <string>

namespace ov {

struct GlInfo {
  int major = 0;
  int minor = 0;
  std::string version;   // GL_VERSION
  std::string renderer;  // GL_RENDERER
};

// Creates a throw-away context (surfaceless where the driver allows, else on
// the X display) and reads its version. False with error set when EGL, a
// display or a context is missing. The answer is kept in the user's cache
// folder until the driver or its settings change; cached tells whether this
// one came from there.
bool ProbeOpenGl(GlInfo* info, std::string* error, bool* cached);

}  // namespace ov
