// The scripted fake of the detection algorithm's command entry. Records a copy
// of every input record, answers detections from a script, runs a test hook
// and can hold a detection in progress until the test releases it.
//
// Threading: one mutex guards the state; the hook and the hold wait run
// without it being held (the wait releases it through the condition
// variable), so a held detection never blocks the recording of other calls.
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>

#include "fake_platform.h"
#include "flicker_algo_cmd.h"

namespace {

// Safety net: a held detection gives up after this long, so a test that
// forgets to release cannot hang the whole run.
constexpr auto kHoldLimit = std::chrono::seconds(30);

const FlkDetectResult kDefaultResult = {FLK_FREQ_NONE, 0, 0};

struct AlgoState {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<fake_platform::AlgoCall> calls;
  std::deque<FlkDetectResult> script;
  std::function<void(const FlkDetectPara&, FlkDetectResult*)> hook;
  bool hold = false;
  int heldNow = 0;            // detections blocked in the hold right now
  unsigned releaseEpoch = 0;  // bumped by each release
};

AlgoState& algo() {
  static AlgoState s;
  return s;
}

// Input record size per command number, in command order.
size_t inputSize(uint32_t cmd) {
  static_assert(FLK_CMD_INIT == 0 && FLK_CMD_SET_LOG == 6, "commands are numbered 0..6");
  const size_t sizes[] = {sizeof(FlkInitPara),   0,
                          sizeof(FlkDetectPara), sizeof(FlkExtParaCmd),
                          sizeof(int32_t),       sizeof(int32_t),
                          sizeof(FlkLogPara)};
  return cmd <= FLK_CMD_SET_LOG ? sizes[cmd] : 0;
}

void record(uint32_t cmd, const void* in) {
  fake_platform::AlgoCall call{cmd, {}};
  const size_t size = inputSize(cmd);
  if (in != nullptr && size > 0) {
    const auto* bytes = static_cast<const uint8_t*>(in);
    call.in.assign(bytes, bytes + size);
  }
  AlgoState& s = algo();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.calls.push_back(std::move(call));
}

void detect(const void* in, void* out) {
  AlgoState& s = algo();
  std::function<void(const FlkDetectPara&, FlkDetectResult*)> hook;
  {
    std::lock_guard<std::mutex> lock(s.mutex);
    FlkDetectResult next = kDefaultResult;
    if (!s.script.empty()) {
      next = s.script.front();
      s.script.pop_front();
    }
    if (out != nullptr)
      memcpy(out, &next, sizeof(next));
    hook = s.hook;
  }
  if (hook && in != nullptr)
    hook(*static_cast<const FlkDetectPara*>(in), static_cast<FlkDetectResult*>(out));

  std::unique_lock<std::mutex> lock(s.mutex);
  if (!s.hold)
    return;
  const unsigned epoch = s.releaseEpoch;
  ++s.heldNow;
  s.changed.notify_all();
  s.changed.wait_for(lock, kHoldLimit, [&] { return s.releaseEpoch != epoch; });
  --s.heldNow;
}

}  // namespace

extern "C" int32_t flk_SendCmd(uint32_t cmd, void* in, void* out) {
  record(cmd, in);
  if (cmd == FLK_CMD_DETECT)
    detect(in, out);
  return 0;
}

extern "C" void fake_platform_reset_algo() {
  AlgoState& s = algo();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.calls.clear();
  s.script.clear();
  s.hook = nullptr;
  s.hold = false;
  ++s.releaseEpoch;  // frees a detection a previous test left held
  s.changed.notify_all();
}

namespace fake_platform {

std::vector<AlgoCall> algoCalls() {
  std::lock_guard<std::mutex> lock(algo().mutex);
  return algo().calls;
}

std::vector<AlgoCall> algoCalls(uint32_t cmd) {
  std::vector<AlgoCall> out;
  for (AlgoCall& call : algoCalls()) {
    if (call.cmd == cmd)
      out.push_back(std::move(call));
  }
  return out;
}

void clearAlgoCalls() {
  std::lock_guard<std::mutex> lock(algo().mutex);
  algo().calls.clear();
}

void scriptDetectResults(const std::vector<FlkDetectResult>& results) {
  std::lock_guard<std::mutex> lock(algo().mutex);
  algo().script.assign(results.begin(), results.end());
}

void setDetectHook(std::function<void(const FlkDetectPara&, FlkDetectResult*)> hook) {
  std::lock_guard<std::mutex> lock(algo().mutex);
  algo().hook = std::move(hook);
}

void holdDetections(bool hold) {
  AlgoState& s = algo();
  std::lock_guard<std::mutex> lock(s.mutex);
  s.hold = hold;
  if (!hold) {
    ++s.releaseEpoch;
    s.changed.notify_all();
  }
}

bool waitDetectEntered(int timeoutMs) {
  AlgoState& s = algo();
  std::unique_lock<std::mutex> lock(s.mutex);
  return s.changed.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [&] { return s.heldNow > 0; });
}

// Frees the detections held now and stops holding later ones.
void releaseDetections() {
  holdDetections(false);
}

}  // namespace fake_platform
