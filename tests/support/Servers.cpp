#include "support/Servers.h"

#include <fcntl.h>
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

XvfbServer::XvfbServer(int width, int height) {
  if (const char* d = getenv("DISPLAY")) m_previous = d;
  for (int n = 90 + (getpid() % 50); n < 400; ++n) {
    std::string lock = "/tmp/.X" + std::to_string(n) + "-lock";
    std::string socket = "/tmp/.X11-unix/X" + std::to_string(n);
    if (access(lock.c_str(), F_OK) == 0 || access(socket.c_str(), F_OK) == 0) continue;
    std::string display = ":" + std::to_string(n);
    std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    pid_t pid = Spawn({"Xvfb", display, "-screen", "0", screen, "-nolisten", "tcp", "-noreset"});
    bool up = WaitUntil(
        [&] {
          if (!Alive(pid)) return true;
          int code = -1;
          RunCapture("xdpyinfo -display " + display + " >/dev/null 2>&1", &code);
          return code == 0;
        },
        10000);
    if (up && Alive(pid)) {
      m_pid = pid;
      m_display = display;
      setenv("DISPLAY", display.c_str(), 1);
      return;
    }
    Stop(pid);
  }
}

XvfbServer::~XvfbServer() {
  Stop(m_pid);
  if (m_previous.empty())
    unsetenv("DISPLAY");
  else
    setenv("DISPLAY", m_previous.c_str(), 1);
}

PulseServer::PulseServer() {
  std::string pattern = (std::filesystem::temp_directory_path() / "ovpulse.XXXXXX").string();
  char* made = mkdtemp(pattern.data());
  if (!made) return;
  m_runtime = made;
  chmod(m_runtime.c_str(), 0700);
  std::string socket = m_runtime + "/native";
  m_server = "unix:" + socket;
  setenv("XDG_RUNTIME_DIR", m_runtime.c_str(), 1);
  setenv("PULSE_SERVER", m_server.c_str(), 1);
  pid_t pid = Spawn({"pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1",
                     "--use-pid-file=no", "--disable-shm=yes", "-L",
                     "module-native-protocol-unix auth-anonymous=1 socket=" + socket, "-L",
                     "module-null-sink sink_name=nullsink rate=48000", "-L",
                     "module-null-sink sink_name=micsink rate=48000", "-L", "module-always-sink"});
  bool up = WaitUntil(
      [&] {
        if (!Alive(pid)) return true;
        int code = -1;
        RunCapture("pactl info >/dev/null 2>&1", &code);
        return code == 0;
      },
      15000);
  if (!up || !Alive(pid)) {
    Stop(pid);
    return;
  }
  m_pid = pid;
  Pactl("set-default-sink nullsink");
  Pactl("set-default-source micsink.monitor");
  for (const char* monitor : {"nullsink.monitor", "micsink.monitor"}) {
    m_readers.push_back(Spawn({"parec", "--raw", "--latency-msec=10", "-d", monitor}));
    // Returns once the sink has caught up with what it had rendered ahead.
    RunCapture(std::string("timeout 5 parec --raw --latency-msec=10 -d ") + monitor +
               " 2>/dev/null | head -c 4 >/dev/null");
  }
}

std::string PulseServer::Pactl(const std::string& args, int* exitCode) const {
  return RunCapture("PULSE_SERVER=" + m_server + " pactl " + args + " 2>&1", exitCode);
}

PulseServer::~PulseServer() {
  for (pid_t reader : m_readers) Stop(reader);
  Stop(m_pid);
  std::error_code ec;
  if (!m_runtime.empty()) std::filesystem::remove_all(m_runtime, ec);
  unsetenv("PULSE_SERVER");
}

}  // namespace ovtest
