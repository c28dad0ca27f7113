#include "encode/libs/GifTempVideo.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "encode/libs/EncoderLog.h"

extern "C" {
#include <libavutil/mem.h>
}

namespace ov::enc::gif {

TempVideoReader::~TempVideoReader() {
  av_frame_free(&m_picture);
  av_packet_free(&m_packet);
  avcodec_free_context(&m_decoder);
  av_free(m_data);
  if (m_stream >= 0) close(m_stream);
}

bool TempVideoReader::Open(const std::string& path) {
  m_path = path;
  int error = 0;
  if (const char* wrong = ReadFrameIndex(path + ".idx", -1, &m_index, &error);
      wrong || m_index.header.codecType != kGifCodecType) {
    Log(kErr, "Failed(%d) to read file:%s.idx (%s)\n", error, path.c_str(),
        wrong ? wrong : "not a GIF recording");
    return false;
  }
  m_stream = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (m_stream < 0) {
    Log(kErr, "Failed(%d) to open file:%s\n", errno, path.c_str());
    return false;
  }
  const off_t streamBytes = lseek(m_stream, 0, SEEK_END);
  const std::vector<FrameIndexEntry>& all = m_index.entries;
  const size_t ordered = FirstDisorderedEntry(all.data(), all.size());
  uint32_t largest = 0;
  for (size_t i = 0; i < ordered; ++i) {
    m_endTicks = all[i].time;
    if (IsEndMark(all[i])) break;
    // A recording killed while writing leaves its last frame cut short.
    if (!EntryInside(all[i], streamBytes)) break;
    m_frames.push_back(all[i]);
    largest = std::max(largest, all[i].size);
  }
  if (m_frames.empty()) {
    Log(kErr, "No frames in file:%s\n", path.c_str());
    return false;
  }
  m_data = static_cast<uint8_t*>(av_malloc(largest + AV_INPUT_BUFFER_PADDING_SIZE));
  const AVCodec* codec = avcodec_find_decoder(kTempCodec);
  m_decoder = codec ? avcodec_alloc_context3(codec) : nullptr;
  m_packet = av_packet_alloc();
  m_picture = av_frame_alloc();
  if (!m_data || !m_decoder || !m_packet || !m_picture) {
    Log(kErr, "No decoder for the GIF recording\n");
    return false;
  }
  m_decoder->width = Width();
  m_decoder->height = Height();
  m_decoder->thread_count = 0;
  m_decoder->thread_type = FF_THREAD_SLICE;
  if (int e = avcodec_open2(m_decoder, codec, nullptr); e < 0) {
    Log(kErr, "Failed(%d) to open the decoder of:%s\n", e, path.c_str());
    return false;
  }
  return true;
}

size_t TempVideoReader::FrameAt(int64_t ticks) const {
  auto after = std::upper_bound(m_frames.begin(), m_frames.end(), ticks,
                                [](int64_t t, const FrameIndexEntry& e) { return t < e.time; });
  return after == m_frames.begin() ? 0 : static_cast<size_t>(after - m_frames.begin()) - 1;
}

AVFrame* TempVideoReader::Decode(size_t i) {
  if (i >= m_frames.size()) return nullptr;
  const FrameIndexEntry& e = m_frames[i];
  size_t done = 0;
  while (done < e.size) {
    ssize_t n = pread(m_stream, m_data + done, e.size - done, static_cast<off_t>(e.offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      Log(kErr, "Failed(%d) to read file:%s\n", n < 0 ? errno : EIO, m_path.c_str());
      return nullptr;
    }
    done += static_cast<size_t>(n);
  }
  std::fill_n(m_data + e.size, AV_INPUT_BUFFER_PADDING_SIZE, 0);
  m_packet->data = m_data;
  m_packet->size = static_cast<int>(e.size);
  m_packet->flags = AV_PKT_FLAG_KEY;
  // Every frame is whole in itself, and slice threads keep no frame back:
  // each packet gives its picture at once.
  int error = avcodec_send_packet(m_decoder, m_packet);
  if (error >= 0) error = avcodec_receive_frame(m_decoder, m_picture);
  if (error < 0 || m_picture->format != kTempPixels || m_picture->width != Width() ||
      m_picture->height != Height()) {
    Log(kErr, "Failed(%d) to decode frame %zu of:%s\n", error, i, m_path.c_str());
    return nullptr;
  }
  return m_picture;
}

}  // namespace ov::enc::gif
