// The container being written: its streams, the packets in the order they
// come, and the file on disk. A file that is not finished is removed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Containers.h"
#include "Libav.h"
#include "platform/NonCopyable.h"

namespace mux {

class OutputFile : private ov::NonCopyable {
 public:
  OutputFile() = default;
  ~OutputFile();

  bool Open(const Container& container, const std::string& path);
  // Whether encoders must put their parameter sets in the stream header.
  bool NeedsGlobalHeader() const;
  bool CanCarry(AVCodecID codec) const;
  // The stream's index, or -1. frameRate is {0, 1} for audio.
  int AddStream(const AVCodecParameters* parameters, AVRational timeBase, AVRational frameRate);
  bool Begin();
  // packet's times are in sourceBase; they are moved to the stream's, and a
  // decoding time that would not rise (a clock coarser than the index's)
  // is moved up by one unit. The packet keeps its data.
  bool Write(AVPacket* packet, int stream, AVRational sourceBase);
  bool Finish();

 private:
  void Close();

  AVFormatContext* m_context = nullptr;
  std::string m_path;
  bool m_finished = false;
  std::vector<int64_t> m_lastDts;
};

}  // namespace mux
