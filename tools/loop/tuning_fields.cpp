#include "tuning_fields.h"

#include <cstring>
#include <limits>

#include "algo_tuning.h"
#include "open_algo_default_tuning.h"
#include "scenario_builder.h"

namespace flicker_loop {

namespace {

using open_algo::TuningWord;

// The open algorithm's names of the words it reads, with what each means
// (open_algo_default_tuning.h and algo/README.md describe them in full).
struct Knob {
  TuningWord word;
  const char* name;
  const char* meaning;
};

const Knob kKnobs[] = {
    {open_algo::kWordMinAmplitude, "min_amplitude", "least ripple amplitude, 1e-4 log units"},
    {open_algo::kWordSnrThreshold, "snr_threshold", "ripple SNR where evidence starts, x10"},
    {open_algo::kWordDominancePct, "dominance_pct", "% of the other ripple a vote needs"},
    {open_algo::kWordHoldOff, "hold_off", "detections without a switch after a change"},
    {open_algo::kWordSwitchBackMargin, "switch_back_margin", "extra score to switch back"},
    {open_algo::kWordFullScale, "full_scale", "pixel full scale, DN"},
    {open_algo::kWordNoiseFloor, "noise_floor", "pixel noise floor, DN"},
    {open_algo::kWordClipPermille, "clip_permille", "clipping level, per mille of full scale"},
    {open_algo::kWordMinVisibility, "min_visibility", "least |sin(phase advance / 2)|, per mille"},
    {open_algo::kWordSwitchScore, "switch_score", "score needed to switch"},
    {open_algo::kWordSearchRange, "search_range", "statistics lines analysed, 0 = all"},
    {open_algo::kWordMinPastFrames, "min_past_frames", "consistent detections before a switch"},
    {open_algo::kWordMaxPastFrames, "max_past_frames", "detections kept in the history"},
};

void addField(std::vector<TuningField>* fields, const std::string& name, size_t offset,
              size_t size) {
  TuningField f;
  f.name = name;
  f.offset = offset;
  f.size = size;
  if (offset < sizeof(FlickerExtPara)) {
    f.word = static_cast<int>(offset / sizeof(int32_t));
    for (const Knob& k : kKnobs) {
      if (k.word == f.word) {
        f.knob = k.name;
        f.meaning = k.meaning;
      }
    }
  }
  fields->push_back(f);
}

void addWords(std::vector<TuningField>* fields, const std::string& name, size_t offset, int count) {
  for (int i = 0; i < count; ++i) {
    addField(fields, name + "[" + std::to_string(i) + "]", offset + 4 * static_cast<size_t>(i), 4);
  }
}

void addModel(std::vector<TuningField>* fields, const std::string& name, size_t offset) {
  const char* parts[] = {"m", "b_l", "b_r", "offset"};
  for (size_t i = 0; i < 4; ++i) {
    addField(fields, name + "." + parts[i], offset + 4 * i, 4);
  }
}

std::vector<TuningField> makeFields() {
  using R = FLICKER_CUST_PARA;
  std::vector<TuningField> f;
  addWords(&f, "flickerFreq", offsetof(R, flickerFreq), 9);
  addField(&f, "flickerGradThreshold", offsetof(R, flickerGradThreshold), 4);
  addField(&f, "flickerSearchRange", offsetof(R, flickerSearchRange), 4);
  addField(&f, "minPastFrames", offsetof(R, minPastFrames), 4);
  addField(&f, "maxPastFrames", offsetof(R, maxPastFrames), 4);
  addModel(&f, "EV50_L50", offsetof(R, EV50_L50));
  addModel(&f, "EV50_L60", offsetof(R, EV50_L60));
  addModel(&f, "EV60_L50", offsetof(R, EV60_L50));
  addModel(&f, "EV60_L60", offsetof(R, EV60_L60));
  addWords(&f, "EV50_thresholds", offsetof(R, EV50_thresholds), 2);
  addWords(&f, "EV60_thresholds", offsetof(R, EV60_thresholds), 2);
  addWords(&f, "freq_feature_index", offsetof(R, freq_feature_index), 2);
  addField(&f, "sensor_setting.pclk", offsetof(R, sensor_setting.pclk), 8);
  addField(&f, "sensor_setting.line_length", offsetof(R, sensor_setting.line_length), 4);
  addField(&f, "sensor_setting.column_length", offsetof(R, sensor_setting.column_length), 4);
  addField(&f, "is_auto_gen", offsetof(R, is_auto_gen), 1);
  return f;
}

// The smallest and largest value a field of `size` bytes holds.
void typeRange(size_t size, int64_t* lo, int64_t* hi) {
  if (size == 1) {
    *lo = 0;
    *hi = std::numeric_limits<uint8_t>::max();
  } else if (size == 4) {
    *lo = std::numeric_limits<int32_t>::min();
    *hi = std::numeric_limits<int32_t>::max();
  } else {
    *lo = std::numeric_limits<int64_t>::min();
    *hi = std::numeric_limits<int64_t>::max();
  }
}

// The word as the algorithm reads it when `record` holds `value` there.
int32_t readAs(FLICKER_CUST_PARA record, const TuningField& field, int32_t value) {
  TuningFields::set(&record, field, value);
  FlickerExtPara para;
  memcpy(&para, &record, sizeof(para));
  const FlickerExtPara read = open_algo::AlgoTuning::effective(para);
  int32_t words[kFlickerExtParaWords];
  memcpy(words, &read, sizeof(words));
  return words[field.word];
}

}  // namespace

const std::vector<TuningField>& TuningFields::all() {
  static const std::vector<TuningField> fields = makeFields();
  return fields;
}

const TuningField* TuningFields::find(const std::string& name) {
  for (const TuningField& f : all()) {
    if (name == f.name || (!f.knob.empty() && name == f.knob)) {
      return &f;
    }
  }
  return nullptr;
}

int64_t TuningFields::get(const FLICKER_CUST_PARA& record, const TuningField& field) {
  const uint8_t* at = reinterpret_cast<const uint8_t*>(&record) + field.offset;
  if (field.size == 1) {
    return *at;
  }
  if (field.size == 4) {
    int32_t v;
    memcpy(&v, at, sizeof(v));
    return v;
  }
  int64_t v;
  memcpy(&v, at, sizeof(v));
  return v;
}

void TuningFields::set(FLICKER_CUST_PARA* record, const TuningField& field, int64_t value) {
  uint8_t* at = reinterpret_cast<uint8_t*>(record) + field.offset;
  if (field.size == 1) {
    *at = static_cast<uint8_t>(value);
  } else if (field.size == 4) {
    const int32_t v = static_cast<int32_t>(value);
    memcpy(at, &v, sizeof(v));
  } else {
    memcpy(at, &value, sizeof(value));
  }
}

bool TuningFields::parse(const std::string& text, TuningSetting* out, std::string* error) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) {
    *error = "bad setting '" + text + "': expected NAME=VALUE";
    return false;
  }
  const std::string name = text.substr(0, equals);
  const std::string value = text.substr(equals + 1);
  const TuningField* field = find(name);
  if (field == nullptr) {
    *error = "unknown tuning field '" + name + "' (flicker-sim tuning lists them)";
    return false;
  }
  int64_t lo = 0;
  int64_t hi = 0;
  typeRange(field->size, &lo, &hi);
  long parsed = 0;
  if (!parseInt(value, lo, hi, &parsed)) {
    *error = "bad value '" + value + "' for " + name + ": expected a whole number " +
             std::to_string(lo) + ".." + std::to_string(hi);
    return false;
  }
  out->field = field;
  out->value = parsed;
  return true;
}

