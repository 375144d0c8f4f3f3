#include "dump_replayer.h"

#include <dirent.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "flicker_dump_reader.h"
#include "flicker_freq.h"

namespace flicker_loop {

namespace {

// Windows of the generic statistics path: three rows of six.
constexpr int32_t kRows = 3;
constexpr int32_t kCols = 6;
// Longest folder name taken as a number (the counter is an int).
constexpr size_t kMaxDigits = 9;

bool numeric(const char* name) {
  const size_t n = strlen(name);
  if (n == 0 || n > kMaxDigits) {
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    if (name[i] < '0' || name[i] > '9') {
      return false;
    }
  }
  return true;
}

struct Geometry {
  uint32_t lineLength = 0;
  int32_t pixelClk = 0;
  int32_t winW = 0;
  int32_t winH = 0;
  bool operator==(const Geometry& o) const {
    return lineLength == o.lineLength && pixelClk == o.pixelClk && winW == o.winW && winH == o.winH;
  }
};

void initAlgorithm(const Geometry& g) {
  FlkInitPara init;
  memset(&init, 0, sizeof(init));
  init.sensorPath = FLK_PATH_GENERIC;
  init.lineLength = g.lineLength;
  init.statLineCount = kRows * g.winH;
  init.statWidth = g.winW;
  init.pixelClk = static_cast<double>(static_cast<uint32_t>(g.pixelClk));
  flk_SendCmd(FLK_CMD_INIT, &init, nullptr);
}

RippleFit profileOf(const flicker_dump::FlkRawDump& dump) {
  const uint32_t clock = static_cast<uint32_t>(dump.pixelClk);
  PairStats pair;
  pair.valid = clock > 0;
  pair.earlier = dump.slot0;
  pair.later = dump.slot1;
  pair.windowWidth = dump.winValue1;
  pair.windowHeight = dump.winValue2;
  pair.lineTimeS = clock > 0 ? static_cast<double>(dump.lineLength) / clock : 0.0;
  pair.exposureS = dump.exposure * 1e-6;
  return RippleFit::of(pair);
}

bool moved(const ReplayStep& s) {
  return s.verdictHz != 0 && s.verdictHz != s.appliedHz;
}

double ripple(const ReplayStep& s) {
  return s.profile.valid ? std::max(s.profile.amplitude100, s.profile.amplitude120) : 0.0;
}

}  // namespace

int ReplayResult::decidingStep() const {
  int best = -1;
  for (size_t i = 0; i < steps.size(); ++i) {
    const ReplayStep& s = steps[i];
    if (moved(s)) {
      best = static_cast<int>(i);
      continue;
    }
    if (best >= 0 && moved(steps[static_cast<size_t>(best)])) {
      continue;
    }
    const ReplayStep* b = best >= 0 ? &steps[static_cast<size_t>(best)] : nullptr;
    const int score = std::max(s.score50, s.score60);
    const int bestScore = b != nullptr ? std::max(b->score50, b->score60) : -1;
    if (score > bestScore || (score == bestScore && ripple(s) > ripple(*b))) {
      best = static_cast<int>(i);
    }
  }
  return best;
}

DumpReplayer::DumpReplayer(const FlickerExtPara& tuning) : tuning_(tuning) {}

bool DumpReplayer::listFolders(const std::string& dir, std::vector<std::string>* folders,
                               std::string* error) {
  folders->clear();
  std::unique_ptr<DIR, int (*)(DIR*)> handle(opendir(dir.c_str()), closedir);
  if (!handle) {
    *error = dir + ": cannot read the folder";
    return false;
  }
  while (const dirent* entry = readdir(handle.get())) {
    if (numeric(entry->d_name)) {
      folders->emplace_back(entry->d_name);
    }
  }
  std::sort(folders->begin(), folders->end(), [](const std::string& a, const std::string& b) {
    return std::stol(a) != std::stol(b) ? std::stol(a) < std::stol(b) : a < b;
  });
  if (folders->empty()) {
    *error = dir + ": no numbered dump folders (000, 001, ...)";
    return false;
  }
  return true;
}

ReplayResult DumpReplayer::replay(const std::string& dir, int64_t frameIntervalNs) {
  return replay(dir, std::vector<int64_t>{frameIntervalNs});
}

ReplayResult DumpReplayer::replay(const std::string& dir, const std::vector<int64_t>& intervalsNs) {
  ReplayResult result;
  std::vector<std::string> folders;
  if (!listFolders(dir, &folders, &result.error)) {
    return result;
  }
  if (intervalsNs.empty()) {
    result.error = "no frame interval given";
    return result;
  }
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
  FlkExtParaCmd ext;
  memset(&ext, 0, sizeof(ext));
  ext.para = tuning_;
  flk_SendCmd(FLK_CMD_SET_EXT_PARA, &ext, nullptr);

  Geometry current;
  bool initialised = false;
  int appliedHz = 0;
  flicker_dump::FlkRawDump dump;
  for (size_t i = 0; i < folders.size(); ++i) {
    const std::string path = dir + "/" + folders[i] + "/flk.raw";
    std::string why;
    if (!flicker_dump::readFlkRaw(path, &dump, &why)) {
      result.error = why;
      return result;
    }
    const Geometry g{dump.lineLength, dump.pixelClk, dump.winValue1, dump.winValue2};
    if (!initialised || !(g == current)) {
      initAlgorithm(g);
      current = g;
      initialised = true;
    }
    // A state change reaches the algorithm as the manager sends it.
    if ((dump.freq == 50 || dump.freq == 60) && dump.freq != appliedHz) {
      int32_t code = FlickerFreq::fromHz(dump.freq).algoCode();
      flk_SendCmd(FLK_CMD_SET_STATE, &code, nullptr);
      code = FlickerFreq::fromHz(dump.freq).algoCode();
      flk_SendCmd(FLK_CMD_RESET_QUEUE, &code, nullptr);
      appliedHz = dump.freq;
    }

    ReplayStep step;
    FlkDetectPara para;
    memset(&para, 0, sizeof(para));
    para.sensorPath = FLK_PATH_GENERIC;
    para.statsSlot1 = dump.slot1.data();
    para.statsSlot0 = dump.slot0.data();
    para.windowRows = kRows;
    para.windowCols = kCols;
    para.winValue1 = dump.winValue1;
    para.winValue2 = dump.winValue2;
    para.freq = dump.freq;
    para.pixelClk = dump.pixelClk;
    para.lineLength = dump.lineLength;
    para.exposure = dump.exposure;
    para.aux = step.aux;
    para.frameInterval = intervalsNs[std::min(i, intervalsNs.size() - 1)];
    FlkDetectResult out{FLK_FREQ_NONE, 0, 0};
    flk_SendCmd(FLK_CMD_DETECT, &para, &out);

    step.step = static_cast<int>(i);
    step.folder = folders[i];
    step.appliedHz = dump.freq;
    step.verdictHz = FlickerFreq::fromAlgoCode(out.state).hz();
    step.score50 = out.score50;
    step.score60 = out.score60;
    step.exposureUs = dump.exposure;
    // The manager moves only between 50 and 60, on a verdict for the other;
    // the next dump then records the new state, which is applied above.
    step.stateAfterHz = step.verdictHz != 0 ? step.verdictHz : dump.freq;
    step.profile = profileOf(dump);
    result.steps.push_back(step);
  }
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
  result.ok = true;
  return result;
}

}  // namespace flicker_loop
