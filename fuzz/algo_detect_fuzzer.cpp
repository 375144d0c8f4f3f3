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
// The detection record keeps its fuzzed geometry, but its pointers are set to
// valid buffers: two heap columns of exactly 36000 entries and a heap block of
// exactly nine aux words, so AddressSanitizer reports any access beyond what
// the command contract hands over. Checks: every command returns 0 or -1; a
// detection answers a frequency code and leaves its buffers unchanged.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "byte_reader.h"
#include "flicker_algo_cmd.h"
#include "fuzz_check.h"
#include "open_algo_default_tuning.h"

namespace {

constexpr int kEntries = 36000;  // one statistics buffer of the adapter
constexpr int kMaxCommands = 24;
constexpr int kEndOfList = 7;

size_t recordSize(uint32_t cmd) {
  switch (cmd) {
    case FLK_CMD_INIT:
      return sizeof(FlkInitPara);
    case FLK_CMD_DETECT:
      return sizeof(FlkDetectPara);
    case FLK_CMD_SET_EXT_PARA:
      return sizeof(FlkExtParaCmd);
    case FLK_CMD_SET_STATE:
    case FLK_CMD_RESET_QUEUE:
      return sizeof(int32_t);
    case FLK_CMD_SET_LOG:
      return sizeof(FlkLogPara);
    default:
      return 0;
  }
}

// The algorithm's print function: formats every line (so each format string
// meets its arguments) and drops it.
void sinkPrint(const char* format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof(line), format, args);
  va_end(args);
}

struct Command {
  uint32_t cmd;
  std::vector<uint8_t> record;  // zero-padded to the record size; 8-byte aligned storage below
};

// A banded profile like a rolling shutter under a lamp: one value per
// statistics line, repeated over the six window columns.
void fillSynthetic(ByteReader& in, int64_t* slot1, int64_t* slot0) {
  const int32_t base = in.take<int32_t>();
  const int32_t amplitude = in.take<int32_t>();
  const uint16_t period = std::max<uint16_t>(in.take<uint16_t>(), 1);
  const uint16_t shift = in.take<uint16_t>();  // phase advance of the second frame, lines
  const int32_t noise = in.take<int32_t>();
  constexpr double kTwoPi = 6.283185307179586;
  for (int i = 0; i < kEntries; ++i) {
    const int line = i / 6;
    const double a = std::sin(kTwoPi * line / period);
    const double b = std::sin(kTwoPi * (line + shift) / period);
    const int64_t jitter = (i * 2654435761u) % (static_cast<uint32_t>(noise) % 64 + 1);
    slot1[i] = base + static_cast<int64_t>(amplitude * a) + jitter;
    slot0[i] = base + static_cast<int64_t>(amplitude * b) + jitter;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static std::unique_ptr<int64_t[]> slot1(new int64_t[kEntries]);
  static std::unique_ptr<int64_t[]> slot0(new int64_t[kEntries]);
  static std::unique_ptr<int64_t[]> before(new int64_t[2 * kEntries]);

  ByteReader in(data, size);
  std::vector<Command> commands;
  while (!in.empty() && commands.size() < kMaxCommands) {
    const uint8_t op = in.take<uint8_t>();
    if (op >= kEndOfList)
      break;
    Command c{op, std::vector<uint8_t>(recordSize(op), 0)};
    size_t got = 0;
    const uint8_t* bytes = in.takeBytes(c.record.size(), &got);
    if (got > 0)
      memcpy(c.record.data(), bytes, got);
    commands.push_back(std::move(c));
  }
  memset(slot1.get(), 0, kEntries * sizeof(int64_t));
  memset(slot0.get(), 0, kEntries * sizeof(int64_t));
  if (in.take<uint8_t>() % 2 == 1)
    fillSynthetic(in, slot1.get(), slot0.get());
  size_t raw = 0;
  const uint8_t* bytes = in.takeBytes(2 * kEntries * sizeof(int64_t), &raw);
  const size_t first = std::min(raw, kEntries * sizeof(int64_t));
  memcpy(slot1.get(), bytes, first);
  memcpy(slot0.get(), bytes + first, raw - first);
  memcpy(before.get(), slot1.get(), kEntries * sizeof(int64_t));
  memcpy(before.get() + kEntries, slot0.get(), kEntries * sizeof(int64_t));

  // Every input starts from the recommended tuning and quiet logs; the
  // release at the end forgets the rest of the state.
  FlkExtParaCmd tuning{};
  memcpy(&tuning.para, open_algo::kDefaultTuningWords, sizeof(tuning.para));
  flk_SendCmd(FLK_CMD_SET_EXT_PARA, &tuning, nullptr);
  FlkLogPara quiet{};
  quiet.print = sinkPrint;
  flk_SendCmd(FLK_CMD_SET_LOG, &quiet, nullptr);

  for (Command& c : commands) {
    int32_t rc = 0;
    switch (c.cmd) {
      case FLK_CMD_DETECT: {
        FlkDetectPara para;
        memcpy(&para, c.record.data(), sizeof(para));
        std::unique_ptr<int32_t[]> aux(new int32_t[kFlkAuxWords]());
        para.statsSlot1 = slot1.get();
        para.statsSlot0 = slot0.get();
        para.aux = aux.get();
        FlkDetectResult result{FLK_FREQ_NONE, 0, 0};
        rc = flk_SendCmd(FLK_CMD_DETECT, &para, &result);
        FUZZ_CHECK(result.state >= FLK_FREQ_50HZ && result.state <= FLK_FREQ_NONE,
                   "detection answered %d", result.state);
        FUZZ_CHECK(
            memcmp(before.get(), slot1.get(), kEntries * sizeof(int64_t)) == 0 &&
                memcmp(before.get() + kEntries, slot0.get(), kEntries * sizeof(int64_t)) == 0,
            "detection changed its statistics");
        break;
      }
      case FLK_CMD_INIT: {
        FlkInitPara para;
        memcpy(&para, c.record.data(), sizeof(para));
        rc = flk_SendCmd(FLK_CMD_INIT, &para, nullptr);
        break;
      }
      case FLK_CMD_SET_EXT_PARA: {
        FlkExtParaCmd para;
        memcpy(&para, c.record.data(), sizeof(para));
        rc = flk_SendCmd(FLK_CMD_SET_EXT_PARA, &para, nullptr);
        break;
      }
      case FLK_CMD_SET_STATE:
      case FLK_CMD_RESET_QUEUE: {
        int32_t code;
        memcpy(&code, c.record.data(), sizeof(code));
        rc = flk_SendCmd(c.cmd, &code, nullptr);
        break;
      }
      case FLK_CMD_SET_LOG: {
        FlkLogPara para;
        memcpy(&para, c.record.data(), sizeof(para));
        // Bit 0 of the pad byte keeps a null print function, which must be safe.
        para.print = (para.pad[0] & 1) != 0 ? nullptr : sinkPrint;
        rc = flk_SendCmd(FLK_CMD_SET_LOG, &para, nullptr);
        break;
      }
      default:
        rc = flk_SendCmd(c.cmd, nullptr, nullptr);
        break;
    }
    FUZZ_CHECK(rc == 0 || rc == -1, "command %u returned %d", c.cmd, rc);
  }
  flk_SendCmd(FLK_CMD_UNINIT, nullptr, nullptr);
  return 0;
}
