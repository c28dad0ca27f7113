// The video of a library encoder's recording: the `mux` program decodes it
// in a process of its own and hands frames over one at a time in the slot of
// a shared record.
#pragma once

#include "core/MediaReader.h"
#include "formats/DecoderRecord.h"
#include "platform/ChildProcess.h"
#include "platform/EventFd.h"
#include "platform/SharedMemory.h"

class CVideoDecoder final : public CBaseMediaReader {
 public:
  CVideoDecoder(int32_t nIndex, const wchar_t* pMediaFile, int32_t codecType,
                CMediaVideoRender* pRender);
  ~CVideoDecoder() override;

  // Reads the index into the record and starts the program; E_FAIL, with a
  // log line, when either fails or when the video yields not one frame.
  HRESULT Initialize();

  int Update(REFERENCE_TIME t) override;
  int ShowAt(REFERENCE_TIME t) override;
  void ShowFirst() override;
  REFERENCE_TIME Seek(REFERENCE_TIME t) override;
  int Idle() override;

 private:
  int64_t SlotWord() { return ov::SlotTime(m_pRecord).load(); }
  bool EndSet() { return ov::EndFlag(m_pRecord).load() != 0; }
  // Shows the slot's frame and frees the slot.
  void Take();

  int32_t m_CodecType;
  CMediaVideoRender* m_pRender;
  ov::FrameIndexHeader m_Header{};
  const ov::FrameIndexEntry* m_pEntries = nullptr;
  uint32_t m_nEntries = 0;
  const uint8_t* m_pFrame = nullptr;
  ov::SharedMemory m_Mapping;
  ov::DecoderRecord* m_pRecord = nullptr;
  ov::ChildProcess m_Process;
  ov::EventFd m_Events[2];
  bool m_bShowNext = true;
  int64_t m_nTargetTick = -1;
};
