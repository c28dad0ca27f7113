#include "Recording.h"

#include <fcntl.h>
#include <orvanta/orvanta.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "Assembly.h"
#include "Console.h"
#include "Engine.h"
#include "Interrupts.h"
#include "Pick.h"
#include "SoundLevel.h"
#include "XDisplay.h"
#include "core/Rect.h"
#include "platform/Text.h"

namespace cli {

using ov::Height;
using ov::Width;

namespace {

namespace fs = std::filesystem;

std::string Describe(const RECT& r) {
  return std::to_string(Width(r)) + "x" + std::to_string(Height(r)) + " at " +
         std::to_string(r.left) + "," + std::to_string(r.top);
}

bool Contains(const RECT& outer, const RECT& inner) {
  return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
         inner.bottom <= outer.bottom;
}

// Tries the output before anything is recorded: a file that cannot be
// written should cost the user a second, not a recording.
bool CheckOutput(const std::string& out, int32_t codec, std::string* error) {
  std::string extension = fs::path(out).extension().string();
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (codec == kAudioOnly && extension != ".m4a" && extension != ".mp3") {
    *error = "OUT must end in .m4a or .mp3 for --audio-only (not '" + out + "')";
    return false;
  }
  if (codec != kAudioOnly && extension != OutputExtension(codec)) {
    *error = "OUT must end in " + std::string(OutputExtension(codec)) + " for codec " +
             CodecName(codec) + " (not '" + out + "')";
    return false;
  }
  int fd = open(out.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0644);
  if (fd >= 0) {
    close(fd);
    unlink(out.c_str());
    return true;
  }
  if (errno == EEXIST) fd = open(out.c_str(), O_WRONLY);
  if (fd >= 0) {
    close(fd);
    return true;
  }
  *error = "cannot write '" + out + "': " + std::strerror(errno);
  return false;
}

// The first temp file of a recording found in folder, or "".
std::string EarlierRecording(const std::string& folder) {
  std::error_code ec;
  for (const char* name :
       {"ScreenCapture.h264", "ScreenCapture.h265", "ScreenCapture.mpg", "ScreenCapture.wmv",
        "ScreenCapture.gif", "Speaker.wav", "AudioCapture.wav"})
    if (fs::is_regular_file(fs::path(folder) / name, ec)) return name;
  return {};
}

// The folder for the temp files: the user's, or a new one that this command
// also removes again.
struct TempFolder {
  std::string path;
  bool ours = false;

