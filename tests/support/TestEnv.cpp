#include "support/TestEnv.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace ovtest {

ScratchFolder::ScratchFolder(const char* tag) {
  std::string pattern = (std::filesystem::temp_directory_path() / (std::string(tag) + ".XXXXXX"));
  char* made = mkdtemp(pattern.data());
  m_path = made ? made : "";
}

ScratchFolder::~ScratchFolder() {
  std::error_code ec;
  if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
}

std::wstring ScratchFolder::WidePath() const { return std::filesystem::path(m_path).wstring(); }

std::string RunCapture(const std::string& command, int* exitCode) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) {
    if (exitCode) *exitCode = -1;
    return out;
  }
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  int status = pclose(pipe);
  if (exitCode) *exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return out;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

}  // namespace ovtest
