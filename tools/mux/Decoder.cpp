// The player names the entry to decode from in the seek word; from there the
// frames are decoded in order and each waits for the slot to be free. A new
// seek word drops what is under way. The slot's frame is 32-bit RGB with the
// time of its index entry, which is written last: the player reads the time
// word alone to know that the frame is whole.
#include "Decoder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "Libav.h"
#include "MuxLog.h"
#include "TempVideo.h"
#include "platform/Text.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace mux {

namespace {

constexpr int kWaitMs = 100;
constexpr int kMaxSide = 16384;

class Decoder {
 public:
  explicit Decoder(ov::DecoderRecord* record) : m_r(record) {}
  ~Decoder() {
    sws_freeContext(m_scaler);
    if (m_fd >= 0) close(m_fd);
  }

  bool Open(size_t mappingSize) {
    ov::DecoderRecord& r = *m_r;
    const size_t entries = static_cast<size_t>(r.entryCount) * sizeof(ov::FrameIndexEntry);
    if (r.size != ov::kDecoderRecordSize || r.width <= 0 || r.height <= 0 || r.width > kMaxSide ||
        r.height > kMaxSide || r.stride != r.width * 4 || r.entryCount == 0 ||
        offsetof(ov::DecoderRecord, entries) + entries > r.slotOffset ||
        r.slotOffset + static_cast<size_t>(r.stride) * r.height > mappingSize)
      return Fail("bad decoder record");
    if (!ov::Utf16ToUtf8(r.videoPath, ov::kDecoderPathChars, &m_path) || m_path.empty())
      return Fail("bad temp video path");
    m_fd = open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat st {};
    if (m_fd < 0 || fstat(m_fd, &st) != 0 || !S_ISREG(st.st_mode))
      return Fail("can't open the temp video");
    uint32_t largest = 0;
    for (uint32_t i = 0; i < r.entryCount; ++i) largest = std::max(largest, r.entries[i].size);
    m_buffer.assign(static_cast<size_t>(largest) + AV_INPUT_BUFFER_PADDING_SIZE, 0);
    const AVCodec* codec = avcodec_find_decoder(CodecOf(r.header.codecType));
    m_context.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
    m_frame.reset(av_frame_alloc());
    m_packet.reset(av_packet_alloc());
    if (!m_context || !m_frame || !m_packet) return Fail("no decoder");
    m_context->pkt_timebase = AVRational{1, static_cast<int>(ov::kIndexClock)};
    if (avcodec_open2(m_context.get(), codec, nullptr) < 0) return Fail("the decoder can't open");
    return true;
  }

  // Decodes until the player goes; false when not one frame decodes.
  bool Run() {
    int32_t current = INT32_MIN;
    uint32_t next = 0;
    bool draining = false, ended = false;
    for (;;) {
      const int32_t seek = ov::SeekEntry(m_r).load();
      if (seek != current) {
        current = seek;
        next = static_cast<uint32_t>(std::clamp<int64_t>(seek, 0, m_r->entryCount - 1));
        avcodec_flush_buffers(m_context.get());
        draining = ended = false;
      }
      if (ended) {
        Wait();
        continue;
      }
      if (next < m_r->entryCount) {
        if (Read(next)) avcodec_send_packet(m_context.get(), m_packet.get());
        ++next;
      } else if (!draining) {
        avcodec_send_packet(m_context.get(), nullptr);
        draining = true;
      }
      int got;
      while ((got = avcodec_receive_frame(m_context.get(), m_frame.get())) == 0) {
        const bool delivered = Deliver(current);
        av_frame_unref(m_frame.get());
        if (!delivered) break;
      }
      if (draining && got == AVERROR_EOF) {
        if (m_delivered == 0) return Fail("not one frame of the temp video decodes");
        ov::EndFlag(m_r).store(1);
        ended = true;
      }
    }
  }

 private:
  bool Fail(const char* what) {
    Log(kErr, "mux: %s: %s\n", what, m_path.c_str());
    return false;
  }

  bool Read(uint32_t i) {
    const ov::FrameIndexEntry& e = m_r->entries[i];
    size_t done = 0;
    while (done < e.size) {
      const ssize_t n =
          pread(m_fd, m_buffer.data() + done, e.size - done, static_cast<off_t>(e.offset + done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    av_packet_unref(m_packet.get());
    m_packet->data = m_buffer.data();
    m_packet->size = static_cast<int>(e.size);
    m_packet->pts = e.time;
    m_packet->dts = AV_NOPTS_VALUE;
    if (e.pictureType == ov::kPictureKey) m_packet->flags |= AV_PKT_FLAG_KEY;
    return true;
  }

  // Blocks until the player has signalled, or a while has passed.
  void Wait() {
    pollfd p{static_cast<int>(m_r->slotEvent), POLLIN, 0};
    if (poll(&p, 1, kWaitMs) > 0 && (p.revents & POLLIN)) {
      uint64_t count;
      (void)!read(p.fd, &count, sizeof count);
    }
  }

  // Puts the frame into the slot once it is free; false when a seek came
  // first.
  bool Deliver(int32_t current) {
    for (;;) {
      if (ov::SeekEntry(m_r).load() != current) return false;
      if (ov::SlotTime(m_r).load() == ov::kSlotEmpty) break;
      Wait();
    }
    AVFrame* f = m_frame.get();
    m_scaler = sws_getCachedContext(m_scaler, f->width, f->height,
                                    static_cast<AVPixelFormat>(f->format), m_r->width, m_r->height,
                                    AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!m_scaler) return true;
    uint8_t* slot = reinterpret_cast<uint8_t*>(m_r) + m_r->slotOffset;
    int stride = m_r->stride;
    sws_scale(m_scaler, f->data, f->linesize, 0, f->height, &slot, &stride);
    const int64_t time =
        f->best_effort_timestamp != AV_NOPTS_VALUE ? f->best_effort_timestamp : f->pts;
    ov::SlotTime(m_r).store(std::max<int64_t>(time, 0));
    ++m_delivered;
    return true;
  }

  ov::DecoderRecord* m_r;
  std::string m_path;
  int m_fd = -1;
  std::vector<uint8_t> m_buffer;
  CodecContextPtr m_context;
  FramePtr m_frame;
  PacketPtr m_packet;
  SwsContext* m_scaler = nullptr;
  int64_t m_delivered = 0;
};

}  // namespace

int RunDecoder(ov::DecoderRecord* record, size_t mappingSize) {
  if (mappingSize < sizeof(ov::DecoderRecord)) {
    Log(kErr, "mux: decoder mapping too small\n");
    return 1;
  }
  Decoder decoder(record);
  if (!decoder.Open(mappingSize) || !decoder.Run()) return 1;
  return 0;
}

}  // namespace mux
