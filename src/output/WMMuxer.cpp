#include "output/WMMuxer.h"

#include <algorithm>
#include <cstring>

#include "audio/convert/FormatLog.h"
#include "audio/convert/SampleFormat.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "output/MuxOutput.h"
#include "output/MuxWorkers.h"
#include "output/Watermark.h"
#include "output/WmaFormats.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Text.h"
#include "platform/Thread.h"

using namespace ov;
using namespace ov::wmv;

namespace {

constexpr uint32_t kReportMs = 500;
constexpr int64_t kNoStop = INT64_MAX;
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);

HRESULT AvFailure(int error) { return error == AVERROR(ENOMEM) ? E_OUTOFMEMORY : E_FAIL; }

bool Out(const CapturedFile& r) { return r.bWaveOutStream && r.bUseWaveOut && r.lWaveOutVolume; }
bool In(const CapturedFile& r) { return r.bWaveInStream && r.bUseWaveIn && r.lWaveInVolume; }

}  // namespace

// ---- video: the temp file's samples, copied ---------------------------------

CWMMuxVideoReader::~CWMMuxVideoReader() {
  av_packet_free(&m_pSample);
  av_packet_free(&m_pOutput);
  av_frame_free(&m_pDecoded);
  av_frame_free(&m_pCovered);
  avcodec_free_context(&m_pDecoder);
  avcodec_free_context(&m_pEncoder);
  avformat_close_input(&m_pReader);
}

