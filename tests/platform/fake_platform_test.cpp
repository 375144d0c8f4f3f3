// The recording fake's allocation failures: injected exactly as armed, by
// position, in malloc and calloc alike. The rest of the fake is exercised by
// every other test that links it.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <utility>
#include <vector>

#include "fake_platform.h"

namespace {

namespace fp = fake_platform;

// The sequence alternates malloc(333), calloc(3, 111) and malloc(334).
TEST(FakeAllocTest, FailuresComeExactlyAsArmed) {
  struct Row {
    const char* what;
    int nth;                  // failNthAllocation(nth)
    std::vector<bool> fails;  // per allocation of the sequence
  } rows[] = {
      {"the second fails once", 2, {0, 1, 0, 0, 0}},
      {"the fourth", 4, {0, 0, 0, 1, 0, 0}},
      {"nothing armed", 0, {0, 0, 0}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::reset();
    fp::failNthAllocation(1);
    fp::failNthAllocation(row.nth);  // re-arming replaces the last setting, 0 disarms
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

}  // namespace
