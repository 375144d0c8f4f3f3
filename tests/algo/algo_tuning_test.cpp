// Decoding of the tuning record into knobs: zero words take the documented
// defaults, other words are scaled, out-of-range words are clamped.
#include <gtest/gtest.h>

#include <cstring>

#include "algo_driver.h"
#include "algo_tuning.h"
#include "open_algo_default_tuning.h"

namespace algo_test {
namespace {

using open_algo::AlgoKnobs;
using open_algo::AlgoTuning;

FlickerExtPara withWord(int index, int32_t value) {
  FlickerExtPara p = zeroTuning();
  int32_t words[open_algo::kTuningWords];
  std::memcpy(words, &p, sizeof(words));
  words[index] = value;
  std::memcpy(&p, words, sizeof(words));
  return p;
}

TEST(TuningDecode, ZeroRecordGivesTheDefaultTable) {
  FlickerExtPara table;
  std::memcpy(&table, open_algo::kDefaultTuningWords, sizeof(table));
  const AlgoKnobs fromZero = AlgoTuning::defaults();
  const AlgoKnobs fromTable = AlgoTuning::decode(table);
  EXPECT_EQ(std::memcmp(&fromZero, &fromTable, sizeof(AlgoKnobs)), 0);
  EXPECT_DOUBLE_EQ(fromZero.minAmplitude, 0.004);
  EXPECT_DOUBLE_EQ(fromZero.dominance, 2.0);
  EXPECT_EQ(fromZero.minPastFrames, 2);
  EXPECT_EQ(fromZero.maxPastFrames, 8);
  EXPECT_EQ(fromZero.searchRange, 0);
}

TEST(TuningDecode, WordsMapToKnobs) {
  struct Row {
    int word;
    int32_t value;
    double AlgoKnobs::*real;
    int AlgoKnobs::*integer;
    double expected;
    int clamped;
  } rows[] = {
      // Scaled words.
      {open_algo::kWordMinAmplitude, 100, &AlgoKnobs::minAmplitude, nullptr, 0.01, 0},
      {open_algo::kWordSnrThreshold, 25, &AlgoKnobs::snrThreshold, nullptr, 2.5, 0},
      {open_algo::kWordDominancePct, 150, &AlgoKnobs::dominance, nullptr, 1.5, 0},
      {open_algo::kWordClipPermille, 900, &AlgoKnobs::clipFraction, nullptr, 0.9, 0},
      {open_algo::kWordMinVisibility, 500, &AlgoKnobs::minVisibility, nullptr, 0.5, 0},
      {open_algo::kWordFullScale, 4095, &AlgoKnobs::fullScale, nullptr, 4095, 0},
      {open_algo::kWordHoldOff, 7, nullptr, &AlgoKnobs::holdOff, 7, 0},
      {open_algo::kWordSwitchScore, 65, nullptr, &AlgoKnobs::switchScore, 65, 0},
      {open_algo::kWordSearchRange, 1200, nullptr, &AlgoKnobs::searchRange, 1200, 0},
      {open_algo::kWordMinPastFrames, 5, nullptr, &AlgoKnobs::minPastFrames, 5, 0},
      // Clamps: a dominance under 1x, a score over 100, a history beyond the
      // buffer, a negative range, a negative amplitude.
      {open_algo::kWordDominancePct, 50, &AlgoKnobs::dominance, nullptr, 1.0, 1},
      {open_algo::kWordSwitchScore, 250, nullptr, &AlgoKnobs::switchScore, 100, 1},
      {open_algo::kWordMaxPastFrames, 99, nullptr, &AlgoKnobs::maxPastFrames, 32, 1},
      {open_algo::kWordSearchRange, -4, nullptr, &AlgoKnobs::searchRange, 0, 1},
      {open_algo::kWordMinAmplitude, -3, &AlgoKnobs::minAmplitude, nullptr, 1e-4, 1},
      // maxPastFrames never falls below minPastFrames (2 by default).
      {open_algo::kWordMaxPastFrames, 1, nullptr, &AlgoKnobs::maxPastFrames, 2, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << "word " << row.word << " = " << row.value);
    int clamped = -1;
    const AlgoKnobs k = AlgoTuning::decode(withWord(row.word, row.value), &clamped);
    if (row.real != nullptr) {
      EXPECT_DOUBLE_EQ(k.*row.real, row.expected);
    } else {
      EXPECT_EQ(k.*row.integer, static_cast<int>(row.expected));
    }
    EXPECT_EQ(clamped, row.clamped);
  }
}

// The unused words (linear models, EV thresholds, feature indices) change
// nothing.
TEST(TuningDecode, UnusedWordsAreIgnored) {
  const AlgoKnobs base = AlgoTuning::defaults();
  for (int word = open_algo::kWordMaxPastFrames + 1; word < open_algo::kTuningWords; ++word) {
    SCOPED_TRACE(word);
    const AlgoKnobs k = AlgoTuning::decode(withWord(word, 12345));
    EXPECT_EQ(std::memcmp(&base, &k, sizeof(AlgoKnobs)), 0);
  }
}

}  // namespace
}  // namespace algo_test
