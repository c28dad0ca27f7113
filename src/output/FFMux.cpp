#include "output/FFMux.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <system_error>
#include <thread>

#include "audio/WaveFormat.h"
#include "audio/convert/FormatLog.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "formats/FrameIndexFile.h"
#include "output/MuxOutput.h"
#include "output/MuxWorkers.h"
#include "output/Watermark.h"
#include "platform/Clock.h"
#include "platform/Library.h"
#include "platform/LogFile.h"
#include "platform/Thread.h"

namespace ov {

namespace {

constexpr uint32_t kPollMs = 500;
constexpr uint32_t kReportMs = 500;

bool FitsRecord(const std::wstring& text) {
  return Utf16Length(text) < static_cast<size_t>(kMuxPathChars);
}

// Past the end of any recording; later trim times are taken as this, which
// keeps the tick and byte arithmetic in range.
constexpr REFERENCE_TIME kFarTime = kMaxIndexTime * (REF_TIME_UNITS / kIndexClock + 1);

HRESULT Refuse(const char* why, const std::wstring& path) {
  WriteLog(kErr, "Error: %s:%ls\n", why, path.c_str());
  return E_INVALIDARG;
}

std::wstring IndexPathOf(const wchar_t* videoFile) { return std::wstring(videoFile) + L".idx"; }

// Reads the index and its first maxEntries entries (all when negative); the
// failures are logged.
bool ReadIndex(const std::wstring& path, int64_t maxEntries, FrameIndexFile* index) {
  int error = 0;
  const char* wrong = ReadFrameIndex(ToUtf8(path), maxEntries, index, &error);
  if (!wrong) return true;
  if (index->fileBytes < 0)
    WriteLog(kErr, "Failed(%d) to open file:%ls\n", error, path.c_str());
  else if (error != 0)
    WriteLog(kErr, "Failed(%d) to read file:%ls\n", error, path.c_str());
  else
    WriteLog(kErr, "Error format:%ls (%s)\n", path.c_str(), wrong);
  return false;
}

struct AudioChoice {
  const char* encoder;
  WORD formatTag;
  WORD bits;
  std::vector<DWORD> rates;  // falling
};

// The rate of the list nearest to r from above, held to the list's ends.
DWORD ChooseRate(const std::vector<DWORD>& rates, DWORD r) {
  if (r >= rates.front()) return rates.front();
  if (r <= rates.back()) return rates.back();
  DWORD chosen = rates.front();
  for (DWORD rate : rates)
    if (rate >= r) chosen = rate;
  return chosen;
}

// The host's record: paths within their fields and within the record of the
// program, and a trim that lies the right way round; a negative time or an
// end before the start is refused, never taken as "no sound".
HRESULT CheckRecording(CapturedFile& r) {
  for (const wchar_t* field : {r.szScreenCaptureFile, r.szWaveOutFile, r.szWaveInFile}) {
    if (!PathFits(field)) return Refuse("a temp file name without its end", L"");
  }
  if (r.bScreenStream && !FitsRecord(IndexPathOf(r.szScreenCaptureFile)))
    return Refuse("temp video path too long", r.szScreenCaptureFile);
  if (r.nTrimStart < 0 || r.nTrimEnd < 0 || (r.nTrimEnd != 0 && r.nTrimEnd <= r.nTrimStart)) {
    WriteLog(kErr, "Error: trim %lld->%lld refused\n", static_cast<long long>(r.nTrimStart),
             static_cast<long long>(r.nTrimEnd));
    return E_INVALIDARG;
  }
  // A trim beyond the recording is held to its end.
  r.nTrimStart = std::min(r.nTrimStart, kFarTime);
  r.nTrimEnd = std::min(r.nTrimEnd, kFarTime);
  return S_OK;
}

}  // namespace

FrameRange ComputeFrameRange(const std::vector<FrameIndexEntry>& entries,
                             REFERENCE_TIME* pTrimStart, REFERENCE_TIME trimEnd,
                             REFERENCE_TIME* pLimit) {
  const auto count = static_cast<int32_t>(entries.size());
  FrameRange range{0, count};
  if ((*pTrimStart == 0 && trimEnd == 0 && *pLimit == 0) || count == 0) return range;
  *pTrimStart = std::min(*pTrimStart, kFarTime);
  trimEnd = std::min(trimEnd, kFarTime);
  *pLimit = std::min(*pLimit, kFarTime);

  const int64_t startTick = TimeToTicks(*pTrimStart);
  const int64_t endTick = TimeToTicks(trimEnd);
  if (startTick != 0) {
    int32_t i = 0;
    while (i < count && entries[i].time < startTick) ++i;
    if (i == count) i = 0;
    // The entry found is not itself tested: a start on a key frame moves
    // back to the key frame before it.
    for (int32_t k = i - 1; k >= 0; --k) {
      if (entries[k].pictureType == kPictureKey || entries[k].pictureType == kPictureIntra) {
        i = k;
        break;
      }
    }
    range.first = i;
    *pTrimStart = TicksToTime(entries[i].time);
  }
  if (endTick == 0 && *pLimit == 0) return range;

  const int64_t limitTick = TimeToTicks(*pLimit);
  int64_t lastTick;
  if (endTick != 0 && *pLimit != 0)
    lastTick = std::min(endTick, limitTick + startTick);
  else if (*pLimit != 0)
    lastTick = limitTick + startTick;
  else
    lastTick = endTick;
  range.end = count;
  for (int32_t k = count - 1; k >= 0; --k) {
    if (entries[k].time <= lastTick) {
      range.end = k + 1;
      break;
    }
  }
  // A start with no key frame before it, then no frame until past the end
  // (a damaged index), still keeps the frame it starts on.
  range.end = std::max(range.end, range.first + 1);
  const int32_t last = range.end < count ? range.end : count - 1;
  *pLimit = TicksToTime(entries[last].time - entries[range.first].time);
  return range;
}

}  // namespace ov

