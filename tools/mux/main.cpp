// mux: assembles the final file of a recording for the engine, in a process
// of its own so that a failure in container code never takes the host down.
//
//   mux m <log fd> <record fd>
//   mux d <log fd> <record fd>
//
// m assembles; d decodes the temp video for the player, frame by frame,
// for as long as the player lives.
// Both numbers are descriptors inherited from the engine: the log, opened
// for appending, and the shared record that names everything else. The exit
// status is 0 for a complete file; any failure leaves a line in the log.
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Assembler.h"
#include "Decoder.h"
#include "MuxJob.h"
#include "MuxLog.h"

namespace {

bool ParseFd(const char* text, int* fd) {
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0' || value < -1 || value > 0x7FFFFFFF) return false;
  *fd = static_cast<int>(value);
  return true;
}

int Assemble(int argc, char** argv) {
  int logFd = -1, recordFd = -1;
  const bool parsed = argc == 4 && ParseFd(argv[2], &logFd) && ParseFd(argv[3], &recordFd);
  mux::SetLogFd(logFd);
  mux::RouteLibavLog();
  if (!parsed) {
    mux::Log(mux::kErr, "mux: usage: mux m <log fd> <record fd>\n");
    return 2;
  }
  const auto start = std::chrono::steady_clock::now();
  mux::RecordMapping mapping;
  mux::MuxJob job;
  if (!mapping.Map(recordFd) || !mux::ReadJob(mapping, &job)) return 1;
  if (!mux::Assemble(job)) {
    mux::Log(mux::kErr, "mux: %s was not made\n", job.outputPath.c_str());
    return 1;
  }
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                      std::chrono::steady_clock::now() - start)
                      .count();
  mux::Log(mux::kMsg, "mux: %s done in %lld ms\n", job.outputPath.c_str(),
           static_cast<long long>(ms));
  return 0;
}

int Decode(int argc, char** argv) {
  int logFd = -1, recordFd = -1;
  const bool parsed = argc == 4 && ParseFd(argv[2], &logFd) && ParseFd(argv[3], &recordFd);
  mux::SetLogFd(logFd);
  mux::RouteLibavLog();
  struct stat st {};
  if (!parsed || recordFd < 0 || fstat(recordFd, &st) != 0) {
    mux::Log(mux::kErr, "mux: usage: mux d <log fd> <record fd>\n");
    return 2;
  }
  const auto size = static_cast<size_t>(st.st_size);
  void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, recordFd, 0);
  if (data == MAP_FAILED) {
    mux::Log(mux::kErr, "mux: the decoder record cannot be mapped\n");
    return 1;
  }
  return mux::RunDecoder(static_cast<ov::DecoderRecord*>(data), size);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "m") == 0) return Assemble(argc, argv);
  if (argc >= 2 && std::strcmp(argv[1], "d") == 0) return Decode(argc, argv);
  std::fprintf(stderr, "usage: mux m|d <log fd> <record fd>\n");
  return 2;
}
