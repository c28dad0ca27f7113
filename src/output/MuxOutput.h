// The final file of every muxer: checked before anything is touched, written
// under a name of its own beside the output, and put in place only whole.
#pragma once

#include <string>

#include "orvanta/captured.h"
#include "orvanta/types.h"

class CMuxCallback;

namespace ov {

// Whether a recording, an output name and a callback are there, as every
// muxer needs; the bad-argument line names the caller's file and line.
bool MuxArgumentsPresent(const wchar_t* pwszOutFile, const CMuxCallback* pCallback,
                         const char* file, int line);

// E_INVALIDARG, with a log line, unless the output is an absolute name of a
// path field's size, in an existing folder, that is no folder, FIFO or device
// and none of the recording's own files, whatever its spelling.
HRESULT CheckMuxOutput(const wchar_t* pwszOutFile, const CapturedFile& r);

// A name as long as the part file of an output will have, for muxers whose
// records hold names of a smaller size.
std::wstring PartFileModel(const std::wstring& out);

// Creates a new empty file beside the output for a muxer to fill.
HRESULT CreatePartFileBeside(const std::wstring& out, std::wstring* part);

// Renames a finished part file to the output, replacing what stood there,
// or, when it was not made, removes it.
HRESULT FinishPartFile(const std::wstring& part, const std::wstring& out, bool made);

}  // namespace ov
