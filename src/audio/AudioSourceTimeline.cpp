#include "audio/AudioSourceTimeline.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int64_t kUnitsPerSecond = 10000000;
// Errors that the steady correction leaves alone (a server's timing reports
// wander by a few milliseconds, more on a busy machine), and those that are
// set right at once.
constexpr int64_t kDeadBandMs = 8;
constexpr int64_t kJumpMs = 20;
// An error beyond the jump must stay put this long before it is set right.
constexpr int64_t kJumpConfirmMs = 100;
// One frame dropped or repeated per this many: 0.25 %, beyond any device
// clock's error, and too sparse to be heard.
constexpr int64_t kSlewPeriod = 400;

}  // namespace

AudioSourceTimeline::AudioSourceTimeline(uint32_t rate)
    : m_rate(rate),
      m_jump(rate * kJumpMs / 1000),
      m_deadBand(rate * kDeadBandMs / 1000),
      m_confirm(rate * kJumpConfirmMs / 1000) {}

int64_t AudioSourceTimeline::FramesAt(int64_t time) const {
  const int64_t elapsed = time - m_start;
  // Rounded to the nearest frame; split so that hours of recording stay
  // far from overflow.
  const int64_t seconds = elapsed / kUnitsPerSecond;
  const int64_t rest = elapsed % kUnitsPerSecond;
  return m_base + seconds * m_rate +
         (rest * m_rate + (rest >= 0 ? 1 : -1) * kUnitsPerSecond / 2) / kUnitsPerSecond;
}

void AudioSourceTimeline::AddGap(int64_t frames) {
  if (frames <= 0) return;
  m_totals.silenceFrames += frames;
  ++m_totals.gaps;
  m_totals.largestGap = std::max(m_totals.largestGap, frames);
}

void AudioSourceTimeline::Begin(int64_t now, int64_t written) {
  m_start = now;
  m_base = written;
  m_placed = false;
  m_outside = 0;
  m_slew = 0;
}

AudioSourceTimeline::Placement AudioSourceTimeline::Place(int64_t heardAt, uint32_t frames,
                                                          int64_t written) {
  Placement p;
  const int64_t error = FramesAt(heardAt) - written;
  // A gap or an overlap shows as an error that stays put; an error that
  // keeps moving is the server's timing catching up with itself (a sink
  // starved of processor time renders late, then all at once) and is left
  // to the steady correction.
  if (std::abs(error) <= m_jump) {
    m_outside = 0;
  } else {
    if (m_outside == 0 || std::abs(error - m_outsideError) > m_deadBand) {
      m_outsideError = error;
      m_outside = 0;
    }
    m_outside += frames;
  }
  // Steady correction earns one frame per kSlewPeriod frames placed, and
  // saves up no more than two.
  m_slew = std::min<int64_t>(m_slew + frames, 2 * kSlewPeriod);
  // The first packet of a stretch sets the place: before it there is
  // nothing to keep continuous.
  if (!m_placed || m_outside > m_confirm) {
    if (error > 0) {
      p.silence = error;
      AddGap(error);
    } else {
      p.skip = static_cast<uint32_t>(std::min<int64_t>(-error, frames));
      // Frames from before the stretch began are not the recording's.
      if (m_placed) m_totals.droppedFrames += p.skip;
    }
    m_outside = 0;
  } else if (std::abs(error) > m_deadBand && m_slew >= kSlewPeriod) {
    const int64_t step =
        std::min({m_slew / kSlewPeriod, std::abs(error) - m_deadBand, int64_t{frames} / 2});
    m_slew -= step * kSlewPeriod;
    p.adjust = static_cast<int32_t>(error > 0 ? step : -step);
    (error > 0 ? m_totals.repeatedFrames : m_totals.droppedFrames) += step;
  }
  if (p.skip < frames) m_placed = true;
  return p;
}

int64_t AudioSourceTimeline::End(int64_t now, int64_t written) {
  const int64_t missing = std::max<int64_t>(0, FramesAt(now) - written);
  AddGap(missing);
  return missing;
}
