#include "CliProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
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

std::string BinFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().string();
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
    m_pulse = std::make_unique<ovtest::PulseServer>();
    ASSERT_TRUE(m_pulse->Running()) << "pulseaudio did not start";
    // One epoch for both, so that each flash of the picture has its beep.
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const std::string epoch = std::to_string(now.tv_sec * 1000000000LL + now.tv_nsec);
    m_scene = ovtest::Spawn({OrvantaPath(), "scene", "--epoch", epoch, "--pointer"});
    m_tone = ovtest::Spawn({OrvantaPath(), "tone", "--epoch", epoch});
  }
  void TearDown() override {
    ovtest::Stop(m_tone);
    ovtest::Stop(m_scene);
    m_pulse.reset();
    m_xvfb.reset();
    g_temp.reset();
    m_documents.reset();
  }

 private:
  std::unique_ptr<ovtest::ScratchFolder> m_documents;
  std::unique_ptr<ovtest::XvfbServer> m_xvfb;
  std::unique_ptr<ovtest::PulseServer> m_pulse;
  pid_t m_scene = -1, m_tone = -1;
};

auto* const g_environment = ::testing::AddGlobalTestEnvironment(new CliEnvironment);

}  // namespace

std::string OrvantaPath() { return BinFolder() + "/../bin/orvanta"; }

bool EncoderLibraryPresent() {
  return access((BinFolder() + "/orvanta/libIntelCodec.so").c_str(), R_OK) == 0;
}

bool AssemblyPresent() {
  int code = -1;
  ovtest::RunCapture(
      "nm -D --defined-only '" + BinFolder() + "/liborvanta.so' | grep -qE ' T FFMux$'", &code);
  return access((BinFolder() + "/orvanta/mux").c_str(), X_OK) == 0 && code == 0;
}

const std::string& ChildTemp() { return g_temp->Path(); }

size_t TempEntries() {
  size_t n = 0;
  for (auto it = std::filesystem::directory_iterator(ChildTemp()); it != decltype(it)(); ++it) ++n;
  return n;
}

CliProcess::CliProcess(const std::vector<std::string>& args, const Environment& env) {
  std::vector<std::string> argv = {OrvantaPath()}, envs;
  argv.insert(argv.end(), args.begin(), args.end());
  for (char** e = environ; *e; ++e) {
    const std::string entry = *e;
    bool changed = false;
    for (const std::string& change : env)
      changed = changed || entry.rfind(change.substr(0, change.find('=')) + "=", 0) == 0;
    if (!changed) envs.push_back(entry);
  }
  for (const std::string& change : env)
    if (change.find('=') != std::string::npos) envs.push_back(change);
  std::vector<char*> argp, envp;
  for (std::string& a : argv) argp.push_back(a.data());
  for (std::string& e : envs) envp.push_back(e.data());
  argp.push_back(nullptr);
  envp.push_back(nullptr);
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return;
  m_pid = fork();
  if (m_pid == 0) {
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execve(argp[0], argp.data(), envp.data());
    _exit(127);
  }
  close(out[1]);
  close(err[1]);
  m_fds[0] = out[0];
  m_fds[1] = err[0];
}

CliProcess::~CliProcess() {
  if (m_pid > 0) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  for (int fd : m_fds)
    if (fd >= 0) close(fd);
}

void CliProcess::Pump(int timeoutMs) {
  pollfd fds[2] = {{m_fds[0], POLLIN, 0}, {m_fds[1], POLLIN, 0}};
  if (poll(fds, 2, timeoutMs) <= 0) return;
  for (int i = 0; i < 2; ++i) {
    if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
    char buffer[4096];
    const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
    if (n > 0) {
      (i == 0 ? m_result.out : m_result.err).append(buffer, static_cast<size_t>(n));
    } else {
      close(m_fds[i]);
      m_fds[i] = -1;
    }
  }
}

bool CliProcess::WaitForErr(const std::string& text, int timeoutMs) {
  auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (m_result.err.find(text) == std::string::npos) {
    if (m_fds[1] < 0 || MsLeft(end) == 0) return false;
    Pump(std::min(MsLeft(end), 100));
  }
  return true;
}

void CliProcess::Signal(int signo) {
  if (m_pid > 0) kill(m_pid, signo);
}

CliResult CliProcess::Finish(int timeoutMs) {
  if (m_pid <= 0) return m_result;
  auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  int status = 0;
  while (waitpid(m_pid, &status, WNOHANG) != m_pid) {
    if (MsLeft(end) == 0) {
      kill(m_pid, SIGKILL);
      waitpid(m_pid, &status, 0);
      break;
    }
    Pump(std::min(MsLeft(end), 50));
  }
  m_pid = -1;
  // What is still in the pipes; a grandchild holding them open is not waited for.
  for (int i = 0; i < 20 && (m_fds[0] >= 0 || m_fds[1] >= 0); ++i) Pump(50);
  m_result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return m_result;
}

CliResult RunCli(const std::vector<std::string>& args, const Environment& env, int timeoutMs) {
  return CliProcess(args, env).Finish(timeoutMs);
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
  size_t close = stat.rfind(')');
  return !stat.empty() &&
         (close == std::string::npos || close + 2 >= stat.size() || stat[close + 2] != 'Z');
}

std::string ProcessProgram(pid_t pid) {
  std::string cmdline = ovtest::ReadFile("/proc/" + std::to_string(pid) + "/cmdline");
  return std::filesystem::path(cmdline.c_str()).filename().string();
}

}  // namespace clitest
