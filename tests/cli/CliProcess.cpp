#include "CliProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <regex>

extern char** environ;

namespace clitest {

namespace {

using Clock = std::chrono::steady_clock;

int MsLeft(Clock::time_point end) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  return left < 0 ? 0 : static_cast<int>(left);
}

std::vector<std::string> ChildEnvironment(const Environment& env) {
  std::vector<std::string> result;
  auto named = [](const std::string& entry, const std::string& name) {
    return entry.compare(0, name.size() + 1, name + "=") == 0;
  };
  for (char** e = environ; *e; ++e) {
    std::string entry = *e;
    bool drop = false;
    for (const std::string& name : env.unset) drop = drop || named(entry, name);
    for (const std::string& set : env.set)
      drop = drop || named(entry, set.substr(0, set.find('=')));
    if (!drop) result.push_back(entry);
  }
  result.insert(result.end(), env.set.begin(), env.set.end());
  return result;
}

bool EngineExports(const char* symbol) {
  int code = -1;
  std::string engine = BinFolder() + "/liborvanta.so";
  ovtest::RunCapture("nm -D --defined-only '" + engine + "' | grep -qE ' T " + symbol + "$'",
                     &code);
  return code == 0;
}

std::unique_ptr<ovtest::ScratchFolder> g_temp;

class CliEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    m_documents = std::make_unique<ovtest::ScratchFolder>("ovclidocs");
    g_temp = std::make_unique<ovtest::ScratchFolder>("ovclitmp");
    // Children inherit these: their logs and temp files stay in scratch folders.
    setenv("XDG_DOCUMENTS_DIR", m_documents->Path().c_str(), 1);
    setenv("TMPDIR", g_temp->Path().c_str(), 1);
    unsetenv("PULSE_SERVER");
    m_xvfb = std::make_unique<ovtest::XvfbServer>(1280, 720);
    ASSERT_TRUE(m_xvfb->Running()) << "Xvfb did not start";
    ASSERT_EQ(access(OrvantaPath().c_str(), X_OK), 0) << OrvantaPath() << " is not built";
  }
  void TearDown() override {
    m_xvfb.reset();
    g_temp.reset();
    m_documents.reset();
  }

 private:
  std::unique_ptr<ovtest::ScratchFolder> m_documents;
  std::unique_ptr<ovtest::XvfbServer> m_xvfb;
};

auto* const g_environment = ::testing::AddGlobalTestEnvironment(new CliEnvironment);

}  // namespace

const std::string& ChildTemp() { return g_temp->Path(); }

size_t TempEntries() {
  size_t n = 0;
  for (auto it = std::filesystem::directory_iterator(ChildTemp()); it != decltype(it)(); ++it) ++n;
  return n;
}

Environment WithoutDisplay() { return {{}, {"DISPLAY", "PULSE_SERVER"}}; }

std::string BinFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
}

std::string OrvantaPath() { return BinFolder() + "/../bin/orvanta"; }

bool EncoderLibraryPresent() {
  return access((BinFolder() + "/orvanta/libIntelCodec.so").c_str(), R_OK) == 0;
}

bool AssemblyPresent() {
  return access((BinFolder() + "/orvanta/mux").c_str(), X_OK) == 0 && EngineExports("FFMux");
}

CliProcess::CliProcess(const std::vector<std::string>& args, const Environment& env) {
  std::vector<std::string> argv = {OrvantaPath()};
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<std::string> envs = ChildEnvironment(env);
  std::vector<char*> argp, envp;
  for (std::string& a : argv) argp.push_back(a.data());
  argp.push_back(nullptr);
  for (std::string& e : envs) envp.push_back(e.data());
  envp.push_back(nullptr);
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return;
  m_pid = fork();
  if (m_pid == 0) {
    int null = open("/dev/null", O_RDONLY);
    dup2(null, STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execve(argp[0], argp.data(), envp.data());
    _exit(127);
  }
  close(out[1]);
  close(err[1]);
  m_outFd = out[0];
  m_errFd = err[0];
}

CliProcess::~CliProcess() {
  if (m_pid > 0 && !m_reaped) {
    kill(m_pid, SIGKILL);
    Reap(true);
  }
  if (m_outFd >= 0) close(m_outFd);
  if (m_errFd >= 0) close(m_errFd);
}

void CliProcess::Pump(int timeoutMs) {
  pollfd fds[2] = {{m_outFd, POLLIN, 0}, {m_errFd, POLLIN, 0}};
  if (poll(fds, 2, timeoutMs) <= 0) return;
  for (pollfd& p : fds) {
    if (p.fd < 0 || !(p.revents & (POLLIN | POLLHUP))) continue;
    char buffer[4096];
    ssize_t n = read(p.fd, buffer, sizeof buffer);
    std::string& sink = p.fd == m_outFd ? m_result.out : m_result.err;
    if (n > 0) {
      sink.append(buffer, static_cast<size_t>(n));
    } else {
      close(p.fd);
      (p.fd == m_outFd ? m_outFd : m_errFd) = -1;
    }
  }
}

bool CliProcess::Reap(bool block) {
  if (m_reaped) return true;
  int status = 0;
  if (waitpid(m_pid, &status, block ? 0 : WNOHANG) != m_pid) return false;
  m_reaped = true;
  m_result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

bool CliProcess::WaitForErr(const std::string& text, int timeoutMs) {
  auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (m_result.err.find(text) == std::string::npos) {
    if (m_errFd < 0 || MsLeft(end) == 0) return false;
    Pump(std::min(MsLeft(end), 100));
  }
  return true;
}

void CliProcess::Signal(int signo) {
  if (m_pid > 0 && !m_reaped) kill(m_pid, signo);
}

CliResult CliProcess::Finish(int timeoutMs) {
  if (m_pid <= 0) return m_result;
  auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while ((m_outFd >= 0 || m_errFd >= 0) && MsLeft(end) > 0) Pump(std::min(MsLeft(end), 100));
  if (!Reap(false)) {
    while (!Reap(false) && MsLeft(end) > 0) Pump(50);
    if (!Reap(false)) {
      kill(m_pid, SIGKILL);
      Reap(true);
    }
  }
  return m_result;
}

CliResult RunCli(const std::vector<std::string>& args, const Environment& env, int timeoutMs) {
  CliProcess process(args, env);
  return process.Finish(timeoutMs);
}

std::vector<std::pair<std::string, pid_t>> StartedPids(const std::string& text) {
  std::vector<std::pair<std::string, pid_t>> pids;
  std::regex started(R"(^Started .*\((.+), pid (\d+)\)$)");
  for (const std::string& line : ovtest::Lines(text)) {
    std::smatch m;
    if (std::regex_match(line, m, started)) pids.emplace_back(m[1].str(), std::stoi(m[2].str()));
  }
  return pids;
}

bool ProcessAlive(pid_t pid) {
  std::string stat = ovtest::ReadFile("/proc/" + std::to_string(pid) + "/stat");
  if (stat.empty()) return false;
  size_t close = stat.rfind(')');
  return close == std::string::npos || close + 2 >= stat.size() || stat[close + 2] != 'Z';
}

std::string ProcessProgram(pid_t pid) {
  std::string cmdline = ovtest::ReadFile("/proc/" + std::to_string(pid) + "/cmdline");
  return std::filesystem::path(cmdline.c_str()).filename().string();
}

}  // namespace clitest