using namespace ov;

CFFMux::CFFMux(int32_t muxer, int32_t audioSetting, const wchar_t* pwszOutFile, int32_t duration,
               CMuxCallback* pCallback)
    : m_Muxer(muxer),
      m_nAudioSetting(audioSetting),
      pCallback(pCallback),
      m_nLimit(static_cast<REFERENCE_TIME>(duration) * REF_TIME_UNITS) {
  StorePath(m_szOutFile, pwszOutFile);
}

CFFMux::~CFFMux() = default;

void CFFMux::ChooseAudioFormat(const WAVEFORMATEXTENSIBLE* pSourceFormat,
                               WAVEFORMATEX* pWantedFormat) {
  LogWaveFormat("Source Format", *pSourceFormat);
  const DWORD r = pSourceFormat->Format.nSamplesPerSec;
  const WORD c = pSourceFormat->Format.nChannels;
  AudioChoice choice;
  WORD channels;
  switch (m_Muxer) {
    case FFMUX_MP4_VIDEO_ONLY:
      return;
    case FFMUX_MP3:
      choice = {"libmp3lame", WAVE_FORMAT_IEEE_FLOAT, 32, {48000, 44100, 22050, 8000}};
      channels = c == 1 ? 1 : 2;
      break;
    case FFMUX_AVI:
      choice = {"ac3", WAVE_FORMAT_IEEE_FLOAT, 32, {48000, 44100}};
      channels = c >= 4 ? 6 : 2;
      break;
    default:
      choice = {"libfdk_aac", WAVE_FORMAT_PCM, 16, {96000, 64000, 48000, 44100, 22050, 8000}};
      channels = c >= 8 ? 8 : c >= 4 ? 6 : c >= 2 ? 2 : 1;
      break;
  }
  WAVEFORMATEX& wfx = *pWantedFormat;
  wfx.wFormatTag = choice.formatTag;
  wfx.nChannels = channels;
  wfx.nSamplesPerSec = ChooseRate(choice.rates, r);
  wfx.wBitsPerSample = choice.bits;
  wfx.nBlockAlign = static_cast<WORD>(channels * choice.bits / 8);
  wfx.nAvgBytesPerSec = wfx.nSamplesPerSec * wfx.nBlockAlign;
  wfx.cbSize = 0;
  audio::LogFormat("Codec Format", wfx);
  m_wfx = wfx;
  if (m_pRecord) {
    std::memset(m_pRecord->encoder, 0, sizeof m_pRecord->encoder);
    std::strncpy(m_pRecord->encoder, choice.encoder, sizeof m_pRecord->encoder - 1);
  }
}

