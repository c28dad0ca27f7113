// Private X and sound servers for tests. Each starts its own process and
// ends exactly that process, by its id.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace ovtest {

// Starts a program with arguments; its output goes to /dev/null. Returns the pid or -1.
pid_t Spawn(const std::vector<std::string>& args);
// Sends SIGTERM, then SIGKILL after a grace time, and reaps the process.
void Stop(pid_t pid);

// Xvfb on a free display number; sets DISPLAY for this process while it lives.
class XvfbServer {
 public:
  XvfbServer(int width = 1280, int height = 720);
  ~XvfbServer();
  XvfbServer(const XvfbServer&) = delete;
  XvfbServer& operator=(const XvfbServer&) = delete;
  bool Running() const { return m_pid > 0; }
  const std::string& Display() const { return m_display; }
  pid_t Pid() const { return m_pid; }

 private:
  pid_t m_pid = -1;
  std::string m_display;
  std::string m_previous;
};

// A PulseAudio daemon in its own runtime folder with a null sink "nullsink"
// as the default sink, and a second null sink "micsink" whose monitor is the
// default source. Sets PULSE_SERVER for this process while it lives.
// An idle null sink renders up to two seconds ahead, so that a new monitor
// capture would wait that long for its first samples; a low-latency reader
// on each monitor keeps both sinks running like sound cards instead.
class PulseServer {
 public:
  PulseServer();
  ~PulseServer();
  PulseServer(const PulseServer&) = delete;
  PulseServer& operator=(const PulseServer&) = delete;
  bool Running() const { return m_pid > 0; }
  const std::string& Server() const { return m_server; }
  // Runs pactl against this server; returns its output.
  std::string Pactl(const std::string& args, int* exitCode = nullptr) const;
  pid_t Pid() const { return m_pid; }

 private:
  pid_t m_pid = -1;
  std::vector<pid_t> m_readers;
  std::string m_runtime;
  std::string m_server;
};

}  // namespace ovtest
