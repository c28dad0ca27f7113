// A call run in a throw-away copy of the process: its bytes come back when
// it returns, and a fault, an early exit or a hang leave the caller's alone.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "platform/IsolatedCall.h"

namespace {

struct Bytes {
  int32_t values[6];
};

void FillThenFault(void* data, void*) {
  static_cast<Bytes*>(data)->values[0] = 99;
  void* page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  *static_cast<volatile int*>(page) = 1;
}

void FillThenExit(void* data, void*) {
  static_cast<Bytes*>(data)->values[0] = 99;
  _exit(0);
}

void FillThenHang(void* data, void*) {
  static_cast<Bytes*>(data)->values[0] = 99;
  for (;;) pause();
}

void UseContext(void* data, void* context) {
  static_cast<Bytes*>(data)->values[2] = *static_cast<int*>(context);
}

TEST(IsolatedCallTest, ReturnedCallsHandBackTheirBytesAndFaultsExitsAndHangsDoNot) {
  Bytes bytes{{1, 2, 3, 4, 5, 6}};
  int context = 77;
  EXPECT_EQ(ov::RunIsolated(&bytes, sizeof bytes, UseContext, &context, 10000).outcome,
            ov::IsolatedOutcome::Completed);
  EXPECT_EQ(bytes.values[2], 77);
  EXPECT_EQ(bytes.values[1], 2) << "bytes the call left alone come back as they were";

  const Bytes before = bytes;
  const struct {
    ov::IsolatedFn call;
    ov::IsolatedOutcome outcome;
    int signal;
  } cases[] = {
      {FillThenFault, ov::IsolatedOutcome::Crashed, SIGSEGV},
      {FillThenExit, ov::IsolatedOutcome::Failed, 0},
      {FillThenHang, ov::IsolatedOutcome::Crashed, SIGKILL},
  };
  for (const auto& c : cases) {
    ov::IsolatedResult result = ov::RunIsolated(&bytes, sizeof bytes, c.call, nullptr, 300);
    EXPECT_EQ(result.outcome, c.outcome);
    EXPECT_EQ(result.signal, c.signal);
    EXPECT_EQ(memcmp(&bytes, &before, sizeof bytes), 0);
  }
}

}  // namespace
