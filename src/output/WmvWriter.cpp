#include "output/WmvWriter.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "core/Log.h"
#include "platform/Files.h"
#include "platform/Text.h"

using ov::kErr;
using ov::kMsg;

namespace ov::wmv {

int32_t VbrQuality(int32_t videoQuality) {
  static const int32_t kQuality[] = {75, 80, 85, 90, 95, 98};
  return videoQuality >= 1 && videoQuality <= 6 ? kQuality[videoQuality - 1] : 85;
}

}  // namespace ov::wmv

namespace {

HRESULT FromAvError(int error) {
  return error >= 0 ? S_OK : CWriterStatistics::WriteFailureCode(AVUNERROR(error));
}

}  // namespace

CWmvWriter::~CWmvWriter() {
  WriteLog(kMsg, "~CWmvWriter\n");
  if (m_pWriter) {
    avio_closep(&m_pWriter->pb);
    avformat_free_context(m_pWriter);
  }
}

HRESULT CWmvWriter::VideoInitialize(const AVCodecContext* pType, int32_t frameRate,
                                    int32_t vbrQuality) {
  if (avformat_alloc_output_context2(&m_pWriter, nullptr, "asf", nullptr) < 0 || !m_pWriter) {
    WriteLog(kErr, "Failed(0x%x) in WMCreateWriter(__nullptr, &m_pWriter), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  av_dict_set(&m_pWriter->metadata, "title", "Screen Capture Recording", 0);
  av_dict_set(&m_pWriter->metadata, "comment", "Screen Capturing File", 0);
  AVStream* stream = avformat_new_stream(m_pWriter, nullptr);
  if (!stream || avcodec_parameters_from_context(stream->codecpar, pType) < 0) {
    WriteLog(kErr, "Failed(0x%x) in InitVideoProfile(pProfile, pType), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  stream->time_base = {1, 1000};
  stream->avg_frame_rate = {frameRate, 1};
  stream->codecpar->bit_rate = ov::wmv::WMC_Video_Bitrate;
  av_dict_set(&stream->metadata, "title", "Video", 0);
  av_dict_set_int(&stream->metadata, "VBRQuality", vbrQuality, 0);
  return S_OK;
}

HRESULT CWmvWriter::Start(const wchar_t* szOutFile) {
  const std::string path = ov::ToUtf8(szOutFile);
  ov::RemoveFile(szOutFile);
  int error = avio_open(&m_pWriter->pb, path.c_str(), AVIO_FLAG_WRITE);
  if (error >= 0) error = avformat_write_header(m_pWriter, nullptr);
  if (error < 0) {
    WriteLog(kErr, "Failed(0x%x) in m_pWriter->BeginWriting(), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(FromAvError(error)), OV_FILE, __LINE__);
    return FromAvError(error);
  }
  m_bWriting = true;
  return S_OK;
}

HRESULT CWmvWriter::InputStream(int64_t cnsSampleTime, int64_t cnsSampleDuration, uint32_t dwFlags,
                                AVPacket* pBuffer) {
  m_pWriterStatistics->AddBytes(pBuffer->size);
  m_pWriterStatistics->AddFrame();
  // The file counts in milliseconds; two samples in one millisecond would
  // share a time stamp, which no reader accepts.
  int64_t ms = std::max(cnsSampleTime / REF_MSEC_UNITS, m_nLastTimeMs + 1);
  m_nLastTimeMs = ms;
  pBuffer->stream_index = 0;
  pBuffer->pts = pBuffer->dts = ms;
  pBuffer->duration = std::max<int64_t>(cnsSampleDuration / REF_MSEC_UNITS, 1);
  pBuffer->flags = (dwFlags & ov::wmv::WM_SF_CLEANPOINT) ? AV_PKT_FLAG_KEY : 0;
  HRESULT hr = FromAvError(av_write_frame(m_pWriter, pBuffer));
  if (FAILED(hr))
    WriteLog(kErr,
             "Failed(0x%x) in m_pWriterA->WriteStreamSample(1, cnsSampleTime, 0, "
             "cnsSampleDuration, dwFlags, pBuffer), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(hr), OV_FILE, __LINE__);
  return hr;
}

HRESULT CWmvWriter::EndWriting() {
  if (!m_bWriting) return E_FAIL;
  m_bWriting = false;
  int error = av_write_trailer(m_pWriter);
  int closed = avio_closep(&m_pWriter->pb);
  return FromAvError(error < 0 ? error : closed);
}
