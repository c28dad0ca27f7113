#include "session/CapturedFiles.h"

#include <cwchar>
#include <new>

#include "platform/Files.h"
#include "session/Globals.h"
#include "session/Log.h"

namespace ov {

namespace {

void RemoveTempFile(const wchar_t* path) {
  WriteLog(kMsg, "Remove temporary file:%ls\n", path);
  int error = RemoveFile(path);
  if (error != 0) WriteLog(kErr, "Failed(%d) to DeleteFile:%ls\n", error, path);
}

// Formats a path into a field of OV_MAX_PATH, cut silently when too long.
template <typename... Args>
void FormatPath(wchar_t (&out)[OV_MAX_PATH], const wchar_t* format, Args... args) {
  if (swprintf(out, OV_MAX_PATH, format, args...) < 0) out[OV_MAX_PATH - 1] = L'\0';
}

}  // namespace

const wchar_t* VideoFileExtension(int32_t codecType) {
  static const wchar_t* const kExtensions[] = {L"wmv", L"h264", L"h265", L"mpg", L"gif"};
  return codecType >= 0 && codecType <= 4 ? kExtensions[codecType] : L"tmp";
}

void PrepareCapturedFiles(const wchar_t* folder) {
  CreateFolder(folder);
  if (!PathExists(folder)) WriteLog(kErr, "Path not exists:%ls\n", folder);

  g_Recording = new (std::nothrow) CapturedFile{};
  if (!g_Recording) return;
  if (g_videoOpt.bStream) {
    g_Recording->bScreenStream = 1;
    g_Recording->CodecType = g_videoOpt.CodecType;
    g_Recording->nWidth = g_videoOpt.rcScreen.right - g_videoOpt.rcScreen.left;
    g_Recording->nHeight = g_videoOpt.rcScreen.bottom - g_videoOpt.rcScreen.top;
    FormatPath(g_Recording->szScreenCaptureFile, L"%ls/ScreenCapture.%ls", folder,
               VideoFileExtension(g_videoOpt.CodecType));
  }
  if (g_bAudioEnabled[0]) {
    g_Recording->bWaveOutStream = 1;
    g_Recording->bUseWaveOut = 1;
    g_Recording->lWaveOutVolume = 100;
    FormatPath(g_Recording->szWaveOutFile, L"%ls/Speaker.wav", folder);
  }
  if (g_bAudioEnabled[1]) {
    g_Recording->bWaveInStream = 1;
    g_Recording->bUseWaveIn = 1;
    g_Recording->lWaveInVolume = 100;
    FormatPath(g_Recording->szWaveInFile, L"%ls/AudioCapture.wav", folder);
  }
}

}  // namespace ov

extern "C" CapturedFile* GetCapturedFile() { return g_Recording; }

extern "C" void FreeCapturedFile(BOOL bDelete) {
  using namespace ov;
  WriteLog(kMsg, "Delete Captured, bDelete=%d\n", bDelete);
  CapturedFile* recording = g_Recording;
  if (!recording) return;
  if (bDelete) {
    if (recording->szScreenCaptureFile[0]) {
      RemoveTempFile(recording->szScreenCaptureFile);
      wchar_t index[OV_MAX_PATH];
      FormatPath(index, L"%ls.idx", recording->szScreenCaptureFile);
      RemoveFile(index);
    }
    if (recording->szWaveOutFile[0]) RemoveTempFile(recording->szWaveOutFile);
    if (recording->szWaveInFile[0]) RemoveTempFile(recording->szWaveInFile);
  }
  delete recording;
  g_Recording = nullptr;
}

extern "C" BOOL DeleteFolder(const wchar_t* path) {
  using namespace ov;
  if (!path) {
    OV_BAD_ARG(path);
    return 0;
  }
  WriteLog(kMsg, "Delete temporary file from:%ls\n", path);
  if (wcslen(path) < 4) {
    WriteLog(kErr, "Error temporary folder:%ls\n", path);
    return 0;
  }
  std::vector<FolderEntry> entries;
  if (!ListFolder(path, &entries)) return 0;
  static const wchar_t* const kTempExtensions[] = {L".wmv",  L".wav",  L".tmp", L".idx",
                                                   L".h264", L".h265", L".mpg", L".gif"};
  for (const FolderEntry& entry : entries) {
    if (entry.isFolder) continue;
    size_t dot = entry.name.rfind(L'.');
    if (dot == std::wstring::npos) continue;
    std::wstring extension = entry.name.substr(dot);
    for (const wchar_t* candidate : kTempExtensions) {
      if (extension == candidate) {
        RemoveTempFile((std::wstring(path) + L"/" + entry.name).c_str());
        break;
      }
    }
  }
  return 1;
}

extern "C" uint64_t GetDiskFreeBytes(const wchar_t* path) {
  return path ? ov::DiskFreeBytes(path) : 0;
}
