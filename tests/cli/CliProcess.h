// Runs the built `orvanta` command as a child process, as a user would, and
// collects what it prints. Each CliProcess ends only the process it started.
// One X server serves the whole program; the children's logs and temp files
// go to scratch folders.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/Servers.h"
#include "support/TestEnv.h"

namespace clitest {

// The folder of the test program, where the build puts the engine, with its
// encoder libraries and `mux` in orvanta/; `orvanta` is in ../bin.
std::string BinFolder();
std::string OrvantaPath();

// Present beside the engine: an encoder library; the muxer (program and export).
bool EncoderLibraryPresent();
bool AssemblyPresent();

struct Environment {
  std::vector<std::string> set;    // NAME=value
  std::vector<std::string> unset;  // NAME
};

struct CliResult {
  int exitCode = -1;  // 128 + signal when a signal ended it
  std::string out;
  std::string err;
  std::vector<std::string> ErrLines() const { return ovtest::Lines(err); }
};

class CliProcess {
 public:
  CliProcess(const std::vector<std::string>& args, const Environment& env = {});
  ~CliProcess();
  CliProcess(const CliProcess&) = delete;
  CliProcess& operator=(const CliProcess&) = delete;

  // Reads output until stderr holds text; false if the process ended or the
  // time ran out first.
  bool WaitForErr(const std::string& text, int timeoutMs);
  void Signal(int signo);
  // Waits for the end (killing the process after timeoutMs) and returns all output.
  CliResult Finish(int timeoutMs);

 private:
  void Pump(int timeoutMs);
  bool Reap(bool block);

  pid_t m_pid = -1;
  int m_outFd = -1;
  int m_errFd = -1;
  CliResult m_result;
  bool m_reaped = false;
};

CliResult RunCli(const std::vector<std::string>& args, const Environment& env = {},
                 int timeoutMs = 120000);

// Pids named in lines such as "Started ... (Xvfb, pid 1234)", with the name
// before "pid" as the key.
std::vector<std::pair<std::string, pid_t>> StartedPids(const std::string& text);
// A process that exists and is not a zombie.
bool ProcessAlive(pid_t pid);
// The first word of a process's command line, or "".
std::string ProcessProgram(pid_t pid);

// The temp folder every child gets as TMPDIR, and how many entries it holds:
// a recording that leaves one behind shows.
const std::string& ChildTemp();
size_t TempEntries();
// An environment for commands without the program's X server.
Environment WithoutDisplay();

}  // namespace clitest
