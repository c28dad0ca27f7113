// The temp set: names, freeing with and without deletion, folder clean-up.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "core/Globals.h"
#include "orvanta/orvanta.h"
#include "session/CapturedFiles.h"
#include "support/Engine.h"

namespace fs = std::filesystem;

namespace {

void Touch(const fs::path& path) { ovtest::WriteFile(path.string(), "x"); }

class CapturedFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_videoOpt = VideoOpt{};
    g_videoOpt.bStream = 1;
    g_videoOpt.CodecType = CodecType_H264;
    g_videoOpt.rcScreen = {10, 20, 650, 500};
    g_bAudioEnabled[0] = g_bAudioEnabled[1] = 1;
    folder = fs::path(m_scratch.Path()) / "set";
    ov::PrepareCapturedFiles(folder.wstring().c_str());
  }
  void TearDown() override { FreeCapturedFile(0); }
  ovtest::ScratchFolder m_scratch{"ovfiles"};
  fs::path folder;
};

// The record names the files of the options; freeing without deletion keeps
// them and forgets the record; freeing with deletion removes the set (the
// microphone file was never written) and nothing else.
TEST_F(CapturedFilesTest, RecordNamesTheFilesAndFreeingKeepsOrDeletesThem) {
  CapturedFile* file = GetCapturedFile();
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(fs::path(file->szScreenCaptureFile), folder / "ScreenCapture.h264");
  EXPECT_EQ(fs::path(file->szWaveOutFile), folder / "Speaker.wav");
  EXPECT_EQ(fs::path(file->szWaveInFile), folder / "AudioCapture.wav");
  EXPECT_EQ(file->nWidth, 640);
  EXPECT_EQ(file->nHeight, 480);
  EXPECT_TRUE(file->bUseWaveOut && file->bUseWaveIn && file->bScreenStream);
  for (const char* name :
       {"ScreenCapture.h264", "ScreenCapture.h264.idx", "Speaker.wav", "keep.txt"})
    Touch(folder / name);
  FreeCapturedFile(0);
  EXPECT_EQ(GetCapturedFile(), nullptr);
  FreeCapturedFile(1);  // nothing left to work on
  EXPECT_TRUE(fs::exists(folder / "ScreenCapture.h264"));

  ov::PrepareCapturedFiles(folder.wstring().c_str());
  FreeCapturedFile(1);
  for (const char* name : {"ScreenCapture.h264", "ScreenCapture.h264.idx", "Speaker.wav"})
    EXPECT_FALSE(fs::exists(folder / name)) << name;
  EXPECT_TRUE(fs::exists(folder / "keep.txt"));
}

TEST_F(CapturedFilesTest, DeleteFolderRemovesOnlyTempExtensionsCaseSensitively) {
  for (const char* name : {"a.wmv", "b.wav", "d.idx", "e.h264", "A.WMV", "movie.mp4", "noext"})
    Touch(folder / name);
  fs::create_directory(folder / "sub.wav");
  Touch(folder / "sub.wav" / "inner.wav");
  EXPECT_EQ(DeleteFolder(folder.wstring().c_str()), 1);
  std::set<std::string> left;
  for (const auto& e : fs::directory_iterator(folder)) left.insert(e.path().filename().string());
  EXPECT_EQ(left, (std::set<std::string>{"A.WMV", "movie.mp4", "noext", "sub.wav"}));
  EXPECT_TRUE(fs::exists(folder / "sub.wav" / "inner.wav"));

  ovtest::LogMark mark;
  EXPECT_EQ(DeleteFolder(L"/tm"), 0);
  EXPECT_NE(mark.Text().find("Error temporary folder:/tm\n"), std::string::npos);
  EXPECT_EQ(DeleteFolder((folder / "missing").wstring().c_str()), 0);
  EXPECT_EQ(DeleteFolder(nullptr), 0);
  EXPECT_GT(GetDiskFreeBytes(folder.wstring().c_str()), 0u);
  EXPECT_EQ(GetDiskFreeBytes(L"/no/such/volume/here"), 0u);
  EXPECT_EQ(GetDiskFreeBytes(nullptr), 0u);
}

}  // namespace