  bool Make(const std::string& wanted, std::string* error) {
    std::error_code ec;
    if (!wanted.empty()) {
      path = fs::absolute(wanted, ec).string();
      fs::create_directories(path, ec);
      if (!fs::is_directory(path, ec)) {
        *error = "cannot make the temp folder '" + wanted + "'";
        return false;
      }
      // The engine refuses such a folder too, but without the way out.
      if (std::string left = EarlierRecording(path); !left.empty()) {
        *error = "'" + wanted + "' holds " + left +
                 " of an earlier recording: make its file with 'orvanta recover " + wanted +
                 " OUT', or remove it";
        return false;
      }
      return true;
    }
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/orvanta-XXXXXX";
    if (!mkdtemp(pattern.data())) {
      *error = "cannot make a temp folder in " + pattern.substr(0, pattern.rfind('/')) + ": " +
               std::strerror(errno);
      return false;
    }
    path = pattern;
    ours = true;
    return true;
  }
  void RemoveIfOurs() {
    std::error_code ec;
    if (ours) fs::remove(path, ec);  // only when empty: anything left stays for the user
  }
};

// Chooses what to record and fills the video and mouse records. The engine
// checks the same rules, but its refusal carries no reason for the user.
bool ChooseTarget(const RecordOptions& o, const WindowSize& window, VideoOpt* video,
                  MouseOpt* mouse, std::string* error) {
  int count = GetDisplayCount();
  if (count <= 0) {
    *error = "the engine found no display on DISPLAY=" + std::string(getenv("DISPLAY"));
    return false;
  }
  if (o.window) {
    video->hWindow = o.window;
    video->rcWindow = {0, 0, window.width, window.height};
    return true;
  }
  if (o.display >= count) {
    *error = "there is no display " + std::to_string(o.display) + ": this screen has " +
             std::to_string(count) + " (see 'orvanta displays')";
    return false;
  }
  int index = o.display < 0 ? 0 : o.display;
  if (!o.hasRegion) {
    UseDisplay(index);
    video->rcScreen = GetDisplayInfo(index)->rcMonitor;
    return true;
  }
  const Region& g = o.region;
  RECT wanted = {g.x, g.y, g.x + g.width, g.y + g.height};
  if (o.follow != Follow::None) {
    mouse->Mode = o.follow == Follow::Follow ? MOUSE_MODE_FOLLOW : MOUSE_MODE_CENTER;
    UseDisplay(index);
    video->rcScreen = wanted;
    return true;
  }
  if (o.display < 0) {
    for (int i = 0; i < count; ++i)
      if (Contains(GetDisplayInfo(i)->rcMonitor, wanted)) index = i;
    if (!Contains(GetDisplayInfo(index)->rcMonitor, wanted)) index = 0;
  }
  const RECT& monitor = GetDisplayInfo(index)->rcMonitor;
  if (!Contains(monitor, wanted)) {
    *error = "region " + std::to_string(g.x) + "," + std::to_string(g.y) + "," +
             std::to_string(g.width) + "," + std::to_string(g.height) + " lies outside display " +
             std::to_string(index) + " (" + Describe(monitor) + ")";
    return false;
  }
  UseDisplay(index);
  video->rcScreen = wanted;
  return true;
}

std::string AudioWanted(const RecordOptions& o) {
  if (o.systemAudio && o.mic) return "system sound and microphone";
  if (o.systemAudio) return "system sound";
  if (o.mic) return "microphone";
  return "no sound";
}

const char* FailureText(int64_t code) {
  switch (static_cast<HRESULT>(code)) {
    case OV_E_DISK_FULL:
      return "the disk of the temp folder is full";
    case OV_E_DEVICE_LOST:
      return "the X server went away";
    default:
      return "a temp file could not be written";
  }
}

// One recording session, from Start to Destroy, with the live status line.
// A failure that ends the recording by itself ends it here too; what was
// recorded up to then is kept.
// The drawing keys of a terminal: single key presses, not echoed, while
// the recording runs.
class DrawingKeys {
 public:
  explicit DrawingKeys(CScreenRecoderObject* recorder) {
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &m_saved) != 0) return;
    m_canvas = recorder->SetCanvasCallback(&m_callback);
    if (!m_canvas) return;
    termios raw = m_saved;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    m_raw = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
  }
  ~DrawingKeys() {
    if (m_raw) tcsetattr(STDIN_FILENO, TCSANOW, &m_saved);
  }
  bool Active() const { return m_raw; }
  void Poll() {
    pollfd p{STDIN_FILENO, POLLIN, 0};
    char key;
    while (m_raw && poll(&p, 1, 0) > 0 && read(STDIN_FILENO, &key, 1) == 1) {
      if (key >= '1' && key <= '9')
        m_canvas->Start(key - '0', key == '8' ? 20 : 4, 0xFFFF3030, 0xFFFFFFFF, L"Sans", 1);
      else if (key == '0')
        m_canvas->Stop();
      else if (key == 'u')
        m_canvas->Undo();
      else if (key == 'r')
        m_canvas->Redo();
      else if (key == 'c')
        m_canvas->Clear();
    }
  }

 private:
  struct Quiet : CCanvasCallback {
    void OnUndoState(BOOL, BOOL) override {}
    void OnNumberChanged(int) override {}
  } m_callback;
  CScreenCanvas* m_canvas = nullptr;
  termios m_saved{};
  bool m_raw = false;
};

// 3, 2, 1 in the middle of the display in use, a second each; false when
// Ctrl-C cut it short. The pictures are gone before the recording starts.
bool ShowCountdown() {
  const std::string images = EngineHelperFolder() + "/Resource/Images/Countdown";
  CPictureObject* picture = nullptr;
  bool interrupted = false;
  for (int digit = 3; digit >= 1 && !interrupted; --digit) {
    const std::wstring path = ov::FromUtf8(images + std::to_string(digit) + ".png");
    if (picture)
      picture->ChangePicture(path.c_str());
    else
      picture = ShowPictureOnScreen(path.c_str(), 256, 256);
    Note("%d...", digit);
    interrupted = Interrupts::Wait(1000) != 0;
  }
  if (picture) picture->Destroy();
  return !interrupted;
}

