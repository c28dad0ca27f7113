// The head of every log: the machine and the library it runs.
#pragma once

namespace ov {

// Opens the log (rotating the older ones) and writes the report. Sets
// g_WindowsVersion. Nothing may be logged before it.
void WriteSystemReport();

}  // namespace ov
