// The recording fake's allocation failures: injected exactly as armed, by
// position or by size, also with several threads allocating at once. The
// rest of the fake is exercised by every other test that links it.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <thread>
#include <utility>
#include <vector>

#include "fake_platform.h"

namespace {

namespace fp = fake_platform;

// The sequence alternates malloc(333), calloc(3, 111) (the size rule sees the
// total) and malloc(334).
TEST(FakeAllocTest, FailuresComeExactlyAsArmed) {
  struct Row {
    const char* what;
    int nth, size, count;     // failNthAllocation(nth), failAllocationsOfSize(size, count) if size
    std::vector<bool> fails;  // per allocation of the sequence
  } rows[] = {
      {"the second fails once", 2, 0, 0, {0, 1, 0, 0, 0}},
      {"nothing armed", 0, 0, 0, {0, 0, 0}},
      {"size rule, twice", 0, 333, 2, {1, 1, 0, 0, 0, 0}},
      {"size rule, always", 0, 333, -1, {1, 1, 0, 1, 1, 0}},
      // The position counts every allocation, also those the size rule failed.
      {"both rules", 4, 334, 1, {0, 0, 1, 1, 0, 0}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::reset();
    fp::failNthAllocation(1);
    fp::failNthAllocation(row.nth);  // re-arming replaces the last setting, 0 disarms
    if (row.size != 0)
      fp::failAllocationsOfSize(static_cast<size_t>(row.size), row.count);
    int failures = 0;
    for (size_t i = 0; i < row.fails.size(); ++i) {
      errno = 0;
      void* p = i % 3 == 0 ? malloc(333) : i % 3 == 1 ? calloc(3, 111) : malloc(334);
      const bool fail = row.fails[i], enomem = errno == ENOMEM;  // before errno can change
      EXPECT_EQ(std::make_pair(p == nullptr, enomem), std::make_pair(fail, fail)) << i;
      failures += p == nullptr;
      free(p);
    }
    EXPECT_EQ(fp::failedAllocations(), failures);
  }
}

// Exactly one allocation fails however many threads race for the position.
TEST(FakeAllocTest, PositionFailsExactlyOnceAcrossThreads) {
  fp::reset();
  fp::failNthAllocation(4 * 200 / 2 + 1);  // half way through
  std::atomic<int> nulls{0};
  std::vector<std::thread> pool(4);
  for (auto& t : pool) {
    t = std::thread([&] {
      for (int i = 0; i < 200; ++i) {
        void* p = malloc(24);
        nulls += p == nullptr;
        free(p);
      }
    });
  }
  for (auto& t : pool) t.join();
  EXPECT_EQ(nulls.load(), 1);
  EXPECT_EQ(fp::failedAllocations(), 1);
}

}  // namespace
