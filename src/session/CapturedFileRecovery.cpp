#include "session/CapturedFileRecovery.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <new>
#include <vector>

#include "audio/WaveFormat.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "formats/FrameIndexFile.h"
#include "orvanta/captured.h"
#include "platform/Files.h"
#include "platform/SequentialFile.h"
#include "session/CapturedFiles.h"

namespace ov {

namespace {

constexpr int32_t kLibraryCodecs[] = {1, 2, 3, 4};
constexpr const wchar_t* kWaveNames[] = {L"Speaker.wav", L"AudioCapture.wav"};

bool Join(const std::wstring& folder, const std::wstring& name, wchar_t (&out)[OV_MAX_PATH]) {
  const std::wstring path = folder + L"/" + name;
  if (path.size() >= OV_MAX_PATH) return false;
  std::wcsncpy(out, path.c_str(), OV_MAX_PATH);
  return true;
}

// The frames of a temp video whose bytes are all on the disk, with the
// index cut back to them. 0 frames when the index is unusable.
struct VideoFound {
  int64_t frames = 0;
  REFERENCE_TIME duration = 0;
  int32_t width = 0, height = 0;
};

bool RecoverVideo(const wchar_t* video, VideoFound* found) {
  const std::wstring index = std::wstring(video) + L".idx";
  const int64_t streamSize = FileSize(video);
  FrameIndexFile file;
  int error = 0;
  const char* wrong =
      streamSize < 0 ? "can't be opened" : ReadFrameIndex(ToUtf8(index), -1, &file, &error);
  if (wrong) {
    if (file.fileBytes < 0)
      WriteLog(kErr, "Failed(%d) to open file:%ls\n", streamSize < 0 ? LastError() : error,
               index.c_str());
    else
      WriteLog(kErr, "Error format:%ls\n", index.c_str());
    return false;
  }
  // The stream is written before the index, so only a write that failed
  // half-way leaves an entry whose frame is not all there.
  int64_t count = file.fileEntries;
  while (count > 0 && !EntryInside(file.entries[count - 1], streamSize)) --count;
  const int64_t whole = static_cast<int64_t>(sizeof file.header) + count * sizeof(FrameIndexEntry);
  if (whole != file.fileBytes) {
    WriteLog(kWan, "Recovery: %lld torn bytes cut from %ls\n",
             static_cast<long long>(file.fileBytes - whole), index.c_str());
    SequentialFile update;
    if (!update.OpenForUpdate(index.c_str()) || !update.Truncate(whole))
      WriteLog(kErr, "Failed(%d) to write\n", LastError());
  }
  found->frames = count;
  found->duration = count > 0 ? TicksToTime(file.entries[count - 1].time) : 0;
  found->width = static_cast<int32_t>(file.header.width);
  found->height = static_cast<int32_t>(file.header.height);
  return true;
}

// Cuts a wave temp file to whole sample frames and writes the header its
// writer never finished. The duration of the samples, or -1.
REFERENCE_TIME RecoverWave(const wchar_t* path) {
  SequentialFile file;
  if (!file.OpenForUpdate(path)) {
    WriteLog(kErr, "Failed(%d) to open file:%ls\n", LastError(), path);
    return -1;
  }
  WaveHeader header;
  if (file.Read(&header, kWaveHeaderSize) != kWaveHeaderSize ||
      std::memcmp(header.riff, "RIFF", 4) != 0 || std::memcmp(header.fmt, "fmt ", 4) != 0 ||
      header.format.Format.nAvgBytesPerSec == 0 || header.format.Format.nBlockAlign == 0) {
    WriteLog(kErr, "Error format:%ls\n", path);
    return -1;
  }
  int64_t data = file.Size() - kWaveHeaderSize;
  data -= data % header.format.Format.nBlockAlign;
  const WaveHeader finished = MakeWaveHeader(header.format, static_cast<uint64_t>(data));
  if (!file.Truncate(kWaveHeaderSize + data) || !file.WriteAt(&finished, kWaveHeaderSize, 0)) {
    WriteLog(kErr, "Failed(%d) to write\n", LastError());
    return -1;
  }
  return data * REF_TIME_UNITS / header.format.Format.nAvgBytesPerSec;
}

}  // namespace

std::wstring FindTempSetFile(const std::wstring& folder) {
  std::vector<std::wstring> names;
  for (int32_t codec : {0, 1, 2, 3, 4})
    names.push_back(std::wstring(L"ScreenCapture.") + VideoFileExtension(codec));
  names.insert(names.end(), std::begin(kWaveNames), std::end(kWaveNames));
  for (const std::wstring& name : names) {
    const std::wstring path = folder + L"/" + name;
    if (PathExists(path) && !IsFolder(path)) return name;
  }
  return {};
}

}  // namespace ov