HRESULT CFFMux::Start(std::unique_ptr<CFFMux> pMux) {
  if (FAILED(pMux->Prepare()) || FAILED(pMux->CreatePartFile())) return E_FAIL;
  const std::wstring part = pMux->m_sPartFile;
  // The worker owns the mux; std::function wants a copyable callable.
  auto owned = std::make_shared<std::unique_ptr<CFFMux>>(std::move(pMux));
  if (!StartMuxWorker([owned] { Worker(std::move(*owned)); })) {
    RemoveFile(part);
    return E_FAIL;
  }
  return S_OK;
}

HRESULT CFFMux::Prepare() {
  const CapturedFile& r = *g_Recording;
  const bool watermark = g_szWatermarkFile[0] != L'\0' && r.bScreenStream;
  FrameIndexHeader header{};
  if (watermark) {
    FrameIndexFile index;
    if (ReadIndex(IndexPathOf(r.szScreenCaptureFile), 0, &index)) header = index.header;
  }
  if (m_Mapping.Create(watermark ? MuxRecordBytes(header.width, header.height) : kMuxRecordSize) !=
      0) {
    WriteLog(kErr, "Failed to CreateFileMapping\n");
    return E_FAIL;
  }
  m_pRecord = static_cast<MuxRecord*>(m_Mapping.Data());
  m_pRecord->size = kMuxRecordSize;
  if (!r.bScreenStream) m_pRecord->noVideo = 1;
  const bool waveOut = r.bWaveOutStream && r.bUseWaveOut && r.lWaveOutVolume;
  const bool waveIn = r.bWaveInStream && r.bUseWaveIn && r.lWaveInVolume;
  m_pRecord->noAudio = waveOut || waveIn ? 0 : 1;

  static constexpr int32_t kContainerOf[] = {kMuxMp4, kMuxMov, kMuxMp4VideoOnly, kMuxM4a, kMuxAdts,
                                             kMuxMp3, kMuxMkv, kMuxFlv,          kMuxAvi};
  if (m_Muxer < FFMUX_MP4 || m_Muxer > FFMUX_AVI) {
    WriteLog(kErr, "m_Muxer=%d?", m_Muxer);
    return E_FAIL;
  }
  m_pRecord->container = kContainerOf[m_Muxer];
  if (m_Muxer == FFMUX_MP4_VIDEO_ONLY) m_pRecord->noAudio = 1;
  if (m_Muxer == FFMUX_M4A || m_Muxer == FFMUX_AAC || m_Muxer == FFMUX_MP3) m_pRecord->noVideo = 1;

  if (!m_pRecord->noVideo) {
    if (FAILED(PrepareVideo(watermark, header.width, header.height))) return E_FAIL;
  } else {
    m_nDivisor = 100;
  }
  if (!m_pRecord->noAudio && FAILED(PrepareAudio())) return E_FAIL;
  return S_OK;
}

// The first file this mux touches: a new one beside the output, which the
// program fills and which becomes the output only when it has succeeded.
HRESULT CFFMux::CreatePartFile() {
  if (FAILED(CreatePartFileBeside(m_szOutFile, &m_sPartFile))) return E_FAIL;
  CopyUtf16(m_pRecord->outputPath, m_sPartFile);
  return S_OK;
}

HRESULT CFFMux::ReadFrameIndex(std::vector<FrameIndexEntry>* pEntries) {
  const std::wstring path = IndexPathOf(g_Recording->szScreenCaptureFile);
  FrameIndexFile index;
  if (!ReadIndex(path, -1, &index)) return E_FAIL;
  // The trim arithmetic below trusts the times.
  const size_t bad = FirstDisorderedEntry(index.entries.data(), index.entries.size());
  if (bad != index.entries.size()) {
    WriteLog(kErr, "Error: frame %lld of %ls is out of time order\n", static_cast<long long>(bad),
             path.c_str());
    return E_FAIL;
  }
  *pEntries = std::move(index.entries);
  return S_OK;
}

