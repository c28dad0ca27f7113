#include "TempVideo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "MuxLog.h"

namespace mux {

AVCodecID CodecOf(int32_t codecType) {
  switch (codecType) {
    case 1:
      return AV_CODEC_ID_H264;
    case 2:
      return AV_CODEC_ID_HEVC;
    default:
      return AV_CODEC_ID_MPEG2VIDEO;
  }
}

namespace {

// The parameter sets at the head of a key frame, as the stream's extradata.
bool ExtractParameterSets(AVCodecID codec, const uint8_t* data, int size,
                          AVCodecParameters* parameters) {
  const AVBitStreamFilter* filter = av_bsf_get_by_name("extract_extradata");
  AVBSFContext* raw = nullptr;
  if (!filter || av_bsf_alloc(filter, &raw) < 0) return false;
  BsfPtr bsf(raw);
  bsf->par_in->codec_id = codec;
  PacketPtr packet(av_packet_alloc());
  if (!packet || av_bsf_init(bsf.get()) < 0 || av_new_packet(packet.get(), size) < 0) return false;
  std::memcpy(packet->data, data, static_cast<size_t>(size));
  if (av_bsf_send_packet(bsf.get(), packet.get()) < 0 ||
      av_bsf_receive_packet(bsf.get(), packet.get()) < 0)
    return false;
  size_t extradataSize = 0;
  const uint8_t* extradata =
      av_packet_get_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, &extradataSize);
  if (!extradata || extradataSize == 0) return false;
  parameters->extradata =
      static_cast<uint8_t*>(av_mallocz(extradataSize + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!parameters->extradata) return false;
  std::memcpy(parameters->extradata, extradata, extradataSize);
  parameters->extradata_size = static_cast<int>(extradataSize);
  return true;
}

}  // namespace

TempVideo::~TempVideo() {
  if (m_fd >= 0) close(m_fd);
}

bool TempVideo::Open(const MuxJob& job) {
  m_path = job.videoPath;
  // Without waiting: a FIFO in place of the temp video must not hold the
  // program forever.
  m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  struct stat st {};
  if (m_fd < 0 || fstat(m_fd, &st) != 0) {
    Log(kErr, "mux: can't open the temp video %s: %s\n", m_path.c_str(), strerror(errno));
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    Log(kErr, "mux: the temp video %s is not a file\n", m_path.c_str());
    return false;
  }
  if (!ReadJobIndex(job, st.st_size, &m_index)) return false;
  m_first = job.firstFrame;
  m_end = static_cast<int32_t>(m_index.entries.size());
  m_codec = CodecOf(m_index.header.codecType);
  uint32_t largest = 0;
  for (int32_t i = m_first; i < m_end; ++i)
    largest = std::max(largest, m_index.entries[static_cast<size_t>(i)].size);
  // Decoders read a little past the end of a packet; the padding is zero.
  m_buffer.assign(largest + AV_INPUT_BUFFER_PADDING_SIZE, 0);
  return true;
}

bool TempVideo::IsKey(int32_t i) const {
  const uint32_t type = m_index.entries[static_cast<size_t>(i)].pictureType;
  return type == ov::kPictureKey || type == ov::kPictureIntra;
}

bool TempVideo::Read(int32_t i, AVPacket* packet) {
  const ov::FrameIndexEntry& e = m_index.entries[static_cast<size_t>(i)];
  size_t done = 0;
  while (done < e.size) {
    const ssize_t n =
        pread(m_fd, m_buffer.data() + done, e.size - done, static_cast<off_t>(e.offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      Log(kErr, "mux: reading frame %d of %s failed: %s\n", i, m_path.c_str(),
          n == 0 ? "the file is shorter" : strerror(errno));
      return false;
    }
    done += static_cast<size_t>(n);
  }
  std::memset(m_buffer.data() + e.size, 0, AV_INPUT_BUFFER_PADDING_SIZE);
  const int64_t start = m_index.entries[static_cast<size_t>(m_first)].time;
  packet->buf = nullptr;
  packet->data = m_buffer.data();
  packet->size = static_cast<int>(e.size);
  packet->pts = packet->dts = e.time - start;
  // A frame lasts until the next. The recording's own last frame was made
  // at its stop, so the video ends there; the last of a trimmed range (or
  // of a recording cut short) lasts one nominal frame.
  if (i + 1 < m_end)
    packet->duration = m_index.entries[static_cast<size_t>(i) + 1].time - e.time;
  else if (m_end == m_index.fileEntries)
    packet->duration = 1;
  else
    packet->duration = ov::kIndexClock / m_index.header.frameRate;
  packet->flags = IsKey(i) ? AV_PKT_FLAG_KEY : 0;
  return true;
}

bool TempVideo::Probe(AVCodecParameters* parameters) {
  PacketPtr packet(av_packet_alloc());
  if (!packet || !Read(m_first, packet.get())) return false;
  parameters->codec_type = AVMEDIA_TYPE_VIDEO;
  parameters->codec_id = m_codec;
  if (!ExtractParameterSets(m_codec, packet->data, packet->size, parameters)) {
    Log(kErr, "mux: corrupt temp video %s: frame %d has no parameter sets\n", m_path.c_str(),
        m_first);
    return false;
  }

  const AVCodec* codec = avcodec_find_decoder(m_codec);
  CodecContextPtr decoder(codec ? avcodec_alloc_context3(codec) : nullptr);
  FramePtr frame(av_frame_alloc());
  bool decoded = decoder && frame && avcodec_parameters_to_context(decoder.get(), parameters) >= 0;
  if (decoded) {
    decoder->thread_count = 1;
    decoded = avcodec_open2(decoder.get(), codec, nullptr) >= 0 &&
              avcodec_send_packet(decoder.get(), packet.get()) >= 0 &&
              avcodec_send_packet(decoder.get(), nullptr) >= 0 &&
              avcodec_receive_frame(decoder.get(), frame.get()) >= 0;
  }
  if (!decoded) {
    Log(kErr, "mux: corrupt temp video %s: frame %d does not decode\n", m_path.c_str(), m_first);
    return false;
  }
  parameters->width = frame->width;
  parameters->height = frame->height;
  parameters->format = frame->format;
  parameters->sample_aspect_ratio = frame->sample_aspect_ratio;
  parameters->color_range = frame->color_range;
  parameters->color_primaries = frame->color_primaries;
  parameters->color_trc = frame->color_trc;
  parameters->color_space = frame->colorspace;
  parameters->chroma_location = frame->chroma_location;
  parameters->field_order = AV_FIELD_PROGRESSIVE;
  return true;
}

}  // namespace mux
