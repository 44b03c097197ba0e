#include "host/worker_pool.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <latch>
#include <set>
#include <stdexcept>
#include <thread>

namespace MELDO_GLOBAL::host {
namespace {

/// Threads of the shares of one run; every share waits for all others, so that a pool which ran two
/// of them one after the other on one thread would never end.
std::vector<std::thread::id> ThreadsOfARun(i32 count) {
  std::vector<std::thread::id> threads(count);
  std::latch all(count);
  WorkerPool::Instance().Run(count, [&](i32 index) {
    threads[index] = std::this_thread::get_id();
    all.arrive_and_wait();
  });
  return threads;
}

TEST(WorkerPool, EveryShareRunsOnItsOwnThread) {
  for (const i32 count : {1, 2, 5, 64, 3}) {
    const auto threads = ThreadsOfARun(count);
    EXPECT_EQ(threads[0], std::this_thread::get_id());
    EXPECT_EQ(std::set(threads.begin(), threads.end()).size(), static_cast<size_t>(count));
  }
  EXPECT_EQ(ThreadsOfARun(8), ThreadsOfARun(8)) << "workers must be the same from run to run";
}

TEST(WorkerPool, ManyShortRunsLoseNoShare) {
  i64 sums[6] = {};
  for (int run = 0; run < 5000; ++run)
    WorkerPool::Instance().Run(1 + run % 6, [&](i32 index) { sums[index] += run; });
  i64 expected[6] = {};
  for (int run = 0; run < 5000; ++run)
    for (i32 index = 0; index < 1 + run % 6; ++index) expected[index] += run;
  for (int i = 0; i < 6; ++i) EXPECT_EQ(sums[i], expected[i]);
}

TEST(WorkerPool, ThreadsShareItAndNestedRunsAreInLine) {
  constexpr i32 kCallers = 5, kRuns = 400;
  std::vector<i64> sums(kCallers);
  std::vector<std::jthread> callers;
  for (i32 caller = 0; caller < kCallers; ++caller)
    callers.emplace_back([&, caller] {
      for (i32 run = 0; run < kRuns; ++run) {
        std::array<i64, 4> parts{};
        WorkerPool::Instance().Run(4, [&](i32 index) {
          const auto self = std::this_thread::get_id();
          WorkerPool::Instance().Run(3, [&](i32 inner) {
            if (self == std::this_thread::get_id()) parts[index] += inner + 1;
          });
        });
        for (const i64 part : parts) sums[caller] += part;
        EXPECT_THROW(WorkerPool::Instance().Run(3,
                                                [](i32 i) {
                                                  if (i == 2) throw std::logic_error("");
                                                }),
                     std::logic_error);
      }
    });
  callers.clear();
  for (const i64 sum : sums) EXPECT_EQ(sum, kRuns * 4 * 6);
}

TEST(WorkerPool, ExceptionsReachTheCallerAfterAllSharesAreDone) {
  for (const i32 thrower : {0, 3}) {
    std::atomic<int> done{0};
    const auto run = [&] {
      WorkerPool::Instance().Run(4, [&](i32 index) {
        if (index == thrower) throw std::runtime_error("share failed");
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ++done;
      });
    };
    EXPECT_THROW(run(), std::runtime_error);
    EXPECT_EQ(done, 3);
  }
  EXPECT_EQ(ThreadsOfARun(4).size(), 4u);  // and the pool goes on
}

TEST(WorkerPool, CountsAreLimited) {
  int calls = 0;
  const auto share = [&](i32) { ++calls; };
  WorkerPool::Instance().Run(0, share);
  EXPECT_THROW(WorkerPool::Instance().Run(65, share), std::invalid_argument);
  EXPECT_EQ(calls, 0);
  SetThreadCount(1000);
  EXPECT_EQ(ThreadCount(), 64);
  SetThreadCount(3);
  EXPECT_EQ(ThreadCount(), 3);
  SetThreadCount(0);
  EXPECT_GE(ThreadCount(), 1);
}

TEST(HostThread, InterruptSignalsSetTheBreakFlag) {
  InstallInterruptHandlers();
  for (const int signal : {SIGINT, SIGTERM}) {
    MainThread().Clear();
    EXPECT_FALSE(MainThread().TestBreak());
    std::raise(signal);
    EXPECT_TRUE(MainThread().TestBreak());
  }
  MainThread().Clear();
  std::signal(SIGINT, SIG_DFL);
  std::signal(SIGTERM, SIG_DFL);
}

}  // namespace
}  // namespace MELDO_GLOBAL::host
