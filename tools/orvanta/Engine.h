// The engine as this command uses it: started and stopped once, found on
// disk, and the text helpers its wide-string API needs.
#pragma once

#include <string>

#include "platform/NonCopyable.h"

namespace cli {

// ovInitialize in the constructor, ovUninitialize in the destructor.
class Engine : private ov::NonCopyable {
 public:
  Engine();
  ~Engine();
};

// The private folder of the liborvanta.so in use ("orvanta/" beside it),
// where its encoder libraries and the `mux` program live.
std::string EngineHelperFolder();
// Where the engine writes the log of this run, for error messages.
std::string EngineLogPath();

// A C symbol of the loaded engine, or null while the engine lacks it.
void* EngineSymbol(const char* name);

}  // namespace cli
