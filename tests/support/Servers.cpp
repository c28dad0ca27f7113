#include "support/Servers.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include "support/TestEnv.h"

namespace ovtest {

namespace {

bool WaitUntil(const std::function<bool()>& ready, int timeoutMs) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < end) {
    if (ready()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return ready();
}

bool Alive(pid_t pid) { return pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0; }

}  // namespace

pid_t Spawn(const std::vector<std::string>& args) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  int null = open("/dev/null", O_RDWR);
  dup2(null, 0);
  dup2(null, 1);
  dup2(null, 2);
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  execvp(argv[0], argv.data());
  _exit(127);
}

void Stop(pid_t pid) {
  if (pid <= 0) return;
  kill(pid, SIGTERM);
  for (int i = 0; i < 100; ++i) {
    if (waitpid(pid, nullptr, WNOHANG) == pid) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

// Xvfb picks a free display itself and writes its number on a pipe once it
// takes connections.
XvfbServer::XvfbServer(int width, int height) {
  if (const char* d = getenv("DISPLAY")) m_previous = d;
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) return;
  fcntl(ready[1], F_SETFD, 0);  // the child keeps the writing end
  const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
  const pid_t pid = Spawn({"Xvfb", "-displayfd", std::to_string(ready[1]), "-screen", "0", screen,
                           "-nolisten", "tcp", "-noreset"});
  close(ready[1]);
  std::string number;
  pollfd wait{ready[0], POLLIN, 0};
  char c;
  while (poll(&wait, 1, 15000) == 1 && read(ready[0], &c, 1) == 1 && c != '\n') number += c;
  close(ready[0]);
  if (number.empty()) {
    Stop(pid);
    return;
  }
  m_pid = pid;
  m_display = ":" + number;
  setenv("DISPLAY", m_display.c_str(), 1);
}

void XvfbServer::End() {
  Stop(m_pid);
  m_pid = -1;
}

XvfbServer::~XvfbServer() {
  End();
  if (m_previous.empty())
    unsetenv("DISPLAY");
  else
    setenv("DISPLAY", m_previous.c_str(), 1);
}

PulseServer::PulseServer(Kind kind) {
  if (const char* v = getenv("PULSE_SERVER")) m_previousServer = v;
  if (const char* v = getenv("XDG_RUNTIME_DIR")) m_previousRuntime = v;
  if (const char* v = getenv("DBUS_SESSION_BUS_ADDRESS")) m_previousBus = v;
  std::string pattern = (std::filesystem::temp_directory_path() / "ovpulse.XXXXXX").string();
  char* made = mkdtemp(pattern.data());
  if (!made) return;
  m_runtime = made;
  chmod(m_runtime.c_str(), 0700);
  setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1);
  if (!(kind == Kind::PipeWire ? StartPipeWire() : StartPulseAudio())) return;
  // PipeWire's session manager takes defaults only once it has the sinks.
  const bool defaults = WaitUntil(
      [&] {
        Pactl("set-default-sink nullsink");
        Pactl("set-default-source micsink.monitor");
        return Pactl("get-default-sink").rfind("nullsink", 0) == 0 &&
               Pactl("get-default-source").rfind("micsink.monitor", 0) == 0;
      },
      10000);
  if (!defaults) m_missing = "the default sink and source could not be set";
}

bool PulseServer::StartPulseAudio() {
  std::string socket = m_runtime + "/native";
  m_server = "unix:" + socket;
  setenv("PULSE_SERVER", m_server.c_str(), 1);
  pid_t pid = Spawn({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                     "--use-pid-file=no", "--disable-shm=yes", "-L",
                     "module-native-protocol-unix auth-anonymous=1 socket=" + socket, "-L",
                     "module-null-sink sink_name=nullsink rate=48000", "-L",
                     "module-null-sink sink_name=micsink rate=48000", "-L", "module-always-sink"});
  if (!WaitForServer({pid})) {
    Stop(pid);
    return false;
  }
  m_pid = pid;
  return true;
}

// PipeWire as desktops run it: the daemon, its session manager and its
// Pulse server, on a session bus of their own. The null sinks are loaded
// through the Pulse protocol, as a user would.
bool PulseServer::StartPipeWire() {
  for (const char* program : {"dbus-daemon", "pipewire", "wireplumber", "pipewire-pulse"}) {
    int code = -1;
    RunCapture(std::string("command -v ") + program + " >/dev/null", &code);
    if (code != 0) {
      m_missing = std::string(program) + " is not installed";
      return false;
    }
  }
  const std::string bus = "unix:path=" + m_runtime + "/bus";
  m_helpers.push_back(
      Spawn({"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + bus}));
  setenv("DBUS_SESSION_BUS_ADDRESS", bus.c_str(), 1);
  setenv("PIPEWIRE_RUNTIME_DIR", m_runtime.c_str(), 1);
  WaitUntil([&] { return access((m_runtime + "/bus").c_str(), F_OK) == 0; }, 10000);
  m_helpers.push_back(Spawn({"pipewire"}));
  WaitUntil([&] { return access((m_runtime + "/pipewire-0").c_str(), F_OK) == 0; }, 10000);
  m_helpers.push_back(Spawn({"wireplumber"}));
  m_server = "unix:" + m_runtime + "/pulse/native";
  setenv("PULSE_SERVER", m_server.c_str(), 1);
  pid_t pid = Spawn({"pipewire-pulse"});
  std::vector<pid_t> needed = m_helpers;
  needed.push_back(pid);
  if (!WaitForServer(needed)) {
    m_missing = "pipewire-pulse did not answer";
    Stop(pid);
    return false;
  }
  m_pid = pid;
  for (const char* sink : {"nullsink", "micsink"})
    Pactl(std::string("load-module module-null-sink sink_name=") + sink + " rate=48000");
  // The session manager takes the new sinks in on its own time.
  if (!WaitUntil(
          [&] { return Pactl("list short sources").find("micsink.monitor") != std::string::npos; },
          5000))
    m_missing = "the null sinks did not appear";
  return m_missing.empty();
}

bool PulseServer::WaitForServer(const std::vector<pid_t>& needed) {
  auto anyGone = [&] {
    for (pid_t p : needed)
      if (!Alive(p)) return true;
    return false;
  };
  bool up = WaitUntil(
      [&] {
        if (anyGone()) return true;
        int code = -1;
        RunCapture("pactl info >/dev/null 2>&1", &code);
        return code == 0;
      },
      15000);
  return up && !anyGone();
}

std::string PulseServer::Pactl(const std::string& args, int* exitCode) const {
  return RunCapture("PULSE_SERVER=" + m_server + " pactl " + args + " 2>&1", exitCode);
}

PulseServer::~PulseServer() {
  Stop(m_pid);
  for (auto it = m_helpers.rbegin(); it != m_helpers.rend(); ++it) Stop(*it);
  std::error_code ec;
  if (!m_runtime.empty()) std::filesystem::remove_all(m_runtime, ec);
  auto restore = [](const char* name, const std::string& value) {
    if (value.empty())
      unsetenv(name);
    else
      setenv(name, value.c_str(), 1);
  };
  restore("PULSE_SERVER", m_previousServer);
  restore("XDG_RUNTIME_DIR", m_previousRuntime);
  restore("DBUS_SESSION_BUS_ADDRESS", m_previousBus);
  unsetenv("PIPEWIRE_RUNTIME_DIR");
}

}  // namespace ovtest
