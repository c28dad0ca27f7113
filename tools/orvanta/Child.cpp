#include "Child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Interrupts.h"

extern char** environ;

namespace cli {

namespace {

std::vector<std::string> MergedEnvironment(const std::vector<std::string>& extra) {
  std::vector<std::string> merged;
  for (char** e = environ; *e; ++e) {
    std::string entry = *e;
    std::string name = entry.substr(0, entry.find('='));
    bool replaced = false;
    for (const std::string& x : extra)
      replaced = replaced || x.compare(0, name.size() + 1, name + "=") == 0;
    if (!replaced) merged.push_back(entry);
  }
  merged.insert(merged.end(), extra.begin(), extra.end());
  return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& s : strings) pointers.push_back(s.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

pid_t StartChild(const ChildSpec& child) {
  if (child.argv.empty()) return -1;
  // Everything the child needs is built before fork: after it, only calls
  // that are safe in a copy of a threaded process.
  std::vector<std::string> args = child.argv;
  std::vector<std::string> env = MergedEnvironment(child.env);
  std::vector<char*> argv = Pointers(args);
  std::vector<char*> envp = Pointers(env);
  pid_t parent = getpid();

  pid_t pid = fork();
  if (pid != 0) {
    if (pid > 0) setpgid(pid, pid);  // both sides set it, so no race decides
    return pid;
  }
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(127);  // the parent died before the line above
  Interrupts::ResetInChild();
  int null = open("/dev/null", O_RDWR);
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  dup2(null, STDERR_FILENO);
  if (child.inheritFd >= 0) fcntl(child.inheritFd, F_SETFD, 0);
  execvpe(argv[0], argv.data(), envp.data());
  _exit(127);
}

bool ChildRunning(pid_t pid) { return pid > 0 && waitpid(pid, nullptr, WNOHANG) == 0; }

void StopChild(pid_t pid, int graceMs) {
  if (pid <= 0) return;
  if (waitpid(pid, nullptr, WNOHANG) == pid) return;
  kill(pid, SIGTERM);
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(graceMs);
  while (std::chrono::steady_clock::now() < end) {
    if (waitpid(pid, nullptr, WNOHANG) != 0) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

std::string ReadLineFrom(int fd, int timeoutMs) {
  std::string line;
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    end - std::chrono::steady_clock::now())
                    .count();
    if (left <= 0) return {};
    pollfd p{fd, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
    char c;
    ssize_t n = read(fd, &c, 1);
    if (n <= 0) return {};
    if (c == '\n') return line;
    line += c;
  }
}

}  // namespace cli