void RecordSoundUntilStopped(CAudioRecoderObject* recorder, SoundLevel* level, double seconds) {
  using Clock = std::chrono::steady_clock;
  StatusLine status;
  recorder->Start();
  const auto start = Clock::now();
  const std::string limit = seconds > 0 ? " / " + FormatClock(seconds) : "";
  const std::string hint = seconds > 0 ? "" : "   Ctrl-C stops";
  for (;;) {
    const int signo = Interrupts::Wait(200);
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    uint32_t progressSeconds = 0;
    uint64_t bytes = 0;
    recorder->GetProgress(&progressSeconds, &bytes);
    const std::string dot = StderrIsTerminal() ? "\033[31m\u25cf\033[0m" : "*";
    std::string levels;
    for (auto [type, label] : {std::pair{0, "   system "}, std::pair{1, "   mic "}})
      if (std::string bar = level->Take(type); !bar.empty()) levels += label + bar;
    status.Show(dot + " REC " + FormatClock(progressSeconds) + limit + "   " +
                FormatBytes(static_cast<int64_t>(bytes)) + levels + hint);
    if (signo || (seconds > 0 && elapsed >= seconds)) break;
  }
  status.Finish();
  Note("Stopping...");
  recorder->Destroy();
}

void RecordUntilStopped(CScreenRecoderObject* recorder, double seconds, bool keys) {
  using Clock = std::chrono::steady_clock;
  StatusLine status;
  recorder->Start();
  std::unique_ptr<DrawingKeys> drawing;
  if (keys) drawing = std::make_unique<DrawingKeys>(recorder);
  auto start = Clock::now();
  std::string limit = seconds > 0 ? " / " + FormatClock(seconds) : "";
  std::string hint = seconds > 0 ? "" : "   Ctrl-C stops";
  if (drawing && drawing->Active()) hint += "   1-9 draw, 0 stop, u/r/c";
  int64_t bytes = 0;
  for (;;) {
    int signo = Interrupts::Wait(drawing ? 50 : 200);
    if (drawing) drawing->Poll();
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    uint32_t progressSeconds = 0;
    recorder->GetProgress(&progressSeconds, &bytes);
    if (bytes < 0) {
      status.Finish();
      Error("recording stopped at %s: %s (0x%08x)", FormatClock(progressSeconds).c_str(),
            FailureText(bytes), static_cast<unsigned>(bytes));
      break;
    }
    std::string dot = StderrIsTerminal() ? "\033[31m\u25cf\033[0m" : "*";
    status.Show(dot + " REC " + FormatClock(progressSeconds) + limit + "   " + FormatBytes(bytes) +
                "   " + std::to_string(recorder->GetFrameCounter()) + " frames" + hint);
    if (signo || (seconds > 0 && elapsed >= seconds)) break;
  }
  status.Finish();
  drawing.reset();
  Note("Stopping...");
  recorder->Destroy();
}

// The countdown before Start. When Ctrl-C cuts it short, the recorder and
// its temp files go and the command fails.
template <class Recorder>
bool CountdownOrAbandon(Recorder* recorder, TempFolder* temp) {
  if (ShowCountdown()) return true;
  recorder->Destroy();
  if (GetCapturedFile()) FreeCapturedFile(1);
  temp->RemoveIfOurs();
  Error("interrupted before the recording began");
  return false;
}

// A sound track that was asked for but left no temp file behind.
bool TrackMissing(BOOL stream, const wchar_t* path) {
  std::error_code ec;
  return stream && !fs::exists(ov::ToUtf8(path), ec);
}

double RecordedSeconds(const CapturedFile& f) {
  REFERENCE_TIME longest = std::max({f.nScreenDuration, f.nWaveOutDuration, f.nWaveInDuration});
  return static_cast<double>(longest) / REF_TIME_UNITS;
}

void ListTempFiles(const CapturedFile& f, const std::string& folder) {
  Note("The recording stays as temp files in %s:", folder.c_str());
  std::error_code ec;
  for (const wchar_t* path : {f.szScreenCaptureFile, f.szWaveOutFile, f.szWaveInFile}) {
    std::string name = ov::ToUtf8(path);
    if (name.empty()) continue;
    if (fs::exists(name, ec))
      Note("  %-24s %s", fs::path(name).filename().c_str(),
           FormatBytes(static_cast<int64_t>(fs::file_size(name, ec))).c_str());
    else
      Note("  %-24s missing", fs::path(name).filename().c_str());
  }
}

