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

// Xvfb on a display number of its choosing; sets DISPLAY for this process while it lives.
class XvfbServer {
 public:
  XvfbServer(int width = 1280, int height = 720);
  ~XvfbServer();
  XvfbServer(const XvfbServer&) = delete;
  XvfbServer& operator=(const XvfbServer&) = delete;
  bool Running() const { return m_pid > 0; }
  const std::string& Display() const { return m_display; }
  pid_t Pid() const { return m_pid; }
  // Ends the server now, as a user's server may go away.
  void End();

 private:
  pid_t m_pid = -1;
  std::string m_display;
  std::string m_previous;
};

// A sound server in its own runtime folder with a null sink "nullsink" as
// the default sink, and a second null sink "micsink" whose monitor is the
// default source, as a user's freshly started server has them: nothing
// reads the monitors, and an idle sink renders up to two seconds ahead.
// Sets PULSE_SERVER for this process while it lives, and puts back the one
// before it at the end, so that a test can start a fresh server of its own.
class PulseServer {
 public:
  enum class Kind { PulseAudio, PipeWire };
  explicit PulseServer(Kind kind = Kind::PulseAudio);
  ~PulseServer();
  PulseServer(const PulseServer&) = delete;
  PulseServer& operator=(const PulseServer&) = delete;
  bool Running() const { return m_pid > 0 && m_missing.empty(); }
  const std::string& Server() const { return m_server; }
  // Runs pactl against this server; returns its output.
  std::string Pactl(const std::string& args, int* exitCode = nullptr) const;
  pid_t Pid() const { return m_pid; }
  // Why a PipeWire server could not start here; empty once it runs.
  const std::string& Missing() const { return m_missing; }

 private:
  bool StartPulseAudio();
  bool StartPipeWire();
  bool WaitForServer(const std::vector<pid_t>& needed);

  pid_t m_pid = -1;
  std::vector<pid_t> m_helpers;  // the bus and PipeWire's daemons beside its Pulse server
  std::string m_runtime;
  std::string m_server;
  std::string m_missing;
  std::string m_previousServer;
  std::string m_previousRuntime;
  std::string m_previousBus;
};

}  // namespace ovtest
