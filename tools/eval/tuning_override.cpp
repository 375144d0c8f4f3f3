#include "tuning_override.h"

#include <cstdlib>
#include <cstring>

#include "cam_flicker_nvram.h"
#include "tuning_choice.h"

namespace flicker_eval {

bool applyTuning(const std::string& choice, const std::vector<std::pair<int, int>>& words,
                 FlickerExtPara* algoPart, std::string* error) {
  if (!flicker_loop::TuningChoice::apply(choice, algoPart, error)) {
    return false;
  }
  if (words.empty()) {
    return true;
  }
  int32_t w[kFlickerExtParaWords];
  static_assert(sizeof(w) == sizeof(FlickerExtPara), "35 words");
  memcpy(w, algoPart, sizeof(w));
  for (const auto& kv : words) {
    w[kv.first] = kv.second;
  }
  memcpy(algoPart, w, sizeof(w));
  FLICKER_CUST_PARA record{};
  memcpy(&record, w, sizeof(w));
  return flicker_loop::TuningChoice::applyRecord(record, algoPart, error);
}

}  // namespace flicker_eval