void PrintSummary(const CapturedFile& f, const RecordOptions& o, const std::string& out) {
  std::error_code ec;
  double seconds = RecordedSeconds(f);
  if (o.hasTrim) seconds = (o.trimEnd > 0 ? std::min(o.trimEnd, seconds) : seconds) - o.trimStart;
  std::printf("Saved %s\n", out.c_str());
  std::printf("  duration  %s\n", FormatSeconds(seconds).c_str());
  std::printf("  size      %s\n",
              FormatBytes(static_cast<int64_t>(fs::file_size(out, ec))).c_str());
  if (o.codec != kAudioOnly)
    std::printf("  video     %s %dx%d, %d fps\n", CodecTitle(o.codec), f.nWidth, f.nHeight, o.fps);
  std::string sound;
  if (f.bWaveOutStream && fs::exists(ov::ToUtf8(f.szWaveOutFile), ec)) sound = "system sound";
  if (f.bWaveInStream && fs::exists(ov::ToUtf8(f.szWaveInFile), ec))
    sound += sound.empty() ? "microphone" : " + microphone";
  std::printf("  audio     %s\n", sound.empty() ? "none" : sound.c_str());
}

// After the stop: the final file, or the temp files and the reason why not.
int Finish(const RecordOptions& o, TempFolder* temp, const std::string& out) {
  CapturedFile* file = GetCapturedFile();
  if (!file) {
    Error("the engine kept no record of the recording; see %s", EngineLogPath().c_str());
    return kExitFailed;
  }
  Note("Recorded %s, %s", FormatSeconds(RecordedSeconds(*file)).c_str(),
       FormatBytes(file->nFileBytes).c_str());
  for (auto [label, missing] :
       {std::pair{"system sound", TrackMissing(file->bWaveOutStream, file->szWaveOutFile)},
        std::pair{"microphone", TrackMissing(file->bWaveInStream, file->szWaveInFile)}}) {
    if (missing)
      Note("  %s: not recorded (this build has no audio capture yet, or it failed: see %s)", label,
           EngineLogPath().c_str());
  }
  if (std::string missing = AssemblyMissing(o.codec); !missing.empty()) {
    Error("%s", missing.c_str());
    ListTempFiles(*file, temp->path);
    FreeCapturedFile(0);
    return kExitNotAssembled;
  }
  if (o.trimStart > 0 && o.trimStart >= RecordedSeconds(*file)) {
    Error("--trim starts at %s, after the end of this %s recording",
          FormatSeconds(o.trimStart).c_str(), FormatSeconds(RecordedSeconds(*file)).c_str());
    ListTempFiles(*file, temp->path);
    FreeCapturedFile(0);
    return kExitFailed;
  }
  // A Ctrl-C pressed while the recording stopped was meant for the stop.
  while (Interrupts::Wait(0)) {
  }
  file->nTrimStart = static_cast<REFERENCE_TIME>(o.trimStart * REF_TIME_UNITS);
  file->nTrimEnd = static_cast<REFERENCE_TIME>(o.trimEnd * REF_TIME_UNITS);
  int32_t result = 0;
  Assembled assembled = Assemble(o.codec, out, &result);
  if (assembled != Assembled::Done) {
    if (assembled == Assembled::Cancelled)
      Error("assembly cancelled");
    else
      Error("assembly failed (0x%08x); see %s", static_cast<unsigned>(result),
            EngineLogPath().c_str());
    ListTempFiles(*file, temp->path);
    FreeCapturedFile(0);
    return kExitFailed;
  }
  PrintSummary(*file, o, out);
  FreeCapturedFile(1);
  temp->RemoveIfOurs();
  return kExitOk;
}

// A recording of sound alone: no display needed unless a countdown is shown.
int RunSoundRecording(const RecordOptions& o, const std::string& out) {
  if (o.countdown && !DisplayAnswers()) {
    Error("--countdown needs an X display: set DISPLAY, or drop --countdown");
    return kExitFailed;
  }
  Engine engine;
  if (std::string missing = AssemblyMissing(o.codec); !missing.empty())
    Note("Note: %s; the recording will stay as temp files.", missing.c_str());
  std::string error;
  TempFolder temp;
  if (!temp.Make(o.tempFolder, &error)) {
    Error("%s", error.c_str());
    return kExitFailed;
  }
  AudioOpt audio{o.systemAudio ? 1 : 0, o.mic ? 1 : 0};
  SoundLevel level;  // outlives the recorder, which calls it
  CAudioRecoderObject* recorder = ovAudioRecord(ov::FromUtf8(temp.path).c_str(), audio, &level);
  if (!recorder) {
    if (GetCapturedFile()) FreeCapturedFile(1);
    temp.RemoveIfOurs();
    Error("the sound recording could not start; see %s", EngineLogPath().c_str());
    return kExitFailed;
  }
  if (o.countdown && !CountdownOrAbandon(recorder, &temp)) return kExitFailed;
  Note("Recording %s to %s", AudioWanted(o).c_str(), out.c_str());
  for (int32_t type : {0, 1}) level.SetFormat(type, recorder->GetAudioFormat(type));
  RecordSoundUntilStopped(recorder, &level, o.seconds);
  return Finish(o, &temp, out);
}

}  // namespace