HRESULT CFFMux::PrepareVideo(bool watermark, uint32_t width, uint32_t height) {
  std::vector<FrameIndexEntry> entries;
  if (FAILED(ReadFrameIndex(&entries))) return E_FAIL;
  REFERENCE_TIME trimStart = g_Recording->nTrimStart;
  const FrameRange range = ComputeFrameRange(entries, &trimStart, g_Recording->nTrimEnd, &m_nLimit);
  g_Recording->nTrimStart = trimStart;
  m_pRecord->firstFrame = range.first;
  m_pRecord->endFrame = range.end;
  m_nDivisor = range.end - range.first;
  if (m_nDivisor == 0) m_nDivisor = 1;

  CopyUtf16(m_pRecord->videoPath, g_Recording->szScreenCaptureFile);
  CopyUtf16(m_pRecord->indexPath, IndexPathOf(g_Recording->szScreenCaptureFile));
  if (watermark) {
    m_pRecord->hasWatermark = 1;
    DrawWatermark(reinterpret_cast<uint8_t*>(m_pRecord->watermark), static_cast<int>(width),
                  static_cast<int>(height));
  }
  return S_OK;
}

HRESULT CFFMux::PrepareAudio() {
  m_pReader = CreateMuxAudioReader();
  if (!m_pReader) return E_FAIL;
  m_nReadBufferSize = m_wfx.nAvgBytesPerSec;
  if (!m_ReadBuffer.Allocate(static_cast<int32_t>(m_nReadBufferSize))) return E_FAIL;
  const std::wstring folder = TempFolder();
  if (int error = m_hAudioFile.Create(folder)) {
    WriteLog(kErr, "Failed(%d) to create temp audio file:%ls\n", error, folder.c_str());
    return E_FAIL;
  }
  m_pRecord->audioFd = m_hAudioFile.Fd();
  m_pRecord->audioRate = static_cast<int32_t>(m_wfx.nSamplesPerSec);
  m_pRecord->audioChannels = m_wfx.nChannels;
  m_pRecord->audioSetting = m_nAudioSetting;
  return S_OK;
}

void CFFMux::Worker(std::unique_ptr<CFFMux> pMux) {
  SetCurrentThreadName("FFMux");
  HRESULT hr = pMux->Run();
  const std::wstring part = pMux->m_sPartFile, out = pMux->m_szOutFile;
  if (hr != E_ABORT) {
    const HRESULT moved = FinishPartFile(part, out, SUCCEEDED(hr));
    if (SUCCEEDED(hr)) hr = moved;
  }
  CMuxCallback* const callback = pMux->pCallback;
  // A child left running by a cancel finishes on its own; it is killed when
  // the thread that started it ends, so this thread waits for it below and
  // then puts its file in place.
  ChildProcess child = std::move(pMux->m_Process);
  callback->OnComplete(hr);
  pMux.reset();
  if (hr != E_ABORT) return;
  int exitCode = -1;
  if (child.Running()) child.Wait(UINT32_MAX, &exitCode);
  FinishPartFile(part, out, exitCode == 0);
}

HRESULT CFFMux::Run() {
  if (!m_pRecord->noAudio) {
    const HRESULT hr = WriteRawAudio();
    if (FAILED(hr)) return hr;
  }
  return RunMuxProgram();
}

bool CFFMux::Report(int percent) {
  m_nLastReport = percent;
  return pCallback->OnProgress(percent) != 0;
}

