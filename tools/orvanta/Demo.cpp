#include "Demo.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "Child.h"
#include "Console.h"
#include "Interrupts.h"
#include "Recording.h"
#include "Scene.h"

namespace cli {

namespace {

namespace fs = std::filesystem;

struct DemoOptions {
  double seconds = 10;
  int width = 1280;
  int height = 720;
  std::string out = "demo.mp4";
};

bool ParseDemoOptions(const std::vector<std::string>& args, DemoOptions* o, std::string* error) {
  bool haveOut = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    bool hasValue = i + 1 < args.size();
    if (a == "--seconds" && hasValue) {
      char* end = nullptr;
      o->seconds = std::strtod(args[++i].c_str(), &end);
      if (*end || !(o->seconds > 0 && o->seconds <= 3600)) {
        *error = "--seconds takes a time in seconds from 0 to 3600, not '" + args[i] + "'";
        return false;
      }
    } else if (a == "--size" && hasValue) {
      if (std::sscanf(args[++i].c_str(), "%dx%d", &o->width, &o->height) != 2 || o->width < 64 ||
          o->height < 64 || o->width > 7680 || o->height > 4320) {
        *error = "--size takes WIDTHxHEIGHT such as 1920x1080, not '" + args[i] + "'";
        return false;
      }
    } else if (!a.empty() && a[0] == '-' && a != "-") {
      *error = "unknown option '" + a + "' for demo (see 'orvanta help demo')";
      return false;
    } else if (!haveOut) {
      o->out = a;
      haveOut = true;
    } else {
      *error = "unexpected argument '" + a + "'";
      return false;
    }
  }
  return true;
}

// A pipe whose write end a child inherits to say that it is ready.
struct ReadyPipe {
  int fds[2] = {-1, -1};
  ReadyPipe() {
    if (pipe2(fds, O_CLOEXEC) != 0) fds[0] = fds[1] = -1;
  }
  ~ReadyPipe() {
    CloseWriteEnd();
    if (fds[0] >= 0) close(fds[0]);
  }
  void CloseWriteEnd() {
    if (fds[1] >= 0) close(fds[1]);
    fds[1] = -1;
  }
  // The line the child wrote, once this side no longer holds the write end.
  std::string Line(int timeoutMs) {
    CloseWriteEnd();
    return ReadLineFrom(fds[0], timeoutMs);
  }
};

bool SocketAnswers(const std::string& path) {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  bool ok = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return ok;
}

std::string SelfPath() {
  std::error_code ec;
  fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? "orvanta" : self.string();
}

// The processes of the private environment, ended in reverse order of start.
class DemoEnvironment {
 public:
  ~DemoEnvironment() { Stop(); }

  bool StartX(int width, int height);
  bool StartSound();
  bool StartScene(long long epochNs);
  bool StartTone(long long epochNs);
  void Stop();

 private:
  struct Started {
    std::string what;
    pid_t pid;
  };
  void Remember(const std::string& what, pid_t pid) { m_started.push_back({what, pid}); }

