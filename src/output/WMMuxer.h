// The final file of a WMV recording, or of one with sound only: an ASF file
// whose video samples are copied from the temp file unchanged, with the wave
// temp files encoded to WMA on the way. One reader per stream feeds the
// muxer, which interleaves them by time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "audio/convert/AlignedBuffer.h"
#include "orvanta/audiodevices.h"
#include "orvanta/mux.h"
#include "orvanta/types.h"
#include "output/MuxAudioReader.h"
#include "platform/NonCopyable.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace ov::wmv {
// Sample flags of ReadSample.
inline constexpr uint32_t kCleanPoint = 1;
inline constexpr uint32_t kDiscontinuity = 2;
}  // namespace ov::wmv

class CWMMuxReaderBase : private ov::NonCopyable {
 public:
  virtual ~CWMMuxReaderBase() = default;
  // Adds this reader's stream to the output.
  virtual HRESULT ReadProfile(AVFormatContext* pProfile) = 0;
  // Copies the stream's attributes to the output stream.
  virtual HRESULT CopyAttribute(AVStream* pStream) = 0;
  // The next sample, owned by the reader until the next call, or null at the
  // end. time (100-ns units) counts from the start of the kept part.
  virtual AVPacket* ReadSample(int64_t* time, int64_t* duration, uint32_t* flags) = 0;

  bool m_bEndOfStream = false;
  uint64_t m_nCurrentTime = 0;  // of the last sample delivered
};

class CWMMuxVideoReader final : public CWMMuxReaderBase {
 public:
  ~CWMMuxVideoReader() override;
  // Opens the temp video; a trim start moves back to the key frame at or
  // before it, and *pTrimStart becomes that frame's time. With a watermark
  // the frames are decoded, covered and encoded again; else the samples are
  // copied as they are.
  HRESULT Initialize(const wchar_t* pFile, REFERENCE_TIME* pTrimStart, bool watermark);
  HRESULT ReadProfile(AVFormatContext* pProfile) override;
  HRESULT CopyAttribute(AVStream* pStream) override;
  AVPacket* ReadSample(int64_t* time, int64_t* duration, uint32_t* flags) override;

 private:
  int64_t KeyTimeAtOrBefore(int64_t ms);
  HRESULT OpenWatermark();
  // The next sample of the kept part, into m_pSample; false at the end.
  bool NextSample();
  // The next sample of the watermarked video, into m_pOutput.
  bool NextCoveredSample();
  void Blend(const AVFrame* pFrame);

  AVFormatContext* m_pReader = nullptr;
  int m_nStream = -1;
  AVPacket* m_pSample = nullptr;
  int64_t m_nStartMs = 0;

  // The watermark's path.
  AVCodecContext* m_pDecoder = nullptr;
  AVCodecContext* m_pEncoder = nullptr;
  AVFrame* m_pDecoded = nullptr;
  AVFrame* m_pCovered = nullptr;
  AVPacket* m_pOutput = nullptr;
  ov::audio::AlignedBuffer m_Raster;  // DrawWatermark's layout
  std::array<int64_t, 32> m_Times{};  // ms of the frames in the encoder
  int64_t m_nSequence = 0;
  bool m_bDecoderDrained = false;
};

class CWMMuxAudioReader final : public CWMMuxReaderBase {
 public:
  explicit CWMMuxAudioReader(const AudioCodecInfo* pCodecInfo) : m_pCodecInfo(pCodecInfo) {}
  ~CWMMuxAudioReader() override;
  // One track, or with pFile2 two mixed; read from trimStart on.
  HRESULT Initialize(const wchar_t* pFile, LONG lVolume, const wchar_t* pFile2, LONG lVolume2,
                     REFERENCE_TIME trimStart);
  HRESULT ReadProfile(AVFormatContext* pProfile) override;
  HRESULT CopyAttribute(AVStream*) override { return S_OK; }
  AVPacket* ReadSample(int64_t* time, int64_t* duration, uint32_t* flags) override;

 private:
  HRESULT MatchInputFormat(const WAVEFORMATEXTENSIBLE& wfxe);
  HRESULT CodecInitialize();
  // Sends the next frame of samples, or the end; false when nothing was left.
  bool SendInput();

  const AudioCodecInfo* m_pCodecInfo;
  std::unique_ptr<CMuxAudioReader> m_pWaveReader;
  WAVEFORMATEX m_InputFormat{};
  AVCodecContext* m_pMediaObject = nullptr;
  AVFrame* m_pFrame = nullptr;
  AVPacket* m_pSample = nullptr;
  ov::audio::AlignedBuffer m_Block;  // one second of m_InputFormat
  uint32_t m_nBlockBytes = 0;
  uint32_t m_nBlockUsed = 0;
  int64_t m_nSamplesIn = 0;  // frames sent to the encoder
  bool m_bInputEnded = false;
  bool m_bFirstOutput = true;
};

class CWMMuxer : private ov::NonCopyable {
 public:
  CWMMuxer(const wchar_t* pwszOutFile, int Second, const AudioCodecInfo* pWaveOutAudioCodecInfo,
           const AudioCodecInfo* pWaveInAudioCodecInfo, int Mix, CMuxCallback* pCallback);
  virtual ~CWMMuxer();

  // The whole mux, on the mux thread; the part file becomes the output only
  // when this succeeds.
  HRESULT Mux();
  static void Worker(std::unique_ptr<CWMMuxer> pMuxer);

 private:
  HRESULT BuildReaders(REFERENCE_TIME* pTrimStart);
  HRESULT Interleave(uint64_t stopTime, uint64_t span);
  HRESULT WriteSample(int index, AVPacket* pSample, int64_t time, int64_t duration, uint32_t flags);

  int32_t Mix;
  const AudioCodecInfo* pWaveOutAudioCodecInfo;
  const AudioCodecInfo* pWaveInAudioCodecInfo;
  std::wstring m_wszOutFile;
  std::wstring m_sPartFile;
  int64_t m_nLimit;
  CMuxCallback* pCallback;
  int m_nReaders = 0;
  std::array<std::unique_ptr<CWMMuxReaderBase>, 3> m_Readers;
  std::array<int64_t, 3> m_LastMs{-1, -1, -1};
  AVFormatContext* m_pWriter = nullptr;
};
