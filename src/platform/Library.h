// The engine's own module on disk, and loading of its companion libraries.
#pragma once

#include <string>

#include "platform/NonCopyable.h"

namespace ov {

// Full path of the file that holds the engine's code (the shared library,
// or the program it is linked into).
std::string ModulePath();
// Its folder, without a trailing separator.
std::string ModuleFolder();
// The engine's private folder beside it: the `mux` program, the encoder
// libraries and the resource folder live in "orvanta/" next to the library
// (lib/orvanta/, in the build tree as once installed), out of the
// folder that every other library of the system shares.
std::string HelperFolder();

class SharedLibrary : private NonCopyable {
 public:
  SharedLibrary() = default;
  ~SharedLibrary();

  // Loads the library; the error text is kept for the log.
  bool Load(const std::string& path);
  void* Symbol(const char* name) const;
  bool Loaded() const { return m_handle != nullptr; }
  const std::string& Error() const { return m_error; }

 private:
  void* m_handle = nullptr;
  std::string m_error;
};

}  // namespace ov
