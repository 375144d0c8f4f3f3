#include "outcome_codec.h"

#include <nlohmann/json.hpp>

#include <limits>
#include <type_traits>

namespace flicker_eval {

namespace {

using Json = nlohmann::json;

// Calls f(name, field) for every field that travels; one list serves the
// encoder and the decoder, so they cannot drift apart.
template <class Outcome, class F>
void eachField(Outcome& o, F&& f) {
  f("ok", o.ok);
  f("error", o.error);
  f("frames", o.summary.frames);
  f("summary_pairs", o.summary.pairs);
  f("locked_hz", o.summary.lockedHz);
  f("lock_frame", o.summary.lockFrame);
  f("summary_lock_ms", o.summary.lockMs);
  f("pairs_to_lock", o.summary.pairsToLock);
  f("summary_switches", o.summary.switches);
  f("expected_hz", o.summary.expectedHz);
  f("summary_right", o.summary.right);
  f("summary_duration_ms", o.summary.durationMs);
  f("change_ms", o.summary.changeMs);
  f("lock_after_change_ms", o.summary.lockAfterChangeMs);
  f("pairs_after_change", o.summary.pairsAfterChange);
  f("counted", o.counted);
  f("held", o.held);
  f("showing_pairs", o.showingPairs);
  f("ripple", o.ripple);
  f("weak", o.weak);
  f("readout_s", o.readoutS);
  f("right", o.right);
  f("lock_pairs", o.lockPairs);
  f("lock_moving_pairs", o.lockMovingPairs);
  f("lock_ms", o.lockMs);
  f("switch_pairs", o.switchPairs);
  f("switch_moving_pairs", o.switchMovingPairs);
  f("switch_ms", o.switchMs);
  f("onset_pairs", o.onsetPairs);
  f("onset_ms", o.onsetMs);
  f("residual_final", o.residualFinal);
  f("residual_other", o.residualOther);
  f("residual_noise", o.residualNoise);
  f("switches", o.switches);
  f("duration_ms", o.durationMs);
  f("pairs", o.pairs);
}

}  // namespace

std::string encodeOutcome(const CellOutcome& outcome) {
  Json j = Json::object();
  eachField(outcome, [&j](const char* name, const auto& value) { j[name] = value; });
  return j.dump();
}

bool decodeOutcome(const std::string& line, const EvalCell& cell, CellOutcome* out,
                   std::string* error) {
  CellOutcome o;
  o.cell = cell;
  try {
    const Json j = Json::parse(line);
    eachField(o, [&j](const char* name, auto& value) {
      using T = std::decay_t<decltype(value)>;
      const Json& v = j.at(name);
      // JSON has no NaN: the encoder writes it as null.
      if constexpr (std::is_floating_point_v<T>) {
        value = v.is_null() ? std::numeric_limits<T>::quiet_NaN() : v.get<T>();
      } else {
        value = v.get<T>();
      }
    });
  } catch (const Json::exception& e) {
    *error = std::string("not an outcome: ") + e.what();
    return false;
  }
  *out = o;
  return true;
}

}  // namespace flicker_eval