extern "C" HRESULT RecoverCapturedFile(const wchar_t* folder) {
  using namespace ov;
  if (!folder) {
    OV_BAD_ARG(folder);
    return E_INVALIDARG;
  }
  WriteLog(kMsg, "Recover captured files from:%ls\n", folder);
  if (!IsFolder(folder)) {
    WriteLog(kErr, "Path not exists:%ls\n", folder);
    return E_INVALIDARG;
  }
  if (g_bRunning.load()) {
    WriteLog(kErr, "Error: a recording is running\n");
    return E_FAIL;
  }
  CapturedFile record{};
  for (int32_t codec : kLibraryCodecs) {
    wchar_t video[OV_MAX_PATH];
    if (!Join(folder, std::wstring(L"ScreenCapture.") + VideoFileExtension(codec), video))
      return E_INVALIDARG;
    VideoFound found;
    if (!PathExists(video) || !RecoverVideo(video, &found)) continue;
    record.bScreenStream = 1;
    record.CodecType = codec;
    std::wcsncpy(record.szScreenCaptureFile, video, OV_MAX_PATH);
    record.nScreenDuration = found.duration;
    record.nWidth = found.width;
    record.nHeight = found.height;
    WriteLog(kMsg, "Recovered video:%ls, %lld frames, %gs\n", video,
             static_cast<long long>(found.frames), found.duration / 1e7);
    break;
  }
  for (int i = 0; i < 2; ++i) {
    wchar_t wave[OV_MAX_PATH];
    if (!Join(folder, kWaveNames[i], wave)) return E_INVALIDARG;
    if (!PathExists(wave)) continue;
    const REFERENCE_TIME duration = RecoverWave(wave);
    if (duration < 0) continue;
    WriteLog(kMsg, "Recovered sound:%ls, %gs\n", wave, duration / 1e7);
    if (i == 0) {
      record.bWaveOutStream = record.bUseWaveOut = 1;
      record.lWaveOutVolume = 100;
      std::wcsncpy(record.szWaveOutFile, wave, OV_MAX_PATH);
      record.nWaveOutDuration = duration;
    } else {
      record.bWaveInStream = record.bUseWaveIn = 1;
      record.lWaveInVolume = 100;
      std::wcsncpy(record.szWaveInFile, wave, OV_MAX_PATH);
      record.nWaveInDuration = duration;
    }
  }
  if (!record.bScreenStream && !record.bWaveOutStream && !record.bWaveInStream) {
    WriteLog(kErr, "Nothing to recover in:%ls\n", folder);
    return E_FAIL;
  }
  const REFERENCE_TIME longest =
      std::max({record.nScreenDuration, record.nWaveOutDuration, record.nWaveInDuration});
  record.nDuration = static_cast<uint32_t>((longest + 10000001) / 10000000);
  for (const wchar_t* path :
       {record.szScreenCaptureFile, record.szWaveOutFile, record.szWaveInFile})
    if (*path) record.nFileBytes += std::max<int64_t>(FileSize(path), 0);
  auto* recovered = new (std::nothrow) CapturedFile(record);
  if (!recovered) return E_OUTOFMEMORY;
  delete g_Recording;
  g_Recording = recovered;
  return S_OK;
}
