// The dump writer on its own: the numbered folders and their counter, and
// the bytes of flk.raw and flk_pure.raw, decoded here by hand and by the
// tools' reader.
#include "flicker_dump_writer.h"

#include "adapter_test_support.h"
#include "flicker_log.h"

namespace adapter_test {
namespace {

constexpr int32_t kCount = 180;

class FlickerDumpWriterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fp::reset();
    flicker_log::g_adapterLevel = 0;
    for (int32_t i = 0; i < kCount; ++i) {
      slot0_.push_back(-1000000007LL * i);
      slot1_.push_back(1000000009LL * i + 3);
    }
    for (int i = 0; i < kFlkAuxWords; ++i) aux_[i] = 11 * i - 40;
    memset(&para_, 0, sizeof(para_));
    para_.statsSlot0 = slot0_.data();
    para_.statsSlot1 = slot1_.data();
    para_.winValue1 = 666;
    para_.winValue2 = 984;
    para_.freq = 60;
    para_.pixelClk = -5;
    para_.lineLength = 0x89ABCDEF;
    para_.exposure = 8333;
  }
  std::vector<int64_t> slot0_, slot1_;
  int32_t aux_[kFlkAuxWords];
  FlkDetectPara para_;
};

TEST_F(FlickerDumpWriterTest, CounterNamesTheFolderAndAdvancesFirst) {
  struct Row {
    const char *what, *counter;  // counter file content; null: no file
    bool root;                   // the dump root exists already (an existing root is no error)
    std::vector<std::string> folders;  // one per dump
    const char *after, *error;         // the counter afterwards; logged, or null
  } rows[] = {
      {"missing counter", nullptr, true, {"000"}, "1", nullptr},
      {"garbage counter", "abc", true, {"000"}, "1", "fscanf error(1)."},
      {"counter 7", "7", true, {"007"}, "8", nullptr},
      {"three digits widen at 1000", "999", true, {"999", "1000"}, "1001", nullptr},
      // The counter is written before the root is made, so it is lost once.
      {"missing root is created", nullptr, false, {"000", "000"}, "1", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    fp::reset();  // a fresh data root
    // The folders above the dump root exist on a device.
    std::filesystem::create_directories(row.root ? dumpRoot()
                                                 : fp::hostPath("/data/vendor/flicker"));
    if (row.counter != nullptr)
      std::ofstream(counterFile()) << row.counter;
    for (const std::string& folder : row.folders) {
      FlickerDumpWriter::dumpFLKO(para_, aux_, kCount);
      EXPECT_EQ(readFile(dumpFile(folder)).size(), flicker_dump::flkRawSize(kCount)) << folder;
    }
    EXPECT_EQ(readFile(counterFile()), row.after);
    EXPECT_FALSE(std::filesystem::exists(dumpFile(row.folders.back(), "flk_pure.raw")));
    EXPECT_TRUE(row.error == nullptr || fp::loggedError(row.error));
  }
}

TEST_F(FlickerDumpWriterTest, FilesHoldCountColumnsAndTrailer) {
  std::filesystem::create_directories(dumpRoot());
  fp::setProperty("vendor.debug.flk_dump_pure", 1);
  FlickerDumpWriter::dumpFLKO(para_, aux_, kCount);

  // flk.raw by hand: count, slot 1's column, slot 0's column, then six
  // values and the nine auxiliary words.
  const std::string raw = readFile(dumpFile("000"));
  ASSERT_EQ(raw.size(), 4u + 16u * kCount + 60u);
  auto word = [&raw](size_t offset) {
    int32_t v;
    memcpy(&v, raw.data() + offset, sizeof(v));
    return v;
  };
  EXPECT_EQ(word(0), kCount);
  EXPECT_EQ(memcmp(raw.data() + 4, slot1_.data(), sizeof(int64_t) * kCount), 0);
  EXPECT_EQ(
      memcmp(raw.data() + 4 + sizeof(int64_t) * kCount, slot0_.data(), sizeof(int64_t) * kCount),
      0);
  const size_t t = 4 + 2 * sizeof(int64_t) * kCount;
  std::vector<int32_t> trailer;
  for (size_t at = t; at < raw.size(); at += 4) trailer.push_back(word(at));
  std::vector<int32_t> expect = {666, 984, 60, -5, static_cast<int32_t>(0x89ABCDEF), 8333};
  expect.insert(expect.end(), aux_, aux_ + kFlkAuxWords);
  EXPECT_EQ(trailer, expect);

  // The tools read the same file back field by field.
  flicker_dump::FlkRawDump dump;
  std::string error;
  ASSERT_TRUE(flicker_dump::readFlkRaw(dumpFile("000"), &dump, &error)) << error;
  EXPECT_TRUE(dump.slot1 == slot1_ && dump.slot0 == slot0_);
  EXPECT_EQ(std::vector<int64_t>({dump.winValue1, dump.winValue2, dump.freq, dump.pixelClk,
                                  dump.lineLength, dump.exposure, dump.aux[8]}),
            std::vector<int64_t>({666, 984, 60, -5, 0x89ABCDEF, 8333, aux_[8]}));

  // flk_pure.raw: the two columns only, in the same order.
  EXPECT_EQ(readFile(dumpFile("000", "flk_pure.raw")), raw.substr(4, 2 * sizeof(int64_t) * kCount));
  flicker_dump::FlkPureDump pure;
  ASSERT_TRUE(flicker_dump::readFlkPureRaw(dumpFile("000", "flk_pure.raw"), kCount, &pure, &error));
  EXPECT_TRUE(pure.slot1 == slot1_ && pure.slot0 == slot0_);
}

TEST_F(FlickerDumpWriterTest, CountOutsideTheBuffersWritesNoFile) {
  std::filesystem::create_directories(dumpRoot());
  for (int32_t count : {-1, flicker_dump::kMaxEntries + 1}) {
    fp::clearLogs();
    FlickerDumpWriter::dumpFLKO(para_, aux_, count);
    EXPECT_TRUE(fp::loggedError("[dumpFLKO] statistics count(")) << count;
    EXPECT_FALSE(std::filesystem::exists(dumpFile(count < 0 ? "000" : "001"))) << count;
  }
}

}  // namespace
}  // namespace adapter_test
