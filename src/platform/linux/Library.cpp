#include "platform/Library.h"

#include <dlfcn.h>

namespace ov {

std::string ModulePath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ModulePath), &info) == 0 || !info.dli_fname) return {};
  char resolved[4096];
  if (realpath(info.dli_fname, resolved)) return resolved;
  return info.dli_fname;
}

std::string ModuleFolder() {
  std::string path = ModulePath();
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string HelperFolder() { return ModuleFolder() + "/orvanta"; }

SharedLibrary::~SharedLibrary() {
  // Libraries stay mapped for the process's life: objects made by them may
  // outlive this handle, as encoders of a session do.
}

bool SharedLibrary::Load(const std::string& path) {
  m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!m_handle) {
    const char* error = dlerror();
    m_error = error ? error : "unknown error";
    return false;
  }
  return true;
}

void* SharedLibrary::Symbol(const char* name) const {
  return m_handle ? dlsym(m_handle, name) : nullptr;
}

}  // namespace ov
