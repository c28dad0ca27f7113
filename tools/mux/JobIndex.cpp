#include "JobIndex.h"

#include <cstring>

#include "MuxLog.h"

namespace mux {

namespace {

bool Corrupt(const MuxJob& job, const char* what) {
  Log(kErr, "mux: corrupt frame index %s: %s\n", job.indexPath.c_str(), what);
  return false;
}

// A frame cut short at the end of the stream is what a recording killed
// while writing leaves: the frame is left out, not the file.
void DropTornLastFrame(const MuxJob& job, int64_t streamBytes, ov::FrameIndexFile* index) {
  if (job.endFrame != index->fileEntries || index->entries.size() < 2) return;
  const ov::FrameIndexEntry& last = index->entries.back();
  if (last.size == 0 || last.offset >= static_cast<uint64_t>(streamBytes) ||
      ov::EntryInside(last, streamBytes))
    return;
  Log(kWan, "mux: frame %d is cut short at the end of %s (%lld bytes), left out\n",
      job.endFrame - 1, job.videoPath.c_str(), static_cast<long long>(streamBytes));
  index->entries.pop_back();
}

bool CheckEntries(const MuxJob& job, const ov::FrameIndexFile& index, int64_t streamBytes) {
  const auto end = static_cast<int32_t>(index.entries.size());
  if (end <= job.firstFrame) return Corrupt(job, "no frame left in the range");
  for (int32_t i = job.firstFrame; i < end; ++i) {
    if (!ov::EntryInside(index.entries[static_cast<size_t>(i)], streamBytes)) {
      Log(kErr, "mux: frame %d lies outside the temp video %s (%lld bytes)\n", i,
          job.videoPath.c_str(), static_cast<long long>(streamBytes));
      return false;
    }
  }
  if (ov::FirstDisorderedEntry(index.entries.data(), index.entries.size()) != index.entries.size())
    return Corrupt(job, "time runs backwards or outside the recording");
  const uint32_t type = index.entries[static_cast<size_t>(job.firstFrame)].pictureType;
  if (type != ov::kPictureKey && type != ov::kPictureIntra)
    Log(kWan, "mux: frame %d, the first one, is no key frame\n", job.firstFrame);
  return true;
}

}  // namespace

bool ReadJobIndex(const MuxJob& job, int64_t streamBytes, ov::FrameIndexFile* index) {
  int error = 0;
  if (const char* wrong = ov::ReadFrameIndex(job.indexPath, job.endFrame, index, &error)) {
    if (error == 0) return Corrupt(job, wrong);
    Log(kErr, "mux: frame index %s %s: %s\n", job.indexPath.c_str(), wrong, strerror(error));
    return false;
  }
  if (index->fileEntries < job.endFrame) {
    Log(kErr, "mux: frame index %s has %lld frames, %d are asked for\n", job.indexPath.c_str(),
        static_cast<long long>(index->fileEntries), job.endFrame);
    return false;
  }
  DropTornLastFrame(job, streamBytes, index);
  return CheckEntries(job, *index, streamBytes);
}

}  // namespace mux
