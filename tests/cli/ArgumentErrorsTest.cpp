// Wrong command lines: each one costs the user one clear line and a
// non-zero exit, before anything is recorded.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "CliEnvironment.h"

namespace clitest {
namespace {

struct BadCall {
  std::vector<std::string> args;
  std::string mentions;  // what the line must name, so the user sees what to fix
};

void ExpectOneLine(const CliResult& r, int exitCode, const std::string& mentions,
                   const std::string& context) {
  SCOPED_TRACE(context);
  EXPECT_EQ(r.exitCode, exitCode) << r.err;
  std::vector<std::string> lines = r.ErrLines();
  ASSERT_EQ(lines.size(), 1u) << r.err;
  EXPECT_EQ(lines[0].rfind("orvanta: ", 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find(mentions), std::string::npos) << lines[0];
  EXPECT_EQ(r.out, "");
}

std::string Joined(const std::vector<std::string>& args) {
  std::string text;
  for (const std::string& a : args) text += a + " ";
  return text;
}

TEST(ArgumentErrors, EachWrongCommandLineGivesOneLineAndUsageExit) {
  const BadCall calls[] = {
      {{"record", "--bogus", "out.mp4"}, "--bogus"},
      {{"record", "--codec", "vp9", "out.mp4"}, "vp9"},
      {{"record"}, "output file"},
      {{"record", "a.mp4", "b.mp4"}, "b.mp4"},
      {{"record", "--fps", "0", "out.mp4"}, "--fps"},
      {{"record", "--fps", "thirty", "out.mp4"}, "thirty"},
      {{"record", "--quality", "9", "out.mp4"}, "--quality"},
      {{"record", "--region", "0,0,640", "out.mp4"}, "--region"},
      {{"record", "--region", "0,0,0,480", "out.mp4"}, "--region"},
      {{"record", "--window", "nowindow", "out.mp4"}, "nowindow"},
      {{"record", "--window", "0x400001", "--region", "0,0,64,64", "out.mp4"}, "--window"},
      {{"record", "--follow", "out.mp4"}, "--region"},
      {{"record", "--follow", "--center", "--region", "0,0,64,64", "out.mp4"}, "--center"},
      {{"record", "--seconds", "-3", "out.mp4"}, "--seconds"},
      {{"record", "--trim", "5,2", "out.mp4"}, "--trim"},
      {{"record", "--seconds", "2", "--trim", "3,", "out.mp4"}, "--trim"},
      {{"record", "--fps"}, "--fps"},
      {{"record", "--codec", "gif", "--system-audio", "out.gif"}, "sound"},
      {{"record", "--codec", "h265", "out.gif"}, ".mp4"},
      {{"record", "out.avi"}, "out.avi"},
      {{"frobnicate"}, "frobnicate"},
      {{"displays", "extra"}, "displays"},
      {{"demo", "--bogus"}, "--bogus"},
      {{"demo", "--seconds", "0"}, "--seconds"},
  };
  for (const BadCall& call : calls)
    ExpectOneLine(RunCli(call.args), 2, call.mentions, Joined(call.args));
}

TEST(ArgumentErrors, UnwritableOutputIsRefusedBeforeRecording) {
  ovtest::ScratchFolder scratch("ovcliout");
  std::string file = scratch.Path() + "/plain-file";
  ovtest::WriteFile(file, "x");
  std::string folder = scratch.Path() + "/folder.mp4";
  ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
  size_t tempBefore = TempEntries();
  for (const std::string& out : {scratch.Path() + "/missing/out.mp4", file + "/out.mp4", folder}) {
    CliResult r = RunCli({"record", "--seconds", "1", out});
    ExpectOneLine(r, 2, out, out);
  }
  // Nothing was started: no temp folder was made for a recording.
  EXPECT_EQ(TempEntries(), tempBefore);
}

TEST(ArgumentErrors, TargetsTheDisplayCannotOfferAreNamed) {
  ovtest::ScratchFolder scratch("ovcliout");
  std::string out = scratch.Path() + "/out.mp4";
  size_t tempBefore = TempEntries();
  ExpectOneLine(RunCli({"record", "--region", "1000,600,400,200", out}), 2, "outside display 0",
                "region past the right edge");
  ExpectOneLine(RunCli({"record", "--region", "-10,0,100,100", out}), 2, "1280x720 at 0,0",
                "region left of the screen");
  ExpectOneLine(RunCli({"record", "--display", "3", out}), 2, "no display 3", "display 3");
  ExpectOneLine(RunCli({"record", "--window", "0x7ffffe", out}), 2, "0x7ffffe",
                "window that does not exist");
  EXPECT_EQ(TempEntries(), tempBefore);
  EXPECT_FALSE(std::filesystem::exists(out));
}

TEST(ArgumentErrors, WithoutDisplayRecordingSaysWhatIsMissing) {
  ovtest::ScratchFolder scratch("ovcliout");
  CliResult r = RunCli({"record", scratch.Path() + "/out.mp4"}, WithoutDisplay());
  ExpectOneLine(r, 1, "DISPLAY", "record");
  ExpectOneLine(RunCli({"displays"}, WithoutDisplay()), 1, "DISPLAY", "displays");
}

TEST(ArgumentErrors, CodecsOfALaterVersionSaySoUntilTheyArrive) {
  ovtest::ScratchFolder scratch("ovcliout");
  if (!EngineExports("WMMux")) {
    ExpectOneLine(RunCli({"record", "--codec", "wmv", scratch.Path() + "/out.wmv"}), 1,
                  "WMV recording is not available in this build yet", "wmv");
  }
  if (!EngineExports("GIFMux")) {
    ExpectOneLine(RunCli({"record", "--codec", "gif", scratch.Path() + "/out.gif"}), 1,
                  "GIF recording is not available in this build yet", "gif");
  }
}

}  // namespace
}  // namespace clitest
