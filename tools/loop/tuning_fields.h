// TuningFields: the fields of the tuning record (FLICKER_CUST_PARA) by name,
// for the tools that show and edit tuning.
//
// Every field has its record name ("flickerFreq[3]", "EV50_L50.m",
// "sensor_setting.pclk", "is_auto_gen"); the words the open algorithm reads
// also have its knob name ("hold_off"), and either name finds the field. A
// setting is NAME=VALUE with a whole number that fits the field's type.
//
// The open algorithm reads its words with defaults and limits
// (AlgoTuning::effective): zero selects the default, and a value outside the
// limits is clamped. A setting is written as given; apply() reports each
// value the algorithm would read differently, so a tool can warn.
//
// Pure functions over records; thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cam_flicker_nvram.h"
#include "tuning_choice.h"

namespace flicker_loop {

struct TuningField {
  std::string name;     // the record's field
  std::string knob;     // the open algorithm's name; empty when it does not read the field
  std::string meaning;  // what the knob does and its unit; empty for unread fields
  size_t offset = 0;    // bytes from the start of the record
  size_t size = 4;      // 1 (unsigned), 4 or 8 (signed)
  int word = -1;        // int32 word of the algorithm part (0..34), -1 beyond it
};

struct TuningSetting {
  const TuningField* field = nullptr;
  int64_t value = 0;
};

class TuningFields {
 public:
  // Every field of the record, in layout order.
  static const std::vector<TuningField>& all();
  // The field with this record or knob name; null when there is none.
  static const TuningField* find(const std::string& name);

  static int64_t get(const FLICKER_CUST_PARA& record, const TuningField& field);
  // `value` must fit the field (parse() checks it).
  static void set(FLICKER_CUST_PARA* record, const TuningField& field, int64_t value);

  // Parses "NAME=VALUE"; false with a one-line reason naming the problem.
  static bool parse(const std::string& text, TuningSetting* out, std::string* error);

  // The value the open algorithm reads for a knob (default for zero, limits
  // applied, the other words as in `record`); the field's value otherwise.
  static int64_t effective(const FLICKER_CUST_PARA& record, const TuningField& field);
  // The limits the algorithm applies to a knob, the other words as in
  // `record`; false for a field the algorithm does not read.
  static bool limits(const FLICKER_CUST_PARA& record, const TuningField& field, int64_t* lo,
                     int64_t* hi);

  // Writes the settings, in order, into every record of `table`. Returns one
  // warning per setting that the algorithm reads as another value
  // ("hold_off (flickerFreq[3]) = 500 is read as 100 by the open algorithm
  // (limits 1..100)").
  static std::vector<std::string> apply(const std::vector<TuningSetting>& settings,
                                        TuningTable* table);
};

}  // namespace flicker_loop
