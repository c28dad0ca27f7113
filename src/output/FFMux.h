// Assembly of the final file by the `mux` program: this side decides which
// frames and which stretch of audio a trim keeps, converts and mixes the
// audio into one raw temp file, lays everything into the shared record,
// starts the program and turns what it reports into progress for the host.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/convert/AlignedBuffer.h"
#include "formats/FrameIndex.h"
#include "formats/MuxRecord.h"
#include "orvanta/mux.h"
#include "orvanta/types.h"
#include "output/MuxAudioReader.h"
#include "platform/AnonymousFile.h"
#include "platform/ChildProcess.h"
#include "platform/Files.h"
#include "platform/SharedMemory.h"

namespace ov {

// Index entries first .. end - 1 of the temp video.
struct FrameRange {
  int32_t first = 0;
  int32_t end = 0;
};

// Turns a trim (100-ns units) and a time limit (0: none) into the frames to
// keep. The start moves back to the key frame before it, and *pTrimStart
// then becomes that frame's time, so that the audio starts with the first
// frame; with an end or a limit, *pLimit becomes the span of the frames
// kept, so that it bounds the audio.
FrameRange ComputeFrameRange(const std::vector<FrameIndexEntry>& entries,
                             REFERENCE_TIME* pTrimStart, REFERENCE_TIME trimEnd,
                             REFERENCE_TIME* pLimit);

}  // namespace ov

class CFFMux : public CMuxAudioReaderFormat {
 public:
  CFFMux(int32_t muxer, int32_t audioSetting, const wchar_t* pwszOutFile, int32_t duration,
         CMuxCallback* pCallback);
  ~CFFMux() override;

  void ChooseAudioFormat(const WAVEFORMATEXTENSIBLE* pSourceFormat,
                         WAVEFORMATEX* pWantedFormat) override;

  // Everything up to the start of the worker thread, which then owns the
  // object. On failure the caller destroys it.
  static HRESULT Start(std::unique_ptr<CFFMux> pMux);

  const ov::MuxRecord* Record() const { return m_pRecord; }
  const WAVEFORMATEX& WantedFormat() const { return m_wfx; }

 private:
  HRESULT Prepare();
  HRESULT CreatePartFile();
  HRESULT PrepareVideo(bool watermark, uint32_t width, uint32_t height);
  HRESULT PrepareAudio();
  HRESULT ReadFrameIndex(std::vector<ov::FrameIndexEntry>* pEntries);
  static void Worker(std::unique_ptr<CFFMux> pMux);
  HRESULT Run();
  HRESULT WriteRawAudio();
  HRESULT RunMuxProgram();
  bool Report(int percent);

  int32_t m_Muxer;
  int32_t m_nAudioSetting;
  wchar_t m_szOutFile[OV_MAX_PATH] = {};
  std::wstring m_sPartFile;  // what the program writes, renamed at the end
  CMuxCallback* pCallback;
  std::unique_ptr<CMuxAudioReader> m_pReader;
  WAVEFORMATEX m_wfx{};
  ov::SharedMemory m_Mapping;
  ov::MuxRecord* m_pRecord = nullptr;
  ov::AnonymousFile m_hAudioFile;
  REFERENCE_TIME m_nLimit;
  int32_t m_nDivisor = 1;
  ov::audio::AlignedBuffer m_ReadBuffer;
  uint32_t m_nReadBufferSize = 0;
  ov::ChildProcess m_Process;
  int m_nLastReport = -1;
};
