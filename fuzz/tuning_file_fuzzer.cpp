// Fuzzes the tuning override file reader through the manager's public flow:
// with vendor.debug.flk_read_file=1 the input is the preview mode's override
// file under the data root, and a DoCalculation that asks for a re-init runs
// the algorithm set-up, which reads the file.
//
// Runs on the recording fake platform and the scripted fake algorithm, and
// checks the tuning the algorithm received: its 35 words must be the file's
// numbers in order as "%d" reads them, with -1 for every number that could
// not be read (independently read here with fscanf from the same file), sent
// in exactly one tuning command per set-up. No worker thread is started (no
// Config), so every run is deterministic.
#include "fake_platform.h"
#include "flicker_algo_cmd.h"
#include "flicker_mgr.h"
#include "fuzz_support.h"

namespace {

FlickerMgr* g_mgr;
std::string g_file;

// A frame that completes a detection pair (cycle 1) and asks for a re-init, so
// every call redoes the set-up, which reads the file.
flicker_calc_info frame() {
  static uint8_t stats[FlickerPlatformAdapter::kBufBytes];
  flicker_calc_info calc{};
  calc.mVa = stats;
  calc.exposureTime = 10000;
  calc.width = 640;
  calc.height = 480;
  calc.aeDetectCycle = calc.statValid = calc.flkEnable = calc.needReinit = 1;
  return calc;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fake_platform::reset();
  fake_platform::setDataRoot(scratchDir());
  scratchFile("data/vendor/flicker/para/");  // creates the folders
  g_file = fake_platform::hostPath("/data/vendor/flicker/para/flk_para_preview.txt");
  fake_platform::setProperty("vendor.debug.flk_read_file", 1);
  g_mgr = FlickerMgr::GetInstance(0);
  g_mgr->Init(0, 0x5695);
  flicker_input_info input{};
  input.flickerMode = FLICKER_MODE_AUTO;
  input.isMaster = 1;
  g_mgr->SetParam(input);
  FUZZ_CHECK(g_mgr->isAttach() == 1, "the sensor did not attach");
  g_mgr->DoCalculation(frame());  // the first two frames after Start are warm-up
  g_mgr->DoCalculation(frame());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  writeFile(g_file, data, size);
  fake_platform::clearAlgoCalls();
  fake_platform::clearLogs();
  g_mgr->DoCalculation(frame());

  const auto calls = fake_platform::algoCalls(FLK_CMD_SET_EXT_PARA);
  FUZZ_CHECK(calls.size() == 1, "%zu tuning commands for one set-up", calls.size());
  FUZZ_CHECK(calls[0].in.size() == sizeof(FlkExtParaCmd), "record of %zu bytes",
             calls[0].in.size());
  FILE* file = fopen(g_file.c_str(), "r");
  FUZZ_CHECK(file != nullptr, "cannot reopen %s", g_file.c_str());
  FuzzInput words(calls[0].in.data(), calls[0].in.size());
  for (int i = 0; i < kFlickerExtParaWords; ++i) {
    int32_t value = 0;
    const int32_t want = fscanf(file, "%d", &value) == 1 ? value : -1;
    const int32_t got = words.take<int32_t>();
    FUZZ_CHECK(got == want, "word %d is %d, the file gives %d", i, got, want);
  }
  fclose(file);
  return 0;
}
