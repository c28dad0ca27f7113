// Runs the built `orvanta` command as a child process, as a user would, and
// collects what it prints. Each CliProcess ends only the process it started.
// One X server and one sound server serve the whole program, with a scene
// that moves and flashes and beeps in step; the children's logs and temp
// files go to scratch folders.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/Servers.h"
#include "support/TestEnv.h"

namespace clitest {

// `orvanta` in ../bin beside the test program's folder.
std::string OrvantaPath();
// Present beside the engine: an encoder library; the muxer (program and export).
bool EncoderLibraryPresent();
bool AssemblyPresent();

// Changes to the test's environment for a child: NAME=value sets, NAME unsets.
using Environment = std::vector<std::string>;
// Without the program's X and sound servers.
inline const Environment kWithoutDisplay = {"DISPLAY", "PULSE_SERVER"};

struct CliResult {
  int exitCode = -1;  // 128 + signal when a signal ended it
  std::string out;
  std::string err;
};

class CliProcess {
 public:
  CliProcess(const std::vector<std::string>& args, const Environment& env = {});
  ~CliProcess();
  CliProcess(const CliProcess&) = delete;
  CliProcess& operator=(const CliProcess&) = delete;

  // Reads output until stderr holds text; false if the output ended or the
  // time ran out first.
  bool WaitForErr(const std::string& text, int timeoutMs);
  void Signal(int signo);
  // Waits for the end (killing the process after timeoutMs) and returns all output.
  CliResult Finish(int timeoutMs);

 private:
  void Pump(int timeoutMs);

  pid_t m_pid = -1;
  int m_fds[2] = {-1, -1};  // stdout, stderr
  CliResult m_result;
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

}  // namespace clitest
