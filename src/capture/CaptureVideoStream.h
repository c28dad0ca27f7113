// What every capture stream shares: the frame buffer, change detection, the
// pacing loop on its own thread, key frames, the last frame and Finish.
// A stream only says how it fills a frame.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "capture/FrameDetect.h"
#include "capture/MemoryBitmap.h"
#include "capture/MouseOverlay.h"
#include "orvanta/types.h"
#include "platform/Event.h"

class CFrameTiming;
class CVideoCodec;

class CCaptureVideoStream : public CFrameDetect, public CMemoryBitmap {
 public:
  // width and height are the region's true size.
  CCaptureVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec, int32_t width, int32_t height);
  virtual ~CCaptureVideoStream();

  // Starts the thread and waits until it is ready to capture. False when
  // the stream cannot capture at all.
  bool StartThread();
  // Waits for the thread; it ends after its last frame and Finish.
  void Join();

  CFrameTiming* m_pOwner;
  CVideoCodec* m_pCodec;
  std::thread m_hThread;
  ov::Event m_hReadyEvent{ov::Event::Reset::Manual};
  int64_t m_nLastKeyTime = -1000000000;

  // Time between key frames in 100-ns units: 5 s; tests shorten it so
  // that they need not record for long to see a second one.
  static std::atomic<int64_t> s_nKeyFrameSpacing;

 protected:
  // On the stream's thread, before the loop; false ends the thread.
  virtual bool SetUp() = 0;
  // Fills the frame; the region's pixels at the top-left corner. The frame
  // is cleared where the stream does not write. False loses this frame.
  virtual bool FillFrame(uint8_t* frame, int32_t pitch) = 0;

  // The rounds of capture, from the start until the stop; by default a frame
  // every interval, waiting while paused.
  virtual void CaptureLoop();
  // One frame. Without dirty the frame is handed over as it stands, as
  // unchanged, and nothing is fetched, drawn or compared.
  void MakeFrame(bool dirty = true);
  // Sleeps until the next frame is due, or the stop.
  void WaitForNextFrame();
  // The tick at which the frame after the last one is due; once per frame.
  uint32_t NextFrameDue();
  // Counts the frames due before now that an unchanged screen made, which
  // no file keeps, as MakeFrame(false) would have, without waking for them;
  // a frame that must be a key frame is left to be made. The tick at which
  // the next frame is due.
  uint32_t PassUnchangedFrames(uint32_t due, uint32_t now);
  // Milliseconds from now until a frame must be a key frame; 0 when one is.
  uint32_t UntilKeyFrame(uint32_t now) const;
  // The recording time of a frame made at tick, in milliseconds.
  uint32_t ElapsedAt(uint32_t tick) const;
  // Whether a frame at time (100-ns units) must be a key frame.
  bool KeyFrameAt(int64_t time) const;
  // Whether the frame differs from the reference, which it then becomes
  // (IsChanged). Called under g_csCanvas; the frame stays valid until the
  // next FillFrame.
  virtual bool UpdateReference(uint8_t* frame) { return IsChanged(frame); }

  // Blackens the frame to the right of and below the region.
  void ClearMargins(uint8_t* frame, int32_t pitch) const;

  // The frames leave the engine's windows out: the canvas is laid over them.
  bool m_bLayCanvas = false;
  // This frame's region in virtual-screen pixels, set by FillFrame.
  RECT m_rcSource{};
  // Rows of the frame outside which FillFrame knows that it equals the
  // reference frame; the whole frame unless FillFrame narrows them.
  int32_t m_nChangedTop = 0, m_nChangedBottom = 0, m_nChangedLeft = 0, m_nChangedRight = 0;
  const int32_t m_nRegionWidth;
  const int32_t m_nRegionHeight;

 private:
  void Run();
  void Unborder(uint8_t* frame);
  // Lays the canvas's picture over the frame, for the streams whose frames
  // leave the engine's windows out.
  void LayCanvas(uint8_t* frame, int32_t pitch);

  bool m_bSetUpOk = false;
  bool m_bFinalFrame = false;
  uint32_t m_dwPaceAnchor = 0;  // tick of the frame the schedule counts from
  uint64_t m_nPaced = 0;        // frames since the anchor
  std::unique_ptr<CMouseOverlay> m_mouse;
};