HRESULT CFFMux::WriteRawAudio() {
  const CapturedFile& r = *g_Recording;
  if (r.nTrimStart != 0) SeekMuxAudioReader(m_pReader.get(), r.nTrimStart);
  REFERENCE_TIME duration = (r.nTrimEnd ? r.nTrimEnd : m_pReader->Duration()) - r.nTrimStart;
  if (m_nLimit != 0 && duration > m_nLimit) duration = m_nLimit;
  duration = std::max<REFERENCE_TIME>(duration, 0);
  const int64_t blocks = duration / REF_TIME_UNITS + 1;
  // The last block stops at the duration, so that the audio ends where the
  // trim or the limit ends.
  int64_t remaining = static_cast<int64_t>(m_wfx.nAvgBytesPerSec) * duration / REF_TIME_UNITS;
  remaining -= remaining % m_wfx.nBlockAlign;

  uint32_t lastReport = 0;
  for (int64_t block = 0; block < blocks && remaining > 0; ++block) {
    const auto wanted = static_cast<uint32_t>(std::min<int64_t>(m_nReadBufferSize, remaining));
    const uint32_t n = m_pReader->Read(m_ReadBuffer.Data(), wanted);
    if (n == 0) break;
    if (int error = m_hAudioFile.Write(m_ReadBuffer.Data(), n)) {
      WriteLog(kErr, "Failed(%d) to write\n", error);
      return E_FAIL;
    }
    remaining -= n;
    m_pRecord->audioFrames += n / m_wfx.nBlockAlign;
    const uint32_t now = TickCount();
    if (block == 0 || now - lastReport > kReportMs) {
      lastReport = now;
      const int percent = static_cast<int>(10 * (block + 1) / blocks);
      if (percent != m_nLastReport && !Report(percent)) return E_ABORT;
    }
  }
  if (m_pRecord->audioFrames == 0 && r.nTrimStart != 0) {
    // A trim that starts past the end of the sound would leave a file
    // without its audio track.
    WriteLog(kErr, "Error: the trim %lld->%lld leaves no sound\n",
             static_cast<long long>(r.nTrimStart), static_cast<long long>(r.nTrimEnd));
    return E_INVALIDARG;
  }
  if (int error = m_hAudioFile.Rewind()) {
    WriteLog(kErr, "Failed(%d) to write\n", error);
    return E_FAIL;
  }
  return Report(10) ? S_OK : E_ABORT;
}

HRESULT CFFMux::RunMuxProgram() {
  const int logFd = LogFd();
  ChildLaunch launch;
  launch.program = HelperFolder() + "/mux";
  launch.args = {"m", std::to_string(logFd), std::to_string(m_Mapping.Fd())};
  launch.inherit = {m_Mapping.Fd()};
  if (logFd >= 0) launch.inherit.push_back(logFd);
  if (m_hAudioFile.Valid()) launch.inherit.push_back(m_hAudioFile.Fd());
  launch.stdFd = ChildStdHandle() >= 0 ? ChildStdHandle() : logFd;
  WriteLog(kDbg, "\"%s\" m %s %s\n", launch.program.c_str(), launch.args[1].c_str(),
           launch.args[2].c_str());
  if (int error = m_Process.Start(launch)) {
    WriteLog(kErr, "Faild(%d) to CreateProcess\n", error);
    return E_FAIL;
  }

  int exitCode = 0;
  while (!m_Process.Wait(kPollMs, &exitCode)) {
    const int32_t done = MuxProgress(m_pRecord).load(std::memory_order_relaxed);
    const int32_t p = std::clamp<int32_t>(done * 90 / m_nDivisor, 0, 90);
    if (p + 10 != m_nLastReport && !Report(p + 10)) return E_ABORT;
  }
  WriteLog(kMsg, "ExitCode=%d\n", exitCode);
  return exitCode == 0 ? S_OK : E_FAIL;
}

extern "C" HRESULT FFMux(int m_Muxer, int audioSetting, const wchar_t* pwszOutFile, int Duration,
                         CMuxCallback* pCallback) {
  if (!ov::MuxArgumentsPresent(pwszOutFile, pCallback, OV_FILE, __LINE__)) return E_FAIL;
  WriteLog(kMsg, "FFMux:%ls, Duration=%dSec\n", pwszOutFile, Duration);
  WriteLog(kMsg, "Trim: %lld->%lld\n", static_cast<long long>(g_Recording->nTrimStart),
           static_cast<long long>(g_Recording->nTrimEnd));
  if (Duration < 0) {
    OV_BAD_ARG(Duration);
    return E_INVALIDARG;
  }
  if (HRESULT hr = CheckRecording(*g_Recording); FAILED(hr)) return hr;
  if (HRESULT hr = CheckMuxOutput(pwszOutFile, *g_Recording); FAILED(hr)) return hr;
  if (g_Recording->bScreenStream && g_Recording->CodecType == CodecType_GIF) {
    WriteLog(kErr, "Error: a GIF recording is assembled by GIFMux\n");
    return E_INVALIDARG;
  }
  if (!FitsRecord(PartFileModel(pwszOutFile))) {
    WriteLog(kErr, "Error: output path too long:%ls\n", pwszOutFile);
    return E_INVALIDARG;
  }
  return CFFMux::Start(
      std::make_unique<CFFMux>(m_Muxer, audioSetting, pwszOutFile, Duration, pCallback));
}