HRESULT CWMMuxVideoReader::Initialize(const wchar_t* pFile, REFERENCE_TIME* pTrimStart,
                                      bool watermark) {
  const std::string path = ToUtf8(pFile);
  int error = avformat_open_input(&m_pReader, path.c_str(), nullptr, nullptr);
  if (error < 0) {
    WriteLog(kErr, "Failed(0x%x) in m_pReader->Open(pFile), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  m_nStream = av_find_best_stream(m_pReader, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  m_pSample = av_packet_alloc();
  if (m_nStream < 0 || !m_pSample) {
    WriteLog(kErr, "Failed(0x%x) in GetOutputNumberForStream(1), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  HRESULT hr;
  if (watermark && OV_FAILED(hr, OpenWatermark())) return hr;
  if (*pTrimStart != 0) {
    // The kept part must start on a key frame, and the sound then starts
    // with it.
    m_nStartMs = KeyTimeAtOrBefore(*pTrimStart / REF_MSEC_UNITS);
    av_seek_frame(m_pReader, m_nStream, m_nStartMs, AVSEEK_FLAG_BACKWARD);
    *pTrimStart = m_nStartMs * REF_MSEC_UNITS;
  }
  return S_OK;
}

HRESULT CWMMuxVideoReader::OpenWatermark() {
  const AVCodecParameters& par = *m_pReader->streams[m_nStream]->codecpar;
  const AVCodec* decoder = avcodec_find_decoder(par.codec_id);
  const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_WMV2);
  if (!decoder || !encoder || par.width < 2 || par.height < 2) return E_FAIL;
  m_pDecoder = avcodec_alloc_context3(decoder);
  m_pEncoder = avcodec_alloc_context3(encoder);
  m_pDecoded = av_frame_alloc();
  m_pCovered = av_frame_alloc();
  m_pOutput = av_packet_alloc();
  const size_t pixels = static_cast<size_t>(par.width) * par.height;
  if (!m_pDecoder || !m_pEncoder || !m_pDecoded || !m_pCovered || !m_pOutput ||
      pixels * 4 > INT32_MAX || !m_Raster.Allocate(static_cast<int32_t>(pixels * 4)))
    return E_OUTOFMEMORY;
  if (avcodec_parameters_to_context(m_pDecoder, &par) < 0 ||
      avcodec_open2(m_pDecoder, decoder, nullptr) < 0)
    return E_FAIL;
  AVCodecContext& c = *m_pEncoder;
  c.width = par.width & ~1;
  c.height = par.height & ~1;
  c.pix_fmt = AV_PIX_FMT_YUV420P;
  c.time_base = {1, 30};
  c.gop_size = 600;
  c.max_b_frames = 0;
  c.flags |= AV_CODEC_FLAG_QSCALE;
  c.global_quality = FF_QP2LAMBDA * 4;
  if (avcodec_open2(m_pEncoder, encoder, nullptr) < 0) return E_FAIL;
  m_pCovered->format = AV_PIX_FMT_YUV420P;
  m_pCovered->width = c.width;
  m_pCovered->height = c.height;
  if (av_frame_get_buffer(m_pCovered, 0) < 0) return E_OUTOFMEMORY;
  std::memset(m_Raster.Data(), 0, pixels * 4);
  DrawWatermark(m_Raster.Data(), c.width, c.height);
  return S_OK;
}

int64_t CWMMuxVideoReader::KeyTimeAtOrBefore(int64_t ms) {
  int64_t key = 0;
  if (av_seek_frame(m_pReader, m_nStream, ms, AVSEEK_FLAG_BACKWARD) < 0) return key;
  while (av_read_frame(m_pReader, m_pSample) >= 0) {
    const bool ours = m_pSample->stream_index == m_nStream;
    const int64_t pts = m_pSample->pts;
    const bool isKey = (m_pSample->flags & AV_PKT_FLAG_KEY) != 0;
    av_packet_unref(m_pSample);
    if (!ours || pts == AV_NOPTS_VALUE) continue;
    if (pts > ms) break;
    if (isKey) key = pts;
  }
  return key;
}

HRESULT CWMMuxVideoReader::ReadProfile(AVFormatContext* pProfile) {
  AVStream* stream = avformat_new_stream(pProfile, nullptr);
  const int error = !stream      ? -1
                    : m_pEncoder ? avcodec_parameters_from_context(stream->codecpar, m_pEncoder)
                                 : avcodec_parameters_copy(stream->codecpar,
                                                           m_pReader->streams[m_nStream]->codecpar);
  if (error < 0) {
    WriteLog(kErr, "Failed(0x%x) in pProfile->AddStream(pStreamConfig), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  stream->codecpar->codec_tag = 0;
  stream->time_base = {1, 1000};
  return S_OK;
}

HRESULT CWMMuxVideoReader::CopyAttribute(AVStream* pStream) {
  av_dict_copy(&pStream->metadata, m_pReader->streams[m_nStream]->metadata, 0);
  av_dict_copy(&pStream->metadata, m_pReader->metadata, AV_DICT_DONT_OVERWRITE);
  return S_OK;
}

bool CWMMuxVideoReader::NextSample() {
  for (;;) {
    av_packet_unref(m_pSample);
    if (av_read_frame(m_pReader, m_pSample) < 0) return false;
    if (m_pSample->stream_index == m_nStream && m_pSample->pts != AV_NOPTS_VALUE &&
        m_pSample->pts >= m_nStartMs)
      return true;
  }
}

AVPacket* CWMMuxVideoReader::ReadSample(int64_t* time, int64_t* duration, uint32_t* flags) {
  AVPacket* sample = m_pEncoder ? m_pOutput : m_pSample;
  if (!(m_pEncoder ? NextCoveredSample() : NextSample())) {
    m_bEndOfStream = true;
    return nullptr;
  }
  const int64_t ms =
      m_pEncoder ? m_Times[static_cast<size_t>(sample->pts) % m_Times.size()] : sample->pts;
  *time = (ms - m_nStartMs) * REF_MSEC_UNITS;
  *duration = std::max<int64_t>(m_pSample->duration, 1) * REF_MSEC_UNITS;
  *flags = (sample->flags & AV_PKT_FLAG_KEY) ? kCleanPoint : 0;
  m_nCurrentTime = static_cast<uint64_t>(*time);
  return sample;
}

// Decodes until the encoder gives out a sample; key frames stay where the
// temp file has them.
bool CWMMuxVideoReader::NextCoveredSample() {
  for (;;) {
    av_packet_unref(m_pOutput);
    int error = avcodec_receive_packet(m_pEncoder, m_pOutput);
    if (error == 0) return true;
    if (error != AVERROR(EAGAIN)) return false;
    error = avcodec_receive_frame(m_pDecoder, m_pDecoded);
    if (error == 0) {
      Blend(m_pDecoded);
      const int64_t sequence = m_nSequence++;
      m_Times[static_cast<size_t>(sequence) % m_Times.size()] = m_pDecoded->best_effort_timestamp;
      m_pCovered->pts = sequence;
      m_pCovered->pict_type = m_pDecoded->key_frame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
      av_frame_unref(m_pDecoded);
      if (avcodec_send_frame(m_pEncoder, m_pCovered) < 0) return false;
    } else if (error == AVERROR_EOF) {
      avcodec_send_frame(m_pEncoder, nullptr);
    } else if (error != AVERROR(EAGAIN)) {
      return false;
    } else if (NextSample()) {
      avcodec_send_packet(m_pDecoder, m_pSample);
    } else if (!m_bDecoderDrained) {
      m_bDecoderDrained = true;
      avcodec_send_packet(m_pDecoder, nullptr);
    } else {
      return false;
    }
  }
}

// frame * (255 - alpha) + picture * alpha, over 255, plane by plane; the two
// chroma planes share one alpha plane.
void CWMMuxVideoReader::Blend(const AVFrame* pFrame) {
  if (av_frame_make_writable(m_pCovered) < 0) return;
  const int w = m_pCovered->width, h = m_pCovered->height;
  const size_t pixels = static_cast<size_t>(w) * h;
  const uint8_t* raster = m_Raster.Data();
  const uint8_t* colour[3] = {raster, raster + pixels, raster + pixels * 5 / 4};
  const uint8_t* alpha[3] = {raster + pixels * 3 / 2, raster + pixels * 5 / 2,
                             raster + pixels * 5 / 2};
  for (int p = 0; p < 3; ++p) {
    const int pw = p ? w / 2 : w, ph = p ? h / 2 : h;
    for (int y = 0; y < ph; ++y) {
      const uint8_t* in = pFrame->data[p] + static_cast<ptrdiff_t>(y) * pFrame->linesize[p];
      uint8_t* out = m_pCovered->data[p] + static_cast<ptrdiff_t>(y) * m_pCovered->linesize[p];
      const uint8_t* c = colour[p] + static_cast<size_t>(y) * pw;
      const uint8_t* a = alpha[p] + static_cast<size_t>(y) * pw;
      for (int x = 0; x < pw; ++x)
        out[x] = static_cast<uint8_t>((in[x] * (255 - a[x]) + c[x] * a[x] + 127) / 255);
    }
  }
}

// ---- audio: the wave temp files, encoded -----------------------------------

CWMMuxAudioReader::~CWMMuxAudioReader() {
  avcodec_free_context(&m_pMediaObject);
  av_frame_free(&m_pFrame);
  av_packet_free(&m_pSample);
}

HRESULT CWMMuxAudioReader::Initialize(const wchar_t* pFile, LONG lVolume, const wchar_t* pFile2,
                                      LONG lVolume2, REFERENCE_TIME trimStart) {
  HRESULT hr;
  CMuxAudioReader2* pTwo = nullptr;
  if (pFile2) {
    auto reader = std::make_unique<CMuxAudioReader2>();
    pTwo = reader.get();
    if (OV_FAILED(hr, reader->Open(pFile, pFile2))) return hr;
    m_pWaveReader = std::move(reader);
  } else {
    m_pWaveReader = std::make_unique<CMuxAudioReader>();
    if (OV_FAILED(hr, m_pWaveReader->Open(pFile))) return hr;
  }
  if (OV_FAILED(hr, MatchInputFormat(m_pWaveReader->Format()))) return hr;
  hr = pTwo ? pTwo->Initialize(m_InputFormat, lVolume, lVolume2)
            : m_pWaveReader->Initialize(m_InputFormat, lVolume);
  if (FAILED(hr)) {
    WriteLog(kErr, "Unmatch wave format\n");
    audio::LogFormat("Input", m_pWaveReader->Format().Format);
    audio::LogFormat("Codec", *m_pCodecInfo->pFormat);
    return E_UNEXPECTED;
  }
  if (trimStart != 0) SeekMuxAudioReader(m_pWaveReader.get(), trimStart);
  return CodecInitialize();
}

// The encoder takes float samples at the format's rate and channel count:
// a file already in that shape is read as it is, any other is converted.
HRESULT CWMMuxAudioReader::MatchInputFormat(const WAVEFORMATEXTENSIBLE& wfxe) {
  const WAVEFORMATEX& codec = *m_pCodecInfo->pFormat;
  WAVEFORMATEX& f = m_InputFormat;
  f.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
  f.nChannels = codec.nChannels;
  f.nSamplesPerSec = codec.nSamplesPerSec;
  f.wBitsPerSample = 32;
  f.nBlockAlign = static_cast<WORD>(f.wBitsPerSample * f.nChannels / 8);
  f.nAvgBytesPerSec = f.nSamplesPerSec * f.nBlockAlign;
  f.cbSize = 0;
  if (f.nChannels == 0 || f.nSamplesPerSec == 0) return E_UNEXPECTED;
  return IsSameWaveFormat(&wfxe.Format, &f) ? 0 : 1;
}

HRESULT CWMMuxAudioReader::CodecInitialize() {
  const WAVEFORMATEX& format = *m_pCodecInfo->pFormat;
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_WMAV2);
  m_pMediaObject = codec ? avcodec_alloc_context3(codec) : nullptr;
  m_pFrame = av_frame_alloc();
  m_pSample = av_packet_alloc();
  m_nBlockBytes = m_InputFormat.nAvgBytesPerSec;
  if (!m_pMediaObject || !m_pFrame || !m_pSample ||
      !m_Block.Allocate(static_cast<int32_t>(m_nBlockBytes)))
    return E_OUTOFMEMORY;
  m_nBlockUsed = m_nBlockBytes;  // empty
  AVCodecContext& c = *m_pMediaObject;
  c.sample_fmt = AV_SAMPLE_FMT_FLTP;
  c.sample_rate = static_cast<int>(format.nSamplesPerSec);
  av_channel_layout_default(&c.ch_layout, format.nChannels);
  c.bit_rate = WmaBitRate(format);
  c.time_base = {1, c.sample_rate};
  int error = avcodec_open2(m_pMediaObject, codec, nullptr);
  if (error < 0) {
    WriteLog(kErr,
             "Failed(0x%x) in m_pMediaObject->SetOutputType(0, m_pCodecInfo->pMediaType, 0), "
             "FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  m_pFrame->format = AV_SAMPLE_FMT_FLTP;
  m_pFrame->nb_samples = c.frame_size;
  m_pFrame->sample_rate = c.sample_rate;
  av_channel_layout_copy(&m_pFrame->ch_layout, &c.ch_layout);
  return av_frame_get_buffer(m_pFrame, 0) < 0 ? E_OUTOFMEMORY : S_OK;
}

HRESULT CWMMuxAudioReader::ReadProfile(AVFormatContext* pProfile) {
  AVStream* stream = avformat_new_stream(pProfile, nullptr);
  if (!stream || avcodec_parameters_from_context(stream->codecpar, m_pMediaObject) < 0) {
    WriteLog(kErr, "Failed(0x%x) in pProfile->AddStream(pStreamConfig), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  stream->time_base = {1, 1000};
  av_dict_set(&stream->metadata, "title", "Audio", 0);
  return S_OK;
}

bool CWMMuxAudioReader::SendInput() {
  if (m_bInputEnded) return false;
  const int channels = m_InputFormat.nChannels;
  const int wanted = m_pMediaObject->frame_size;
  if (av_frame_make_writable(m_pFrame) < 0) return false;
  int samples = 0;
  while (samples < wanted) {
    if (m_nBlockUsed >= m_nBlockBytes) {
      const uint32_t n = m_pWaveReader->Read(m_Block.Data(), m_nBlockBytes);
      if (n == 0) break;
      // A short block is the last one; it is moved to the end of the buffer.
      std::memmove(m_Block.Data() + (m_nBlockBytes - n), m_Block.Data(), n);
      m_nBlockUsed = m_nBlockBytes - n;
    }
    const auto* block = reinterpret_cast<const float*>(m_Block.Data() + m_nBlockUsed);
    const int available =
        static_cast<int>((m_nBlockBytes - m_nBlockUsed) / m_InputFormat.nBlockAlign);
    const int take = std::min(available, wanted - samples);
    for (int c = 0; c < channels; ++c) {
      float* plane = reinterpret_cast<float*>(m_pFrame->data[c]) + samples;
      for (int s = 0; s < take; ++s) plane[s] = block[s * channels + c];
    }
    samples += take;
    m_nBlockUsed += static_cast<uint32_t>(take) * m_InputFormat.nBlockAlign;
  }
  if (samples == 0) {
    m_bInputEnded = true;
    avcodec_send_frame(m_pMediaObject, nullptr);
    return true;
  }
  m_pFrame->nb_samples = samples;
  m_pFrame->pts = m_nSamplesIn;
  m_nSamplesIn += samples;
  int error = avcodec_send_frame(m_pMediaObject, m_pFrame);
  m_pFrame->nb_samples = wanted;
  if (error < 0)
    WriteLog(
        kErr,
        "Failed(0x%x) in m_pMediaObject->ProcessInput(0, static_cast<IMediaBuffer*>(pInBuffer), "
        "dwFlags, qwTimeStamp, 0), FILE:%s, LINE:%d\n",
        static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
  if (samples < wanted) {
    m_bInputEnded = true;
    avcodec_send_frame(m_pMediaObject, nullptr);
  }
  return true;
}

AVPacket* CWMMuxAudioReader::ReadSample(int64_t* time, int64_t* duration, uint32_t* flags) {
  for (;;) {
    av_packet_unref(m_pSample);
    const int error = avcodec_receive_packet(m_pMediaObject, m_pSample);
    if (error == 0) break;
    if (error == AVERROR(EAGAIN) && SendInput()) continue;
    if (error != AVERROR(EAGAIN) && error != AVERROR_EOF)
      WriteLog(kErr, "Failed(0x%x) to ProcessOutput\n", static_cast<unsigned>(E_FAIL));
    m_bEndOfStream = true;
    return nullptr;
  }
  const int rate = m_pMediaObject->sample_rate;
  *time = std::max<int64_t>(m_pSample->pts, 0) * REF_TIME_UNITS / rate;
  *duration = m_pSample->duration * REF_TIME_UNITS / rate;
  *flags = kCleanPoint | (m_bFirstOutput ? kDiscontinuity : 0);
  m_bFirstOutput = false;
  m_nCurrentTime = static_cast<uint64_t>(*time);
  return m_pSample;
}

// ---- the muxer ---------------------------------------------------------------

CWMMuxer::CWMMuxer(const wchar_t* pwszOutFile, int Second,
                   const AudioCodecInfo* pWaveOutAudioCodecInfo,
                   const AudioCodecInfo* pWaveInAudioCodecInfo, int Mix, CMuxCallback* pCallback)
    : Mix(Mix),
      pWaveOutAudioCodecInfo(pWaveOutAudioCodecInfo),
      pWaveInAudioCodecInfo(pWaveInAudioCodecInfo),
      m_wszOutFile(pwszOutFile),
      m_nLimit(int64_t{Second} * REF_TIME_UNITS),
      pCallback(pCallback) {}

CWMMuxer::~CWMMuxer() {
  WriteLog(kMsg, "~CWMMuxer:%p\n", static_cast<void*>(this));
  if (m_pWriter) {
    avio_closep(&m_pWriter->pb);
    avformat_free_context(m_pWriter);
  }
}

HRESULT CWMMuxer::BuildReaders(REFERENCE_TIME* pTrimStart) {
  const CapturedFile& r = *g_Recording;
  HRESULT hr;
  if (r.bScreenStream) {
    auto video = std::make_unique<CWMMuxVideoReader>();
    const bool watermark = g_szWatermarkFile[0] != L'\0';
    if (OV_FAILED(hr, video->Initialize(r.szScreenCaptureFile, pTrimStart, watermark))) return hr;
    m_Readers[m_nReaders++] = std::move(video);
  }
  auto addAudio = [&](const AudioCodecInfo* info, const wchar_t* file, LONG volume,
                      const wchar_t* file2, LONG volume2) {
    auto audio = std::make_unique<CWMMuxAudioReader>(info);
    HRESULT result = audio->Initialize(file, volume, file2, volume2, *pTrimStart);
    if (SUCCEEDED(result)) m_Readers[m_nReaders++] = std::move(audio);
    return result;
  };
  if (Mix && Out(r) && In(r)) {
    if (OV_FAILED(hr, addAudio(pWaveOutAudioCodecInfo, r.szWaveOutFile, r.lWaveOutVolume,
                               r.szWaveInFile, r.lWaveInVolume)))
      return hr;
    return S_OK;
  }
  if (Out(r) && OV_FAILED(hr, addAudio(pWaveOutAudioCodecInfo, r.szWaveOutFile, r.lWaveOutVolume,
                                       nullptr, 0)))
    return hr;
  if (In(r) &&
      OV_FAILED(hr, addAudio(pWaveInAudioCodecInfo, r.szWaveInFile, r.lWaveInVolume, nullptr, 0)))
    return hr;
  return m_nReaders > 0 ? S_OK : E_FAIL;
}

HRESULT CWMMuxer::Mux() {
  const CapturedFile& r = *g_Recording;
  HRESULT hr;
  if (FAILED(hr = CreatePartFileBeside(m_wszOutFile, &m_sPartFile))) return hr;
  REFERENCE_TIME trimStart = r.nTrimStart;
  if (OV_FAILED(hr, BuildReaders(&trimStart))) return hr;

  if (avformat_alloc_output_context2(&m_pWriter, nullptr, "asf", nullptr) < 0) {
    WriteLog(kErr, "Failed(0x%x) in WMCreateWriter(__nullptr, &m_pWriter), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  av_dict_set(&m_pWriter->metadata, "title", "Screen Capture Recording", 0);
  av_dict_set(&m_pWriter->metadata, "comment", "Screen Capturing File", 0);
  for (int i = 0; i < m_nReaders; ++i) {
    if (OV_FAILED(hr, m_Readers[i]->ReadProfile(m_pWriter))) return hr;
    m_Readers[i]->CopyAttribute(m_pWriter->streams[i]);
  }
  const std::string part = ToUtf8(m_sPartFile);
  int error = avio_open(&m_pWriter->pb, part.c_str(), AVIO_FLAG_WRITE);
  if (error >= 0) error = avformat_write_header(m_pWriter, nullptr);
  if (error < 0) {
    WriteLog(kErr, "Failed(0x%x) in m_pWriter->BeginWriting(), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(AvFailure(error)), OV_FILE, __LINE__);
    return AvFailure(error);
  }

  int64_t stopTime = kNoStop;
  if (m_nLimit) stopTime = m_nLimit;
  if (r.nTrimEnd) stopTime = std::min(stopTime, std::max<int64_t>(r.nTrimEnd - trimStart, 0));
  // What the progress is measured against: the kept part of the longest track.
  int64_t span = std::max({r.nScreenDuration, r.nWaveOutDuration, r.nWaveInDuration}) - trimStart;
  span = std::max<int64_t>(std::min(span, stopTime), 1);
  if (FAILED(hr = Interleave(static_cast<uint64_t>(stopTime), static_cast<uint64_t>(span))))
    return hr;
  error = av_write_trailer(m_pWriter);
  if (error >= 0) error = avio_closep(&m_pWriter->pb);
  return error < 0 ? AvFailure(error) : S_OK;
}

HRESULT CWMMuxer::Interleave(uint64_t stopTime, uint64_t span) {
  uint32_t lastReport = TickCount() - kReportMs;  // the first sample reports at once
  int lastPercent = -1;
  for (;;) {
    int next = -1;
    for (int i = 0; i < m_nReaders; ++i) {
      const CWMMuxReaderBase& reader = *m_Readers[i];
      if (reader.m_bEndOfStream || reader.m_nCurrentTime >= stopTime) continue;
      if (next < 0 || reader.m_nCurrentTime < m_Readers[next]->m_nCurrentTime) next = i;
    }
    if (next < 0) return S_OK;
    int64_t time = 0, duration = 0;
    uint32_t flags = 0;
    AVPacket* pSample = m_Readers[next]->ReadSample(&time, &duration, &flags);
    // The sample that crosses the stop time ends its stream and is left out.
    if (pSample && static_cast<uint64_t>(time) < stopTime) {
      HRESULT hr = WriteSample(next, pSample, time, duration, flags);
      if (FAILED(hr)) return hr;
    }
    const uint32_t now = TickCount();
    if (now - lastReport >= kReportMs) {
      lastReport = now;
      const int percent =
          static_cast<int>(std::min<uint64_t>(m_Readers[next]->m_nCurrentTime * 100 / span, 99));
      if (percent != lastPercent) {
        lastPercent = percent;
        if (!pCallback->OnProgress(percent)) return E_ABORT;
      }
    }
  }
}

HRESULT CWMMuxer::WriteSample(int index, AVPacket* pSample, int64_t time, int64_t duration,
                              uint32_t flags) {
  // The file counts in milliseconds, and each stream's times must rise.
  const int64_t ms = std::max(time / REF_MSEC_UNITS, m_LastMs[index] + 1);
  m_LastMs[index] = ms;
  pSample->stream_index = index;
  pSample->pts = pSample->dts = ms;
  pSample->duration = std::max<int64_t>(duration / REF_MSEC_UNITS, 1);
  pSample->flags = (flags & kCleanPoint) ? AV_PKT_FLAG_KEY : 0;
  const int error = av_interleaved_write_frame(m_pWriter, pSample);
  if (error < 0) {
    WriteLog(kErr,
             "Failed(0x%x) in m_pWriterA->WriteStreamSample(index + 1, cnsSampleTime, 0, "
             "cnsSampleDuration, dwFlags, pBuffer), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(AvFailure(error)), OV_FILE, __LINE__);
    return AvFailure(error);
  }
  return S_OK;
}

void CWMMuxer::Worker(std::unique_ptr<CWMMuxer> pMuxer) {
  SetCurrentThreadName("WMMux");
  HRESULT hr = pMuxer->Mux();
  // The writer lets go of the part file before it is put in place or removed.
  if (pMuxer->m_pWriter) avio_closep(&pMuxer->m_pWriter->pb);
  if (!pMuxer->m_sPartFile.empty()) {
    const HRESULT moved = FinishPartFile(pMuxer->m_sPartFile, pMuxer->m_wszOutFile, SUCCEEDED(hr));
    if (SUCCEEDED(hr)) hr = moved;
  }
  CMuxCallback* const callback = pMuxer->pCallback;
  pMuxer.reset();
  callback->OnComplete(hr);
}

extern "C" HRESULT WMMux(const wchar_t* pwszOutFile, int Second,
                         const AudioCodecInfo* pWaveOutAudioCodecInfo,
                         const AudioCodecInfo* pWaveInAudioCodecInfo, int Mix,
                         CMuxCallback* pCallback) {
  if (!ov::MuxArgumentsPresent(pwszOutFile, pCallback, OV_FILE, __LINE__)) return E_FAIL;
  const CapturedFile& r = *g_Recording;
  if (r.bWaveOutStream && r.bUseWaveOut && !pWaveOutAudioCodecInfo) {
    OV_BAD_ARG((g_Recording->bWaveOutStream == FALSE) || (g_Recording->bUseWaveOut == FALSE) ||
               (pWaveOutAudioCodecInfo != __nullptr));
    return E_FAIL;
  }
  if (r.bWaveInStream && r.bUseWaveIn && !pWaveInAudioCodecInfo) {
    OV_BAD_ARG((g_Recording->bWaveInStream == FALSE) || (g_Recording->bUseWaveIn == FALSE) ||
               (pWaveInAudioCodecInfo != __nullptr));
    return E_FAIL;
  }
  WriteLog(kMsg, "WMMux:%ls, Second=%d, Mix=%d\n", pwszOutFile, Second, Mix);
  WriteLog(kMsg, "Trim: %lld->%lld\n", static_cast<long long>(r.nTrimStart),
           static_cast<long long>(r.nTrimEnd));
  if (Second < 0 || r.nTrimStart < 0 || r.nTrimEnd < 0 ||
      (r.nTrimEnd != 0 && r.nTrimEnd <= r.nTrimStart)) {
    WriteLog(kErr, "Error: Second=%d, trim %lld->%lld refused\n", Second,
             static_cast<long long>(r.nTrimStart), static_cast<long long>(r.nTrimEnd));
    return E_INVALIDARG;
  }
  if (HRESULT hr = CheckMuxOutput(pwszOutFile, r); FAILED(hr)) return hr;
  auto muxer = std::make_unique<CWMMuxer>(pwszOutFile, Second, pWaveOutAudioCodecInfo,
                                          pWaveInAudioCodecInfo, Mix, pCallback);
  WriteLog(kMsg, "CWMMuxer:%p\n", static_cast<void*>(muxer.get()));
  // The worker owns the muxer; std::function wants a copyable callable.
  auto owned = std::make_shared<std::unique_ptr<CWMMuxer>>(std::move(muxer));
  if (!StartMuxWorker([owned] { CWMMuxer::Worker(std::move(*owned)); })) return E_FAIL;
  return S_OK;
}