int RunRecording(const RecordOptions& given) {
  RecordOptions o = given;  // a pick on the screen fills in the target
  std::string error;
  std::error_code ec;
  std::string out = fs::absolute(o.out, ec).string();
  if (!CheckOutput(o.out, o.codec, &error)) {
    Error("%s", error.c_str());
    return kExitUsage;
  }
  if (o.audioOnly) return RunSoundRecording(o, out);
  if (o.codec == CodecType_WMV || o.codec == CodecType_GIF) {
    if (std::string missing = AssemblyMissing(o.codec); !missing.empty()) {
      Error("%s", missing.c_str());
      return kExitFailed;
    }
  }
  const char* display = getenv("DISPLAY");
  if (!display || !*display) {
    Error("no X display: set DISPLAY, or try 'orvanta demo', which brings its own");
    return kExitFailed;
  }
  if (!DisplayAnswers()) {
    Error("cannot open the X display '%s'", display);
    return kExitFailed;
  }
  WindowSize window;
  if (o.window) {
    window = QueryWindowSize(o.window);
    if (!window.exists || !window.viewable) {
      Error("window 0x%llx %s", static_cast<unsigned long long>(o.window),
            window.exists ? "is not visible" : "does not exist on this display");
      return kExitUsage;
    }
  }

  Engine engine;
  if (o.select || o.pickWindow) {
    if (!PickTarget(&o, &error)) {
      Error("%s", error.c_str());
      return kExitUsage;
    }
    if (o.window) window = QueryWindowSize(o.window);
  }
  VideoOpt video{};
  video.bStream = 1;
  video.CodecType = o.codec;
  video.FrameRate = o.fps;
  video.videoQuality = o.quality;
  MouseOpt mouse{};
  mouse.Flag = (o.cursor ? MOUSE_DRAW_CURSOR : 0u) |
               (o.clicks ? MOUSE_DRAW_CLICKS | MOUSE_CLICK_HIGHLIGHT : 0u);
  mouse.clickColor = 0xFFC800;
  mouse.highlightColor = 0xFFFF00;
  if (!ChooseTarget(o, window, &video, &mouse, &error)) {
    Error("%s", error.c_str());
    return kExitUsage;
  }
  if (o.codec != CodecType_WMV && o.codec != CodecType_GIF && !IsSupportHwVideoCodec(o.codec)) {
    Error("no %s encoder in this build (the encoder libraries in %s offer none)",
          CodecTitle(o.codec), EngineHelperFolder().c_str());
    return kExitFailed;
  }
  if (std::string missing = AssemblyMissing(o.codec); !missing.empty())
    Note("Note: %s; the recording will stay as temp files.", missing.c_str());

  if (Interrupts::Wait(0)) {
    Error("interrupted before the recording began");
    return kExitFailed;
  }
  TempFolder temp;
  if (!temp.Make(o.tempFolder, &error)) {
    Error("%s", error.c_str());
    return kExitFailed;
  }
  AudioOpt audio{o.systemAudio ? 1 : 0, o.mic ? 1 : 0};
  HRESULT hr = S_OK;
  CScreenRecoderObject* recorder =
      ovVideoRecord(0, ov::FromUtf8(temp.path).c_str(), &video, audio, &mouse, o.box, &hr);
  if (!recorder) {
    if (GetCapturedFile()) FreeCapturedFile(1);
    temp.RemoveIfOurs();
    if (FAILED(hr))
      Error("the recording could not start (0x%08x); see %s", static_cast<unsigned>(hr),
            EngineLogPath().c_str());
    else
      Error("the engine refused the recording options; see %s", EngineLogPath().c_str());
    return kExitFailed;
  }
  char windowId[32];
  std::snprintf(windowId, sizeof windowId, "window 0x%llx",
                static_cast<unsigned long long>(o.window));
  std::string what = o.window ? std::string(windowId) : Describe(video.rcScreen);
  if (o.countdown && !CountdownOrAbandon(recorder, &temp)) return kExitFailed;
  Note("Recording %s (%s, %d fps, %s) to %s", what.c_str(), CodecTitle(o.codec), o.fps,
       AudioWanted(o).c_str(), out.c_str());
  RecordUntilStopped(recorder, o.seconds, o.box);
  return Finish(o, &temp, out);
}

}  // namespace cli
