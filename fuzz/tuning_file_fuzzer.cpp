// Fuzzes the tuning override file reader through the manager's public flow:
// with vendor.debug.flk_read_file=1 the input is the preview mode's override
// file under the data root, and a DoCalculation that asks for a re-init runs
// the algorithm set-up, which reads the file.
//
// Runs on the recording fake platform and the scripted fake algorithm, and
// checks the tuning the algorithm received: its 35 words must be the file's
// numbers in order as "%d" reads them, with -1 for every number that could
// not be read (independently read here with fscanf from the same file).
// No worker thread is started (no Config), so every run is deterministic.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "fake_platform.h"
#include "flicker_algo_cmd.h"
#include "flicker_mgr.h"
#include "fuzz_check.h"
#include "scratch_dir.h"

namespace {

constexpr const char* kPreviewFile = "/data/vendor/flicker/para/flk_para_preview.txt";
constexpr int kSensorIdx = 0;
constexpr int kWords = kFlickerExtParaWords;

// The statistics block of one frame: the largest the adapter converts.
uint8_t g_stats[FlickerPlatformAdapter::kBufBytes];

flicker_calc_info frame() {
  flicker_calc_info calc{};
  calc.mVa = g_stats;
  calc.exposureTime = 10000;
  calc.width = 640;
  calc.height = 480;
  calc.aeDetectCycle = 1;  // every frame completes a pair and reaches the set-up
  calc.statValid = 1;
  calc.flkEnable = 1;
  calc.needReinit = 1;  // so every frame redoes the set-up, which reads the file
  return calc;
}

FlickerMgr* setUp(ScratchDir* dir) {
  fake_platform::reset();
  fake_platform::setDataRoot(dir->path());
  dir->makeDirs("data/vendor/flicker/para");
  fake_platform::setProperty("vendor.debug.flk_read_file", 1);
  FlickerMgr* mgr = FlickerMgr::GetInstance(kSensorIdx);
  mgr->Init(0, 0x5695);
  flicker_input_info input{};
  input.flickerMode = FLICKER_MODE_AUTO;
  input.isMaster = 1;
  mgr->SetParam(input);
  FUZZ_CHECK(mgr->isAttach() == 1, "the sensor did not attach");
  // The first two frames after Start are warm-up and never analysed.
  mgr->DoCalculation(frame());
  mgr->DoCalculation(frame());
  return mgr;
}

void expectedWords(const std::string& path, int32_t* words) {
  FILE* file = fopen(path.c_str(), "r");
  FUZZ_CHECK(file != nullptr, "cannot reopen %s", path.c_str());
  for (int i = 0; i < kWords; ++i) {
    int32_t value = 0;
    words[i] = fscanf(file, "%d", &value) >= 1 ? value : -1;
  }
  fclose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ScratchDir dir;  // removed again when the process exits normally
  static FlickerMgr* mgr = setUp(&dir);
  static const std::string file = fake_platform::hostPath(kPreviewFile);

  ScratchDir::writeFile(file, data, size);
  fake_platform::clearAlgoCalls();
  fake_platform::clearLogs();
  mgr->DoCalculation(frame());

  const std::vector<fake_platform::AlgoCall> calls = fake_platform::algoCalls(FLK_CMD_SET_EXT_PARA);
  FUZZ_CHECK(calls.size() == 1, "%zu tuning commands for one set-up", calls.size());
  FUZZ_CHECK(calls[0].in.size() == sizeof(FlkExtParaCmd), "tuning record of %zu bytes",
             calls[0].in.size());
  int32_t want[kWords];
  expectedWords(file, want);
  int32_t got[kWords];
  memcpy(got, calls[0].in.data(), sizeof(got));
  for (int i = 0; i < kWords; ++i) {
    FUZZ_CHECK(got[i] == want[i], "word %d is %d, the file gives %d", i, got[i], want[i]);
  }
  return 0;
}
