#include "output/MuxOutput.h"

#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Files.h"

namespace ov {

namespace {

constexpr wchar_t kPartPrefix[] = L".ovmux-";
constexpr size_t kPartSuffixChars = 9;  // what CreateUniqueFile adds

HRESULT Refuse(const char* why, const std::wstring& path) {
  WriteLog(kErr, "Error: %s:%ls\n", why, path.c_str());
  return E_INVALIDARG;
}

}  // namespace

HRESULT CheckMuxOutput(const wchar_t* pwszOutFile, const CapturedFile& r) {
  if (!PathFits(pwszOutFile) || pwszOutFile[0] != L'/')
    return Refuse("output path relative or too long", pwszOutFile);
  const std::wstring out = pwszOutFile;
  const std::wstring folder = FolderOf(out);
  if (out.back() == L'/' || KindOf(folder) != PathKind::kFolder)
    return Refuse("output is not a file in an existing folder", out);
  const PathKind kind = KindOf(out);
  if (kind != PathKind::kMissing && kind != PathKind::kFile)
    return Refuse("output is not a regular file", out);
  const std::wstring video = r.szScreenCaptureFile;
  for (const std::wstring& own : {video, video.empty() ? video : video + L".idx",
                                  std::wstring(r.szWaveOutFile), std::wstring(r.szWaveInFile)}) {
    if (!own.empty() && SameFile(out, own))
      return Refuse("output is one of the recording's files", out);
  }
  if (!PathFits(PartFileModel(out).c_str())) return Refuse("output path too long", out);
  return S_OK;
}

std::wstring PartFileModel(const std::wstring& out) {
  return FolderOf(out) + L"/" + kPartPrefix + std::wstring(kPartSuffixChars, L'0');
}

HRESULT CreatePartFileBeside(const std::wstring& out, std::wstring* part) {
  const std::wstring folder = FolderOf(out);
  if (int error = CreateUniqueFile(folder, kPartPrefix, part)) {
    WriteLog(kErr, "Failed(%d) to create file in:%ls\n", error, folder.c_str());
    return E_FAIL;
  }
  return S_OK;
}

HRESULT FinishPartFile(const std::wstring& part, const std::wstring& out, bool made) {
  if (made) {
    if (int error = ReplaceFile(part, out)) {
      WriteLog(kErr, "Failed(%d) to rename %ls to %ls\n", error, part.c_str(), out.c_str());
      RemoveFile(part);
      return E_FAIL;
    }
    return S_OK;
  }
  RemoveFile(part);
  return S_OK;
}

bool MuxArgumentsPresent(const wchar_t* pwszOutFile, const CMuxCallback* pCallback,
                         const char* file, int line) {
  const char* missing = !g_Recording   ? "g_Recording"
                        : !pwszOutFile ? "pwszOutFile"
                        : !pCallback   ? "pCallback"
                                       : nullptr;
  if (missing) LogBadArgument(missing, file, line);
  return !missing;
}

}  // namespace ov
