// The mux program run by hand, with records that the engine would never
// write: it must refuse each with a log line and a non-zero exit.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "TempSet.h"
#include "core/Log.h"
#include "formats/MuxRecord.h"
#include "platform/AnonymousFile.h"
#include "platform/ChildProcess.h"
#include "platform/Library.h"
#include "platform/LogFile.h"
#include "platform/SharedMemory.h"
#include "support/Engine.h"

namespace {

constexpr int kRate = 48000;

void SetPath(char16_t* field, const std::string& ascii) {
  size_t i = 0;
  for (; i < ascii.size() && i + 1 < ov::kMuxPathChars; ++i) field[i] = ascii[i];
  field[i] = u'\0';
}

// A record for an ADTS file from one second of 16-bit stereo.
class MuxProgramTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(m_audio.Create(ov::TempFolder()), 0);
    std::vector<int16_t> samples(kRate * 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<int16_t>(i * 37 % 2000);
    ASSERT_EQ(m_audio.Write(samples.data(), samples.size() * 2), 0);
    ASSERT_EQ(m_record.Create(ov::kMuxRecordSize), 0);
    ov::MuxRecord& r = Record();
    r.size = ov::kMuxRecordSize;
    SetPath(r.outputPath, Output());
    r.container = ov::kMuxAdts;
    r.noVideo = 1;
    r.audioChannels = 2;
    r.audioRate = kRate;
    std::strcpy(r.encoder, "libfdk_aac");
    r.audioFd = m_audio.Fd();
    r.audioFrames = kRate;
  }

  ov::MuxRecord& Record() { return *static_cast<ov::MuxRecord*>(m_record.Data()); }
  std::string Output() const { return m_out.Path() + "/out.aac"; }

  // Runs mux on the record; its exit code.
  int Run(const ov::SharedMemory& record, std::vector<std::string> args = {}) {
    ov::ChildLaunch launch;
    launch.program = ov::HelperFolder() + "/mux";
    launch.args = args.empty() ? std::vector<std::string>{"m", std::to_string(ov::LogFd()),
                                                          std::to_string(record.Fd())}
                               : args;
    launch.inherit = {record.Fd(), ov::LogFd(), m_audio.Fd()};
    launch.stdFd = ov::ChildStdHandle();
    ov::ChildProcess child;
    EXPECT_EQ(child.Start(launch), 0);
    int code = -1000;
    EXPECT_TRUE(child.Wait(60000, &code));
    return code;
  }

  ovtest::ScratchFolder m_out{"ovmuxprog"};
  ov::AnonymousFile m_audio;
  ov::SharedMemory m_record;
};

TEST_F(MuxProgramTest, OnlyAGoodRecordMakesAFile) {
  const std::function<void(ov::MuxRecord*)> spoils[] = {
      [](ov::MuxRecord* r) { r->size = 1000; },
      [](ov::MuxRecord* r) { r->container = 9; },
      [](ov::MuxRecord* r) {
        for (char16_t& c : r->outputPath) c = u'a';
      },
      [](ov::MuxRecord* r) { r->outputPath[3] = 0xD800; },  // a broken surrogate
      [](ov::MuxRecord* r) { r->noAudio = 7; },
      [](ov::MuxRecord* r) { r->audioChannels = 0; },
      [](ov::MuxRecord* r) { std::strcpy(r->encoder, "opus"); },
      [](ov::MuxRecord* r) { r->audioFd = 999; },  // not inherited
      [](ov::MuxRecord* r) { r->noAudio = 1; },    // nothing to write
      [](ov::MuxRecord* r) {                       // an empty frame range
        r->container = ov::kMuxMp4;
        r->noVideo = 0;
        SetPath(r->videoPath, "/nonexistent/ScreenCapture.h264");
        SetPath(r->indexPath, "/nonexistent/ScreenCapture.h264.idx");
        r->firstFrame = r->endFrame = 5;
      }};
  // The good record first, so that each refusal is the spoil's.
  ASSERT_EQ(Run(m_record), 0);
  EXPECT_EQ(ov::MuxProgress(&Record()).load(), 100);
  EXPECT_EQ(ovtest::Codecs(Output()), "aac");
  std::filesystem::remove(Output());
  const ov::MuxRecord good = Record();
  for (size_t i = 0; i < std::size(spoils); ++i) {
    Record() = good;
    spoils[i](&Record());
    const ovtest::LogMark mark;
    EXPECT_EQ(Run(m_record), 1) << "spoil " << i;
    EXPECT_NE(mark.Text().find("[ERR]  mux: bad record"), std::string::npos) << i << mark.Text();
  }
  ov::SharedMemory tiny;
  ASSERT_EQ(tiny.Create(100), 0);
  const ovtest::LogMark mark;
  EXPECT_EQ(Run(tiny), 1);
  EXPECT_EQ(Run(m_record, {"m", std::to_string(ov::LogFd()), "x"}), 2);
  EXPECT_EQ(Run(m_record, {"q"}), 2);
  EXPECT_NE(mark.Text().find("mux: bad record: mapping too small"), std::string::npos);
  EXPECT_NE(mark.Text().find("mux: usage"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(Output()));
}

// Polls up to five seconds.
template <typename Done>
bool Eventually(Done done) {
  for (int i = 0; i < 500 && !done(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return done();
}

TEST(ChildProcessTest, ChildDiesWithTheThreadThatStartedItOrAtTheEnd) {
  ov::ChildProcess orphan;
  std::thread([&] {
    ov::ChildLaunch launch;
    launch.program = "/bin/sleep";
    launch.args = {"30"};
    EXPECT_EQ(orphan.Start(launch), 0);
  }).join();
  int code = 0;
  ASSERT_TRUE(orphan.Wait(10000, &code));
  EXPECT_EQ(code, -SIGKILL);

  // Ending the children ends what they started too.
  ovtest::ScratchFolder folder("ovgroup");
  const std::string pidFile = folder.Path() + "/pid";
  ov::ChildLaunch launch;
  launch.program = "/bin/sh";
  launch.args = {"-c", "sleep 30 & echo $! > '" + pidFile + "'; wait"};
  ov::ChildProcess child;
  ASSERT_EQ(child.Start(launch), 0);
  pid_t grandchild = 0;
  ASSERT_TRUE(
      Eventually([&] { return (grandchild = std::atoi(ovtest::ReadFile(pidFile).c_str())) > 0; }));
  ov::EndChildProcesses();
  ASSERT_TRUE(child.Wait(10000, &code));
  EXPECT_EQ(code, -SIGKILL);
  // No child of this process: gone once init has reaped it.
  EXPECT_TRUE(Eventually([&] { return kill(grandchild, 0) != 0; }));
}

}  // namespace