int64_t TuningFields::effective(const FLICKER_CUST_PARA& record, const TuningField& field) {
  const int64_t value = get(record, field);
  return field.knob.empty() ? value : readAs(record, field, static_cast<int32_t>(value));
}

bool TuningFields::limits(const FLICKER_CUST_PARA& record, const TuningField& field, int64_t* lo,
                          int64_t* hi) {
  if (field.knob.empty()) {
    return false;
  }
  // The limits are where the extremes of the word land.
  *lo = readAs(record, field, std::numeric_limits<int32_t>::min());
  *hi = readAs(record, field, std::numeric_limits<int32_t>::max());
  return true;
}

std::vector<std::string> TuningFields::apply(const std::vector<TuningSetting>& settings,
                                             TuningTable* table) {
  for (FLICKER_CUST_PARA& record : table->records) {
    for (const TuningSetting& s : settings) {
      set(&record, *s.field, s.value);
    }
  }
  std::vector<std::string> warnings;
  for (const TuningSetting& s : settings) {
    const FLICKER_CUST_PARA& record = table->first();
    const int64_t read = effective(record, *s.field);
    // Zero is the documented way to ask for the default.
    if (s.value == 0 || read == s.value) {
      continue;
    }
    int64_t lo = 0;
    int64_t hi = 0;
    limits(record, *s.field, &lo, &hi);
    warnings.push_back(s.field->knob + " (" + s.field->name + ") = " + std::to_string(s.value) +
                       " is read as " + std::to_string(read) + " by the open algorithm (limits " +
                       std::to_string(lo) + ".." + std::to_string(hi) + ")");
  }
  return warnings;
}

}  // namespace flicker_loop
