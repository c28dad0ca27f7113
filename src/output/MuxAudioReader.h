// The audio side of the final file: one wave temp file, or two mixed, read in
// the one format that a muxer wants, with each track's volume.
#pragma once

#include <cstdint>
#include <memory>

#include "audio/WaveReader.h"
#include "audio/convert/AlignedBuffer.h"
#include "audio/convert/AudioConverter.h"
#include "audio/convert/TrackMix.h"
#include "orvanta/types.h"

// Reads one wave temp file through a converter to the wanted format. The
// order of calls is Open, Initialize, the seek of a trim start, Read until it
// gives 0.
class CMuxAudioReader : public CWaveReader {
 public:
  CMuxAudioReader();
  ~CMuxAudioReader() override;

  // wfx is the wanted format; lVolume is in percent.
  HRESULT Initialize(const WAVEFORMATEX& wfx, LONG lVolume);

  // Delivers nBytes in the wanted format until the file runs out; a short
  // count only at the very end, then 0.
  virtual uint32_t Read(void* pBuffer, uint32_t nBytes);

 private:
  uint32_t ReadConverted(uint8_t* pBuffer, uint32_t nBytes);

  std::unique_ptr<AudioConverter> m_pConverter;
  int32_t m_nWaiting = 0;
  const uint8_t* m_pWaiting = nullptr;
  ov::audio::AlignedBuffer m_ReadBuffer;
  int32_t m_nReadBlock = 0;
  LONG m_lVolume = 100;
  ov::audio::VolumeFunction m_pfnVolume = nullptr;
};

// Two files, each through its own converter to the common format, mixed.
// The mix ends with the shorter file.
class CMuxAudioReader2 : public CMuxAudioReader {
 public:
  CMuxAudioReader2();
  ~CMuxAudioReader2() override;

  HRESULT Open(const wchar_t* szWaveFile, const wchar_t* szWaveFile2);
  HRESULT Initialize(const WAVEFORMATEX& wfx, LONG lVolume1, LONG lVolume2);

  // nBytes is held to one second of the wanted format, what the mix buffer
  // holds.
  uint32_t Read(void* pBuffer, uint32_t nBytes) override;

  // The second file. A trim seeks it as well as the reader itself.
  CMuxAudioReader m_Reader2;

 private:
  ov::audio::AlignedBuffer m_MixBuffer;
  ov::audio::MixFunction m_pfnMix = nullptr;
};

// What a muxer derives from to have its reader built from g_Recording.
class CMuxAudioReaderFormat {
 public:
  // Fills *pWantedFormat, zeroed before the call, with the format the muxer
  // wants for a first wave temp file of *pSourceFormat.
  virtual void ChooseAudioFormat(const WAVEFORMATEXTENSIBLE* pSourceFormat,
                                 WAVEFORMATEX* pWantedFormat) = 0;
  virtual ~CMuxAudioReaderFormat();

  // A reader on the tracks that are present, in use and not at volume 0,
  // opened and initialised; null when there is none or a step failed.
  std::unique_ptr<CMuxAudioReader> CreateMuxAudioReader();

 private:
  std::unique_ptr<CMuxAudioReader> CreateOne(const wchar_t* szWaveFile, LONG lVolume);
  std::unique_ptr<CMuxAudioReader> CreateTwo(const wchar_t* szWaveFile, LONG lVolume,
                                             const wchar_t* szWaveFile2, LONG lVolume2);
};

// The seek of a trim start, on both files of a two-track reader.
BOOL SeekMuxAudioReader(CMuxAudioReader* pReader, REFERENCE_TIME tStart);
