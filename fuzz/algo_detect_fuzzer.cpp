// Fuzzes the open detection algorithm through its command entry: a sequence
// of up to 24 commands (tuning 3, init 0, state 4, queue reset 5, detect 2,
// log 6, release 1) with fuzzed records, over statistics columns filled from
// the input.
//
// Input: per command one byte (0..6 the command, 7 or more ends the list) and
// then the bytes of its record (40, none, 200, 144, 4, 4 or 16); after the
// list a fill byte (even: raw column bytes follow; odd: a synthetic banded
// profile from the next 14 bytes, then raw bytes over its start).
//
// Each record is handed over in a heap block of exactly its size. A detection
// record keeps its fuzzed geometry, but its pointers are set to two heap
// columns of exactly 36000 entries and a heap block of exactly nine aux
// words, so AddressSanitizer reports any access beyond what the command
// contract hands over. Checks: every command returns 0 or -1; a detection
// answers a frequency code and leaves its statistics unchanged.
#include <cstdarg>
#include <memory>
#include <vector>

#include "flicker_algo_cmd.h"
#include "fuzz_support.h"
#include "open_algo_default_tuning.h"

namespace {

constexpr size_t kEntries = 36000;  // one statistics buffer of the adapter
constexpr size_t kColumnBytes = kEntries * sizeof(int64_t);
constexpr size_t kMaxCommands = 24;
constexpr uint8_t kEndOfList = 7;
// Record sizes by command number.
constexpr size_t kRecordSize[kEndOfList] = {sizeof(FlkInitPara),   0,
                                            sizeof(FlkDetectPara), sizeof(FlkExtParaCmd),
                                            sizeof(int32_t),       sizeof(int32_t),
                                            sizeof(FlkLogPara)};

// The algorithm's print function: formats every line (so each format string
// meets its arguments) and drops it.
void sinkPrint(const char* format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof(line), format, args);
  va_end(args);
}

template <typename T>
void setField(std::vector<uint8_t>* record, size_t offset, T value) {
  memcpy(record->data() + offset, &value, sizeof(value));
}

// A banded profile like a rolling shutter under a lamp; the second frame's
// bands are shifted, and both carry the same small jitter.
void fillSynthetic(FuzzInput& in, int64_t* slot1, int64_t* slot0) {
  const int32_t base = in.take<int32_t>();
  const int32_t amplitude = in.take<int32_t>();
  const uint16_t period = std::max<uint16_t>(in.take<uint16_t>(), 1);
  const uint16_t shift = in.take<uint16_t>();  // lines
  const uint32_t noise = static_cast<uint32_t>(in.take<int32_t>()) % 64 + 1;
  for (int i = 0; i < static_cast<int>(kEntries); ++i) {
    const int64_t jitter = (i * 2654435761u) % noise;
    slot1[i] = bandedEntry(i, base, amplitude, period, 0) + jitter;
    slot0[i] = bandedEntry(i, base, amplitude, period, shift) + jitter;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Every input starts from the recommended tuning and quiet logs, and ends
  // with a release, which forgets the rest of the state.
  std::vector<uint8_t> tuning(sizeof(FlkExtParaCmd), 0);
  memcpy(tuning.data(), open_algo::kDefaultTuningWords, sizeof(FlickerExtPara));
  std::vector<std::pair<uint8_t, std::vector<uint8_t>>> commands = {
      {FLK_CMD_SET_EXT_PARA, tuning}, {FLK_CMD_SET_LOG, std::vector<uint8_t>(sizeof(FlkLogPara))}};
  FuzzInput in(data, size);
  while (commands.size() < 2 + kMaxCommands && !in.empty()) {
    const uint8_t cmd = in.take<uint8_t>();
    if (cmd >= kEndOfList)
      break;
    commands.emplace_back(cmd, std::vector<uint8_t>(kRecordSize[cmd], 0));
    in.copy(commands.back().second.data(), kRecordSize[cmd]);
  }
  commands.emplace_back(FLK_CMD_UNINIT, std::vector<uint8_t>());
  // Reused across inputs: freeing them per input would fill the allocator's quarantine.
  static std::vector<int64_t> slot1, slot0, before1, before0;
  slot1.assign(kEntries, 0);
  slot0.assign(kEntries, 0);
  if (in.take<uint8_t>() % 2 == 1)
    fillSynthetic(in, slot1.data(), slot0.data());
  in.copy(slot1.data(), kColumnBytes);
  in.copy(slot0.data(), kColumnBytes);
  before1 = slot1;
  before0 = slot0;

  for (auto& [cmd, record] : commands) {
    if (cmd == FLK_CMD_SET_LOG) {
      // Bit 0 of the pad byte keeps a null print function, which must be safe.
      const bool null = (record[offsetof(FlkLogPara, pad)] & 1) != 0;
      setField(&record, offsetof(FlkLogPara, print), null ? FlkPrintFn{} : &sinkPrint);
    }
    std::unique_ptr<int32_t[]> aux(new int32_t[kFlkAuxWords]());
    if (cmd == FLK_CMD_DETECT) {
      setField<const int64_t*>(&record, offsetof(FlkDetectPara, statsSlot1), slot1.data());
      setField<const int64_t*>(&record, offsetof(FlkDetectPara, statsSlot0), slot0.data());
      setField(&record, offsetof(FlkDetectPara, aux), aux.get());
    }
    FlkDetectResult result{FLK_FREQ_NONE, 0, 0};
    const int32_t rc = flk_SendCmd(cmd, record.empty() ? nullptr : record.data(),
                                   cmd == FLK_CMD_DETECT ? &result : nullptr);
    FUZZ_CHECK(rc == 0 || rc == -1, "command %u returned %d", cmd, rc);
    FUZZ_CHECK(result.state >= FLK_FREQ_50HZ && result.state <= FLK_FREQ_NONE,
               "detection answered %d", result.state);
    FUZZ_CHECK(cmd != FLK_CMD_DETECT || (slot1 == before1 && slot0 == before0),
               "detection changed its statistics");
  }
  return 0;
}
