// `orvanta displays` and `orvanta devices` report what the engine found.
#include <gtest/gtest.h>

#include "CliEnvironment.h"

namespace clitest {
namespace {

TEST(Listing, DisplaysShowsTheScreenOfTheServer) {
  CliResult r = RunCli({"displays"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  std::vector<std::string> lines = ovtest::Lines(r.out);
  ASSERT_EQ(lines.size(), 2u) << r.out;  // heading and the one screen of the Xvfb
  EXPECT_NE(lines[1].find("1280x720"), std::string::npos) << lines[1];
  EXPECT_NE(lines[1].find("0,0"), std::string::npos) << lines[1];
}

TEST(Listing, DevicesTellsWhichCodecsThisBuildRecords) {
  CliResult r = RunCli({"devices"}, WithoutDisplay());
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto lineOf = [&](const std::string& start) {
    for (const std::string& line : ovtest::Lines(r.out))
      if (line.rfind(start, 0) == 0) return line;
    return std::string();
  };
  std::string h264 = lineOf("  h264 ");
  ASSERT_FALSE(h264.empty()) << r.out;
  EXPECT_EQ(h264.find("not available") == std::string::npos, EncoderLibraryPresent()) << h264;
  for (const char* later : {"  wmv ", "  gif "}) EXPECT_FALSE(lineOf(later).empty()) << r.out;
  std::string mp4 = lineOf("  mp4 ");
  EXPECT_EQ(mp4.find("not available yet") == std::string::npos, AssemblyPresent()) << mp4;
  // Audio endpoints: listed once the engine has a catalogue, said so until then.
  EXPECT_NE(r.out.find("Audio endpoints\n  "), std::string::npos) << r.out;
}

}  // namespace
}  // namespace clitest
