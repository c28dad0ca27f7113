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

std::wstring Widen(const std::string& utf8) {
  std::wstring wide;
  size_t i = 0;
  while (i < utf8.size()) {
    auto c = static_cast<unsigned char>(utf8[i]);
    size_t extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : 9;
    bool whole = extra < 4 && i + extra < utf8.size();
    for (size_t k = 1; whole && k <= extra; ++k) whole = (utf8[i + k] & 0xC0) == 0x80;
    if (!whole) {
      wide += L'\uFFFD';
      ++i;
      continue;
    }
    char32_t code = extra == 0 ? c : c & (0x3F >> extra);
    for (size_t k = 1; k <= extra; ++k) code = (code << 6) | (utf8[i + k] & 0x3F);
    wide += static_cast<wchar_t>(code);
    i += extra + 1;
  }
  return wide;
}

std::string Narrow(const wchar_t* text) {
  std::string utf8;
  for (; text && *text; ++text) {
    auto c = static_cast<char32_t>(*text);
    if (c < 0x80) {
      utf8 += static_cast<char>(c);
    } else if (c < 0x800) {
      utf8 += static_cast<char>(0xC0 | (c >> 6));
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      utf8 += static_cast<char>(0xE0 | (c >> 12));
      utf8 += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      utf8 += static_cast<char>(0xF0 | (c >> 18));
      utf8 += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      utf8 += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return utf8;
}

}  // namespace cli
