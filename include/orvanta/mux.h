// The final file of a recording: assembly of the temp set by the `mux`
// program beside the library, and the watermark laid on its video.
#pragma once

#include "orvanta/audiodevices.h"
#include "orvanta/types.h"

// Implemented by the host; called on the muxer's own thread.
class CMuxCallback {
 public:
  // percent: 0 to 10 while the audio is prepared, 10 to 100 while the file is
  // written. Return non-zero to go on, 0 to cancel.
  virtual int OnProgress(int percent) = 0;
  // The end: 0, E_FAIL, or E_ABORT after a cancel. Called exactly once.
  virtual void OnComplete(HRESULT result) = 0;

 protected:
  ~CMuxCallback() = default;
};

// FFMux m_Muxer values: what file they make.
enum : int {
  FFMUX_MP4 = 0,             // MP4, video + AAC
  FFMUX_MOV = 1,             // QuickTime, video + AAC
  FFMUX_MP4_VIDEO_ONLY = 2,  // MP4, video alone whatever was recorded
  FFMUX_M4A = 3,             // MPEG-4 audio, AAC alone
  FFMUX_AAC = 4,             // ADTS AAC alone
  FFMUX_MP3 = 5,             // MP3 alone
  FFMUX_MKV = 6,             // Matroska, video + AAC
  FFMUX_FLV = 7,             // Flash video, H.264 + AAC
  FFMUX_AVI = 8,             // AVI, video + AC-3
};

extern "C" {

// Assembles the file of the last recording (GetCapturedFile) at
// pwszOutFile, with its trim and track choices, at most Duration seconds
// long (0: no limit). audioSetting is the audio bit rate in kbit/s, 0 for
// the encoder's default. Returns 0 when the work has started on a thread of
// its own, which reports through pCallback; any other result means that it
// has not started and pCallback is never called. The record must be left
// alone, and not freed, until OnComplete.
//
// Nothing is touched before the request is checked: E_INVALIDARG, with a log
// line, for an output path that is relative, longer than 259 characters, in
// a folder that does not exist, a folder, FIFO or device, or one of the
// recording's own temp files; for a negative trim time, a trim end at or
// before its start, or a negative Duration. A trim end past the recording
// is held to its end; a trim start past the last frame keeps the whole
// video (and the sound from its start); a trim that leaves no sound of a
// recording with sound ends with OnComplete(E_INVALIDARG). The file is
// written under a hidden name beside the output and renamed to it only when
// it is complete, so that a failed mux leaves a file at the output as it
// was. (A canceled mux lets the program finish; its file is then renamed.)
OV_API HRESULT FFMux(int m_Muxer, int audioSetting, const wchar_t* pwszOutFile, int Duration,
                     CMuxCallback* pCallback);

// Assembles the ASF file of a WMV recording (CodecType 0), or of one with
// sound only, at pwszOutFile: the video as it was recorded, the sound
// encoded to WMA in the formats chosen from the audio catalogue (required
// for each track in use), with the trim, at most Second seconds long (0: no
// limit). With Mix, both tracks become one, in the first track's format. A
// trim start moves back to the key frame at or before it, and the sound
// starts there too. Returns 0 when the work has started on a thread of its
// own, which reports progress and the end through pCallback; an OnProgress
// that returns 0 cancels, and the end is then E_ABORT. The file is written
// under a hidden name and put in place only when complete. The record must
// be left alone until OnComplete.
OV_API HRESULT WMMux(const wchar_t* pwszOutFile, int Second,
                     const AudioCodecInfo* pWaveOutAudioCodecInfo,
                     const AudioCodecInfo* pWaveInAudioCodecInfo, int Mix, CMuxCallback* pCallback);

// Assembles the GIF of a GIF recording (CodecType 4) at pwszOutFile, with
// its trim, at most Duration seconds long (0: no limit). Returns 0 when the
// work has started on a thread of its own, which reports progress and the
// end through pCallback (an OnProgress that returns 0 cancels: E_ABORT);
// any other result means that pCallback is never called. The palette is
// chosen from the frames kept, and a stretch where the screen stood still
// adds nothing to the file. Written under a hidden name beside the output
// and put in place only when complete.
OV_API HRESULT GIFMux(const wchar_t* pwszOutFile, int Duration, CMuxCallback* pCallback);

// A picture laid on the video of the files made from now on; null turns it
// off. alignX: 0 left, 1 centre, 2 right; alignY: 0 top, 1 centre, 2 bottom.
// The picture keeps its own size and stands 16 pixels from the edges it is
// aligned to. Only a regular file is read, and for at most a few seconds.
// E_INVALIDARG, setting nothing, for a path of 260 characters or more.
OV_API HRESULT UseWatermark(const wchar_t* path, int alignX, int alignY);
}
