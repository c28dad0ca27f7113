// Helpers shared by the test programs: scratch folders and child processes.
#pragma once

#include <string>
#include <vector>

namespace ovtest {

// A fresh folder under the system's temp folder, removed with its content
// when the object goes.
class ScratchFolder {
 public:
  explicit ScratchFolder(const char* tag = "orvanta");
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::string& Path() const { return m_path; }
  std::wstring WidePath() const;

 private:
  std::string m_path;
};

// Runs a shell command and returns what it printed on its standard output.
std::string RunCapture(const std::string& command, int* exitCode = nullptr);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);

// Splits text into lines without their terminators.
std::vector<std::string> Lines(const std::string& text);

}  // namespace ovtest
