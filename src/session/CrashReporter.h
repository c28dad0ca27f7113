// The last word of a crashed process: on a fatal signal in any thread, a
// dump in the minidump layout, a text report in the log and on stderr, and
// the end of the process with that signal.
#pragma once

#include <cstdint>

namespace ov {

// Installs the handlers; mainThreadId is what the report calls the main
// thread. The calling thread gets an alternate stack, so that a stack it
// used up can still be reported. Later calls only renew the main thread.
void InstallCrashReporter(uint32_t mainThreadId);

// The text for an exception code, as the report gives it.
const char* ExceptionText(uint32_t code);

}  // namespace ov
