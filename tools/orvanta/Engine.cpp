#include "Engine.h"

#include <dlfcn.h>
#include <orvanta/orvanta.h>

#include <cstdlib>
#include <filesystem>

namespace cli {

Engine::Engine() { ovInitialize(); }

Engine::~Engine() { ovUninitialize(); }

std::string EngineHelperFolder() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<void*>(&ovInitialize), &info) || !info.dli_fname) return "orvanta";
  return (std::filesystem::path(info.dli_fname).parent_path() / "orvanta").string();
}

std::string EngineLogPath() {
  std::string documents;
  if (const char* dir = getenv("XDG_DOCUMENTS_DIR"); dir && *dir)
    documents = dir;
  else if (const char* home = getenv("HOME"))
    documents = std::string(home) + "/Documents";
  return documents + "/Log Files/Orvanta0.log";
}

void* EngineSymbol(const char* name) { return dlsym(RTLD_DEFAULT, name); }

}  // namespace cli
