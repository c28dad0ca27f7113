#include "session/CapturedFiles.h"

#include <atomic>
#include <cwchar>
#include <new>

#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Files.h"

namespace ov {

namespace {

void RemoveTempFile(const wchar_t* path) {
  WriteLog(kMsg, "Remove temporary file:%ls\n", path);
  int error = RemoveFile(path);
  if (error != 0) WriteLog(kErr, "Failed(%d) to DeleteFile:%ls\n", error, path);
}

// The folder's files; the video's index is the longest name of the set.
struct TempNames {
  std::wstring video, index, speaker, microphone;
};

TempNames NamesIn(const std::wstring& folder) {
  TempNames names;
  names.video = folder + L"/ScreenCapture." + VideoFileExtension(g_videoOpt.CodecType);
  names.index = names.video + L".idx";
  names.speaker = folder + L"/Speaker.wav";
  names.microphone = folder + L"/AudioCapture.wav";
  return names;
}

std::atomic<bool> g_slotTaken{false};

}  // namespace

bool ClaimRecordingSlot() {
  bool expected = false;
  return g_slotTaken.compare_exchange_strong(expected, true);
}
void ReleaseRecordingSlot() { g_slotTaken.store(false); }
bool RecordingSlotTaken() { return g_slotTaken.load(); }

const wchar_t* VideoFileExtension(int32_t codecType) {
  static const wchar_t* const kExtensions[] = {L"wmv", L"h264", L"h265", L"mpg", L"gif"};
  return codecType >= 0 && codecType <= 4 ? kExtensions[codecType] : L"tmp";
}

HRESULT PrepareCapturedFiles(const wchar_t* folder) {
  // An empty or relative folder would put the set wherever the process
  // stands, and a name cut at the field's end could be someone else's file.
  const TempNames names = CheckedPath(folder) ? NamesIn(folder) : TempNames{};
  if (!PathFits(names.index.c_str()) || !PathFits(names.microphone.c_str()) ||
      names.index.empty()) {
    WriteLog(kErr, "Error: temp folder refused (empty, relative or too long):%ls\n",
             folder ? folder : L"(null)");
    return E_INVALIDARG;
  }
  CreateFolder(folder);
  if (!PathExists(folder)) WriteLog(kErr, "Path not exists:%ls\n", folder);

  g_Recording = new (std::nothrow) CapturedFile{};
  if (!g_Recording) return E_OUTOFMEMORY;
  if (g_videoOpt.bStream) {
    g_Recording->bScreenStream = 1;
    g_Recording->CodecType = g_videoOpt.CodecType;
    g_Recording->nWidth = g_videoOpt.rcScreen.right - g_videoOpt.rcScreen.left;
    g_Recording->nHeight = g_videoOpt.rcScreen.bottom - g_videoOpt.rcScreen.top;
    StorePath(g_Recording->szScreenCaptureFile, names.video);
  }
  if (g_bAudioEnabled[0]) {
    g_Recording->bWaveOutStream = 1;
    g_Recording->bUseWaveOut = 1;
    g_Recording->lWaveOutVolume = 100;
    StorePath(g_Recording->szWaveOutFile, names.speaker);
  }
  if (g_bAudioEnabled[1]) {
    g_Recording->bWaveInStream = 1;
    g_Recording->bUseWaveIn = 1;
    g_Recording->lWaveInVolume = 100;
    StorePath(g_Recording->szWaveInFile, names.microphone);
  }
  return S_OK;
}

}  // namespace ov

extern "C" CapturedFile* GetCapturedFile() { return g_Recording; }

extern "C" void FreeCapturedFile(BOOL bDelete) {
  using namespace ov;
  WriteLog(kMsg, "Delete Captured, bDelete=%d\n", bDelete);
  if (RecordingSlotTaken()) {
    // The session's encoder and wave writers still write into these files.
    WriteLog(kErr, "Error: FreeCapturedFile while a recording runs, refused\n");
    return;
  }
  CapturedFile* recording = g_Recording;
  if (!recording) return;
  if (bDelete) {
    if (recording->szScreenCaptureFile[0]) {
      RemoveTempFile(recording->szScreenCaptureFile);
      RemoveFile(std::wstring(recording->szScreenCaptureFile) + L".idx");
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
  // A relative folder would be wherever the host stands; one that does not
  // fit a path field is no temp folder of ours.
  if (wcsnlen(path, kPathRoom) < 4 || !CheckedPath(path)) {
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
