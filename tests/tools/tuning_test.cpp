// Tuning by field name: settings parse or are refused with a reason, values
// the open algorithm reads otherwise are warned about, and an image written
// by `flicker-sim tuning` reads back through --tuning FILE, through the host
// NVRAM layer (FLICKER_NVRAM_IMAGE) and into the table a run hands over.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <ostream>

#include "case_names.h"
#include "tools_test_util.h"
#include "tuning_fields.h"

namespace {

using flicker_loop::TuningFields;
using flicker_loop::TuningSetting;

using tools_test::fieldOf;
using tools_test::loadedRecords;

TEST(TuningFieldsTest, SettingSetsTheNamedFieldOrSaysWhy) {
  const struct {
    const char* text;
    const char* field;  // the record field it sets; null when refused
    int64_t value;
    const char* reason;  // part of the refusal
  } rows[] = {
      // clang-format off
      // A knob name and the record name reach the same word.
      {"hold_off=2", "flickerFreq[3]", 2, nullptr},
      {"flickerFreq[3]=2", "flickerFreq[3]", 2, nullptr},
      // Negative words, a word of a linear model, the last word.
      {"EV50_L50.m=-7", "EV50_L50.m", -7, nullptr},
      {"freq_feature_index[1]=3", "freq_feature_index[1]", 3, nullptr},
      // Fields of other widths: a 64-bit clock above 32 bits, a byte.
      {"sensor_setting.pclk=5000000000", "sensor_setting.pclk", 5000000000LL, nullptr},
      {"is_auto_gen=255", "is_auto_gen", 255, nullptr},
      // Values that do not fit the field or are not whole numbers.
      {"is_auto_gen=256", nullptr, 0, "0..255"},
      {"hold_off=3000000000", nullptr, 0, "-2147483648..2147483647"},
      {"hold_off=2.5", nullptr, 0, "bad value '2.5' for hold_off"},
      {"hold_off=", nullptr, 0, "bad value '' for hold_off"},
      // No such field; no '='.
      {"hold=2", nullptr, 0, "unknown tuning field 'hold'"},
      {"hold_off", nullptr, 0, "expected NAME=VALUE"},
      // clang-format on
  };
  for (const auto& c : rows) {
    SCOPED_TRACE(c.text);
    TuningSetting setting;
    std::string error;
    const bool ok = TuningFields::parse(c.text, &setting, &error);
    if (c.field == nullptr) {
      EXPECT_FALSE(ok);
      EXPECT_NE(error.find(c.reason), std::string::npos) << error;
      continue;
    }
    ASSERT_TRUE(ok) << error;
    EXPECT_EQ(setting.field->name, c.field);
    FLICKER_CUST_PARA record{};
    TuningFields::set(&record, *setting.field, setting.value);
    EXPECT_EQ(TuningFields::get(record, *setting.field), c.value);
  }
}

TEST(TuningFieldsTest, WarnsWhenTheAlgorithmReadsAnotherValue) {
  const struct {
    std::vector<const char*> settings;
    const char* warning;  // part of the one warning expected; null: none
  } rows[] = {
      // Inside the limits; zero asks for the default.
      {{"hold_off=7"}, nullptr},
      {{"hold_off=0"}, nullptr},
      // Above and below a knob's limits.
      {{"hold_off=500"}, "hold_off (flickerFreq[3]) = 500 is read as 100"},
      {{"dominance_pct=50"}, "is read as 100 by the open algorithm (limits 100..1000)"},
      // A limit that follows another word: the noise floor stays under half
      // the full scale, so 600 is fine at a full scale of 2000 only.
      {{"noise_floor=600"}, "is read as 511"},
      {{"full_scale=2000", "noise_floor=600"}, nullptr},
      // Words the algorithm does not read are never clamped.
      {{"EV60_L60.offset=-99999"}, nullptr},
      {{"sensor_setting.line_length=70000"}, nullptr},
  };
  for (const auto& c : rows) {
    SCOPED_TRACE(c.settings.back());
    std::vector<TuningSetting> settings;
    std::string error;
    for (const char* text : c.settings) {
      TuningSetting s;
      ASSERT_TRUE(TuningFields::parse(text, &s, &error)) << error;
      settings.push_back(s);
    }
    flicker_loop::TuningTable table;
    ASSERT_TRUE(flicker_loop::TuningChoice::load("open", &table, &error)) << error;
    const std::vector<std::string> warnings = TuningFields::apply(settings, &table);
    // The value is written as given, whatever the algorithm makes of it.
    EXPECT_TRUE(table.uniform());
    EXPECT_EQ(TuningFields::get(table.first(), *settings.back().field), settings.back().value);
    if (c.warning == nullptr) {
      EXPECT_TRUE(warnings.empty()) << warnings.front();
    } else {
      ASSERT_EQ(warnings.size(), 1u);
      EXPECT_NE(warnings[0].find(c.warning), std::string::npos) << warnings[0];
    }
  }
}

class TuningImageTest : public ::testing::Test {
 protected:
  void TearDown() override {
    unsetenv("FLICKER_NVRAM_IMAGE");
    flicker_host::setNvramImage("");
  }
  tools_test::TempDir dir_;
  std::string image_ = dir_.path() + "/tuning.bin";
};

// "Every record alike" is about the fields: padding a writer left
// differently does not make records differ, one changed byte does.
TEST(TuningTableTest, UniformComparesFieldsNotPadding) {
  flicker_loop::TuningTable table;
  std::string error;
  ASSERT_TRUE(flicker_loop::TuningChoice::load("open", &table, &error)) << error;
  unsigned char* bytes = reinterpret_cast<unsigned char*>(&table.records.back());
  bytes[offsetof(FLICKER_CUST_PARA, sensor_setting) - 1] ^= 0x5a;  // padding before the setting
  bytes[sizeof(FLICKER_CUST_PARA) - 1] ^= 0x5a;                    // padding at the end
  EXPECT_TRUE(table.uniform());
  table.records.back().is_auto_gen ^= 1;
  EXPECT_FALSE(table.uniform());
}

// The image of `tuning --set ... --write` reads back the same through every
// door: --tuning FILE (JSON listing), the host NVRAM layer, --tuning host
// with FLICKER_NVRAM_IMAGE.
TEST_F(TuningImageTest, WrittenImageReadsBackEverywhere) {
  const tools_test::CommandOutput written = tools_test::runFlickerSim(
      {"tuning", "--tuning", "host", "--set", "hold_off=7", "--set", "EV50_L60.b_r=-3", "--set",
       "sensor_setting.pclk=6000000000", "--write", image_});
  ASSERT_EQ(written.status, 0) << written.err;
  EXPECT_TRUE(written.err.empty()) << "nothing clamped: " << written.err;

  const tools_test::CommandOutput listed =
      tools_test::runFlickerSim({"tuning", "--tuning", image_, "--json"});
  ASSERT_EQ(listed.status, 0) << listed.err;
  const nlohmann::json json = nlohmann::json::parse(listed.out);
  EXPECT_TRUE(json.at("uniform").get<bool>());
  std::map<std::string, int64_t> values;
  for (const auto& f : json.at("fields")) values[f.at("field")] = f.at("value").get<int64_t>();
  EXPECT_EQ(values.size(), TuningFields::all().size());
  EXPECT_EQ(values["flickerFreq[3]"], 7);
  EXPECT_EQ(values["EV50_L60.b_r"], -3);
  EXPECT_EQ(values["sensor_setting.pclk"], 6000000000LL);
  // Fields not set keep the host table's values.
  EXPECT_EQ(values["sensor_setting.line_length"], 5000);

  flicker_host::setNvramImage("");  // the environment's image, as a program without --tuning
  setenv("FLICKER_NVRAM_IMAGE", image_.c_str(), 1);
  for (const FLICKER_CUST_PARA& record : loadedRecords()) {
    ASSERT_EQ(fieldOf(record, "hold_off"), 7);
    ASSERT_EQ(fieldOf(record, "sensor_setting.pclk"), 6000000000LL);
  }
  FlickerExtPara algo{};
  std::string error;
  ASSERT_TRUE(flicker_loop::TuningChoice::apply("host", &algo, &error)) << error;
  EXPECT_EQ(algo.flickerFreq[3], 7);
  EXPECT_EQ(algo.EV50_L60.b_r, -3);
}

struct SetCase {
  const char* name;
  std::vector<std::string> args;
  const char* out;  // part of the output
};

CASE_PRINTS_ITS_NAME(SetCase)

class SetOptionTest : public ::testing::TestWithParam<SetCase> {};

// A run or an evaluation hands the manager its tuning with the settings in
// every record, and says which value the algorithm will not take as given.
TEST_P(SetOptionTest, HandsEveryRecordOverAsSet) {
  tools_test::useOpenTuning();
  std::vector<std::string> args = GetParam().args;
  args.insert(args.end(), {"--set", "min_past_frames=3", "--set", "switch_score=400"});
  const tools_test::CommandOutput r = tools_test::runFlickerSim(args);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("flicker-sim: warning: switch_score (flickerGradThreshold) = 400 is read "
                       "as 100"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.out.find(GetParam().out), std::string::npos) << r.out;
  for (const FLICKER_CUST_PARA& record : loadedRecords()) {
    ASSERT_EQ(fieldOf(record, "min_past_frames"), 3);
    ASSERT_EQ(fieldOf(record, "switch_score"), 400);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Commands, SetOptionTest,
    ::testing::Values(
        SetCase{"Run", tools_test::smallRunArgs("daylight", {"--frames", "4", "--csv"}),
                "frame,sensor,"},
        // One cell of the quick grid, in a run of a second.
        SetCase{"Eval",
                {"eval", "--quick", "--only", "mains=50", "--only", "fps=25", "--only", "start=60",
                 "--only", "motion=still", "--seconds", "1", "--jobs", "1", "--timing-runs", "0"},
                "tuning open, min_past_frames=3, switch_score=400 (words"}),
    case_names::CaseName());

}  // namespace