  std::vector<Started> m_started;
  std::string m_soundFolder;
};

bool DemoEnvironment::StartX(int width, int height) {
  // Xvfb picks a free display number itself and writes it once it accepts
  // clients, so there is neither a race for the number nor a poll.
  ReadyPipe ready;
  std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
  pid_t pid = StartChild({{"Xvfb", "-displayfd", std::to_string(ready.fds[1]), "-screen", "0",
                           screen, "-nolisten", "tcp", "-noreset"},
                          {},
                          ready.fds[1]});
  if (pid < 0) return false;
  Remember("Xvfb", pid);
  std::string number = ready.Line(15000);
  if (number.empty()) {
    Error(
        "the virtual X server did not start (is Xvfb installed? scripts/install-deps.sh installs "
        "it)");
    return false;
  }
  std::string display = ":" + number;
  setenv("DISPLAY", display.c_str(), 1);
  Note("Started a virtual display %s, %dx%d (Xvfb, pid %d)", display.c_str(), width, height, pid);
  return true;
}

bool DemoEnvironment::StartSound() {
  const char* tmp = getenv("TMPDIR");
  std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/orvanta-demo-sound.XXXXXX";
  if (!mkdtemp(pattern.data())) return false;
  m_soundFolder = pattern;
  std::string socket = m_soundFolder + "/native";
  // Its own runtime and home folders keep the daemon away from the user's
  // sound server and settings; the null sink is its only output, so it is
  // the default one, and its monitor is what the recording hears.
  pid_t pid = StartChild({{"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                           "--use-pid-file=no", "--disable-shm=yes", "-L",
                           "module-native-protocol-unix auth-anonymous=1 socket=" + socket, "-L",
                           "module-null-sink sink_name=demo rate=48000 "
                           "sink_properties=device.description=Orvanta-demo"},
                          {"XDG_RUNTIME_DIR=" + m_soundFolder, "HOME=" + m_soundFolder,
                           "PULSE_RUNTIME_PATH=" + m_soundFolder}});
  if (pid < 0) return false;
  Remember("PulseAudio", pid);
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  while (!SocketAnswers(socket)) {
    if (!ChildRunning(pid) || std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::string server = "unix:" + socket;
  setenv("PULSE_SERVER", server.c_str(), 1);
  Note("Started a private sound server with a silent output (PulseAudio, pid %d)", pid);
  return true;
}

bool DemoEnvironment::StartScene(long long epochNs) {
  ReadyPipe ready;
  pid_t pid = StartChild({{SelfPath(), "scene", "--epoch", std::to_string(epochNs), "--pointer",
                           "--ready-fd", std::to_string(ready.fds[1])},
                          {},
                          ready.fds[1]});
  if (pid < 0) return false;
  Remember("orvanta scene", pid);
  if (ready.Line(10000).empty()) return false;
  Note("Started the moving scene (orvanta scene, pid %d)", pid);
  return true;
}

bool DemoEnvironment::StartTone(long long epochNs) {
  ReadyPipe ready;
  pid_t pid = StartChild({{SelfPath(), "tone", "--epoch", std::to_string(epochNs), "--ready-fd",
                           std::to_string(ready.fds[1])},
                          {},
                          ready.fds[1]});
  if (pid < 0) return false;
  Remember("orvanta tone", pid);
  if (ready.Line(10000).empty()) return false;
  Note("Started the beeps, one a second with the flashes (orvanta tone, pid %d)", pid);
  return true;
}

void DemoEnvironment::Stop() {
  if (m_started.empty() && m_soundFolder.empty()) return;
  std::string stopped;
  for (auto it = m_started.rbegin(); it != m_started.rend(); ++it) {
    StopChild(it->pid);
    stopped += (stopped.empty() ? "" : ", ") + it->what + " (pid " + std::to_string(it->pid) + ")";
  }
  m_started.clear();
  std::error_code ec;
  if (!m_soundFolder.empty()) fs::remove_all(m_soundFolder, ec);
  m_soundFolder.clear();
  if (!stopped.empty()) Note("Stopped %s", stopped.c_str());
}

}  // namespace

int RunDemo(const std::vector<std::string>& args) {
  DemoOptions o;
  std::string error;
  if (!ParseDemoOptions(args, &o, &error)) {
    Error("%s", error.c_str());
    return kExitUsage;
  }
  RecordOptions record;
  record.out = o.out;
  record.seconds = o.seconds;
  record.systemAudio = true;
  record.cursor = true;

  DemoEnvironment environment;
  const char* display = getenv("DISPLAY");
  if (!display || !*display) {
    long long epoch = MonotonicNs();
    if (!environment.StartX(o.width, o.height)) return kExitFailed;
    if (!environment.StartSound()) {
      Note("Note: no private sound server could start (pulseaudio); the demo records no sound");
      record.systemAudio = false;
    }
    if (!environment.StartScene(epoch)) {
      Error("the demo scene did not start");
      return kExitFailed;
    }
    if (record.systemAudio && !environment.StartTone(epoch))
      Note("Note: the beeps did not start; the sound track will be silent");
  } else {
    Note("Recording the display %s", display);
  }
  if (Interrupts::Wait(0)) {
    Error("demo interrupted");
    return kExitFailed;
  }
  int code = RunRecording(record);
  environment.Stop();
  if (code == kExitOk) {
    std::error_code ec;
    Note("The demo is in %s", fs::absolute(o.out, ec).c_str());
  }
  return code;
}

const char kDemoUsage[] =
    "usage: orvanta demo [--seconds N] [--size WxH] [OUT]\n"
    "\n"
    "Records N seconds (default 10) with system sound and the pointer into OUT\n"
    "(default demo.mp4). Without DISPLAY it starts its own virtual display of\n"
    "WxH (default 1280x720) with a moving scene, and its own sound server playing\n"
    "a beep with each white flash; it stops all of them again at the end.\n"
    "With DISPLAY set it records that display.\n";

}  // namespace cli
