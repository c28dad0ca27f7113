#include "playback/VideoDecoder.h"

#include <algorithm>
#include <string>

#include "core/Log.h"
#include "formats/FrameIndexFile.h"
#include "platform/Clock.h"
#include "platform/Library.h"
#include "platform/LogFile.h"
#include "platform/Text.h"

namespace {

// The program delivers its first frame within this, or it is taken as
// unable to play the video at all.
constexpr uint32_t kFirstFrameMs = 10000;

}  // namespace

CVideoDecoder::CVideoDecoder(int32_t nIndex, const wchar_t* pMediaFile, int32_t codecType,
                             CMediaVideoRender* pRender)
    : CBaseMediaReader(nIndex, pMediaFile), m_CodecType(codecType), m_pRender(pRender) {
  WriteLog(ov::kMsg, "Create CVideoDecoder\n");
}

CVideoDecoder::~CVideoDecoder() {
  WriteLog(ov::kMsg, "Destroy CVideoDecoder\n");
  m_Process.Kill();
}

HRESULT CVideoDecoder::Initialize() {
  using namespace ov;
  const std::wstring indexPath = std::wstring(m_pMediaFile) + L".idx";
  FrameIndexFile index;
  int error = 0;
  if (const char* what = ReadFrameIndex(ToUtf8(indexPath), -1, &index, &error)) {
    WriteLog(kErr, "Failed(%d) to read file:%ls\n", error, indexPath.c_str());
    WriteLog(kErr, "%s\n", what);
    return E_FAIL;
  }
  const size_t count = std::min<size_t>(
      index.entries.size(), FirstDisorderedEntry(index.entries.data(), index.entries.size()));
  if (count == 0 || Utf16Length(m_pMediaFile) >= kDecoderPathChars) {
    WriteLog(kErr, "Failed(%d) to read file:%ls\n", 0, indexPath.c_str());
    return E_FAIL;
  }
  m_Header = index.header;
  const size_t entryBytes = count * sizeof(FrameIndexEntry);
  const uint32_t width = m_Header.width, height = m_Header.height;
  if (m_Mapping.Create(DecoderRecordBytes(entryBytes, width, height)) != 0 ||
      m_Events[0].Create() != 0 || m_Events[1].Create() != 0) {
    WriteLog(kErr, "Failed to CreateFileMapping\n");
    return E_FAIL;
  }
  m_pRecord = static_cast<DecoderRecord*>(m_Mapping.Data());
  DecoderRecord& r = *m_pRecord;
  r.size = kDecoderRecordSize;
  CopyUtf16(r.videoPath, m_pMediaFile);
  r.readyEvent = m_Events[0].Fd();
  r.slotEvent = m_Events[1].Fd();
  r.seekEntry = -1;
  r.slotTime = kSlotEmpty;
  r.width = static_cast<int32_t>(width);
  r.height = static_cast<int32_t>(height);
  r.stride = r.width * 4;
  r.slotOffset = DecoderSlotOffset(entryBytes);
  r.entryCount = static_cast<uint32_t>(count);
  r.header = m_Header;
  std::copy_n(index.entries.data(), count, r.entries);
  m_pEntries = r.entries;
  m_nEntries = r.entryCount;
  m_pFrame = static_cast<const uint8_t*>(m_Mapping.Data()) + r.slotOffset;

  const int logFd = LogFd();
  ChildLaunch launch;
  launch.program = HelperFolder() + "/mux";
  launch.args = {"d", std::to_string(logFd), std::to_string(m_Mapping.Fd())};
  launch.inherit = {m_Mapping.Fd(), m_Events[0].Fd(), m_Events[1].Fd()};
  if (logFd >= 0) launch.inherit.push_back(logFd);
  launch.stdFd = ChildStdHandle() >= 0 ? ChildStdHandle() : logFd;
  if (int failure = m_Process.Start(launch)) {
    WriteLog(kErr, "Faild(%d) to CreateProcess\n", failure);
    return E_FAIL;
  }
  // A video that the program cannot decode ends it before its first frame.
  int exitCode = 0;
  for (uint32_t waited = 0; SlotWord() == kSlotEmpty; waited += 10) {
    if (waited >= kFirstFrameMs || m_Process.Wait(10, &exitCode)) {
      WriteLog(kErr, "mux gave no frame of %ls (exit %d)\n", m_pMediaFile, exitCode);
      return E_FAIL;
    }
  }
  return m_pRender->SetVideoFormat(m_nIndex, &MEDIASUBTYPE_RGB32, r.width, r.height) == S_OK
             ? S_OK
             : E_FAIL;
}

void CVideoDecoder::Take() {
  m_pRender->RenderFrame(m_nIndex, m_pFrame, m_pRecord->stride);
  ov::SlotTime(m_pRecord).exchange(ov::kSlotEmpty);
  m_Events[1].Signal();
}

int CVideoDecoder::Update(REFERENCE_TIME t) {
  if (bEnded) return 1;
  const int64_t word = SlotWord();
  if (EndSet() && word == ov::kSlotEmpty) {
    bEnded = 1;
    return 1;
  }
  if (word == ov::kSlotEmpty || word > ov::TimeToTicks(t)) return 1;
  Take();
  m_bShowNext = false;
  m_nTargetTick = -1;
  return 0;
}

int CVideoDecoder::ShowAt(REFERENCE_TIME t) {
  const int result = Update(t);
  m_nTargetTick = ov::TimeToTicks(t);
  return result;
}

void CVideoDecoder::ShowFirst() {
  if (SlotWord() != ov::kSlotEmpty) {
    Take();
    m_bShowNext = false;
  } else {
    m_bShowNext = true;
  }
}

REFERENCE_TIME CVideoDecoder::Seek(REFERENCE_TIME t) {
  const int64_t tick = ov::TimeToTicks(t);
  if (SlotWord() == tick) return t;
  uint32_t i = 0;
  while (i < m_nEntries && m_pEntries[i].time < tick) ++i;
  if (i == m_nEntries) i = m_nEntries - 1;
  for (;; --i) {
    if (i == 0) break;
    const uint32_t type = m_pEntries[i].pictureType;
    if (type == ov::kPictureKey || type == ov::kPictureIntra) break;
  }
  if (ov::SeekEntry(m_pRecord).load() == static_cast<int32_t>(i) ||
      SlotWord() == m_pEntries[i].time)
    return t;
  ov::SeekEntry(m_pRecord).exchange(static_cast<int32_t>(i));
  ov::SlotTime(m_pRecord).exchange(ov::kSlotEmpty);
  ov::EndFlag(m_pRecord).exchange(0);
  m_Events[1].Signal();
  bEnded = 0;
  m_bShowNext = true;
  m_nTargetTick = -1;
  return ov::TicksToTime(m_pEntries[i].time);
}

int CVideoDecoder::Idle() {
  if (bEnded) {
    m_bShowNext = false;
    m_nTargetTick = -1;
    return 1;
  }
  const int64_t word = SlotWord();
  if (m_bShowNext) {
    if (EndSet() && word == ov::kSlotEmpty) {
      m_bShowNext = false;
      bEnded = 1;
      m_nTargetTick = -1;
      return 1;
    }
    if (word == ov::kSlotEmpty) return 1;
    Take();
    m_bShowNext = false;
    m_nTargetTick = -1;
    return 0;
  }
  if (m_nTargetTick == -1 || word == ov::kSlotEmpty) return 1;
  if (word <= m_nTargetTick) {
    Take();
    return 0;
  }
  m_nTargetTick = -1;
  return 1;
}
