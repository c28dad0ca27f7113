// Where an audio source's frames belong in its wave file: frame k of the file
// is what was heard at recording time k / rate. Packets are placed by the
// time at which they are heard, not by the amount delivered before them:
// time the device gave nothing for (a late start, a hole, a resumed device,
// the end of a stretch) becomes silence, and frames from before a stretch
// began are skipped. A device clock that runs fast or slow is followed by
// dropping or repeating single frames, at most one in 400, while the file
// is within 20 ms of its place; a larger error that stays put for 100 ms
// is set right at once.
#pragma once

#include <cstdint>

class AudioSourceTimeline {
 public:
  // What to do with a packet: skip its first frames, write silence before
  // what is left, then drop (adjust < 0) or repeat (adjust > 0) that many
  // single frames spread over it.
  struct Placement {
    uint32_t skip = 0;
    int64_t silence = 0;
    int32_t adjust = 0;
  };
  struct Corrections {
    int64_t silenceFrames = 0;
    int64_t gaps = 0;
    int64_t largestGap = 0;
    int64_t droppedFrames = 0;
    int64_t repeatedFrames = 0;
  };

  explicit AudioSourceTimeline(uint32_t rate);

  // A stretch of recording begins at clock time now (100-ns units), with
  // `written` frames in the file.
  void Begin(int64_t now, int64_t written);
  // The placement of a packet of `frames` heard from heardAt on, which would
  // follow the `written` frames in the file.
  Placement Place(int64_t heardAt, uint32_t frames, int64_t written);
  // The stretch ends at now: the silence that brings the file up to it.
  int64_t End(int64_t now, int64_t written);

  const Corrections& Totals() const { return m_totals; }
  uint32_t Rate() const { return m_rate; }

 private:
  int64_t FramesAt(int64_t time) const;
  void AddGap(int64_t frames);

  const uint32_t m_rate;
  const int64_t m_jump;
  const int64_t m_deadBand;
  const int64_t m_confirm;
  int64_t m_start = 0;
  int64_t m_base = 0;
  bool m_placed = false;  // a packet of this stretch went into the file
  int64_t m_outside = 0;  // frames placed in a row beyond the jump, at one error
  int64_t m_outsideError = 0;
  int64_t m_slew = 0;  // frames placed since the last steady correction
  Corrections m_totals;
};
