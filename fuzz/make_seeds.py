#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets under fuzz/corpus/<target>/.

Each seed is a small hand-made input that reaches one interesting branch; the
comment beside it says which. Run from anywhere: python3 fuzz/make_seeds.py.
Existing seeds of the same name are overwritten; regression inputs that
libFuzzer found are kept as separate files (named regress-*) and not touched.
"""
import math
import os
import struct

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")


def put(target, name, data):
    folder = os.path.join(ROOT, target)
    os.makedirs(folder, exist_ok=True)
    if isinstance(data, str):
        data = data.encode()
    with open(os.path.join(folder, name), "wb") as f:
        f.write(data)


def i32(*values):
    return struct.pack("<%di" % len(values), *values)


def i64(*values):
    return struct.pack("<%dq" % len(values), *values)


# ---- tuning_file: the preview mode's override file --------------------------
full = list(range(1, 36))
put("tuning_file", "full_35_mixed_space",  # all fields replaced, tabs and line ends
    "\t".join(map(str, full[:9])) + "\n" + " ".join(map(str, full[9:20])) + "\r\n" +
    "\n".join(map(str, full[20:])) + "\n")
put("tuning_file", "short_20", " ".join(map(str, range(20))))  # 15 fields become -1
put("tuning_file", "word_at_5", "1 2 3 4 five 6 7")  # fields 5..35 become -1
put("tuning_file", "extra_40", " ".join(map(str, range(40))))  # last 5 ignored
put("tuning_file", "signs_and_limits",  # signs, int32 limits and beyond
    "+5 -3 2147483647 -2147483648 99999999999 -0 007 0x10\n")
put("tuning_file", "empty", "")  # every field -1

# ---- counter_file: the dump counter -------------------------------------------
for name, text in [
    ("zero", "0"),            # the first folder
    ("nine99", "999"),        # next folder widens to four digits
    ("word", "abc"),          # scan error, default kept
    ("negative", "-1"),       # negative: default kept
    ("spaced", "  \n\t42 7"), # leading white space, first token only
    ("int_max", "2147483647"),
    ("beyond_int", "2147483648"),
    ("plus", "+7"),
    ("long_token", "1234567890123456789"),  # cut at 15 characters
    ("empty", ""),
]:
    put("counter_file", name, text)

# ---- dump_reader: flk.raw and flk_pure.raw -------------------------------------
TRAILER = i32(666, 984, 50, 100000000) + struct.pack("<I", 2000) + i32(10000) + i32(*range(9))
put("dump_reader", "raw_empty_columns", i32(0) + TRAILER)  # n = 0
put("dump_reader", "raw_two_entries", i32(2) + i64(1, -2) + i64(3, 4) + TRAILER)
put("dump_reader", "raw_bad_count", i32(-1) + TRAILER)  # count outside the range
put("dump_reader", "raw_short", i32(3) + i64(1, 2, 3))  # size below the layout
put("dump_reader", "pure_two_entries", i64(1, 2, 3, 4))  # a pure dump of n = 2

# ---- property_file: the host property file -------------------------------------
put("property_file", "typical",
    "# debug switches\n"
    "vendor.debug.flk_dump=1\n"
    "  vendor.debug.flicker_mgr.log.level =  3  \n"
    "\n"
    "vendor.debug.flk_read_file=0x1\n"
    "host.flicker.cust.max_attach=010\n")
put("property_file", "malformed",  # no '=', empty name, name with a blank, CRLF
    "no equals sign\n=5\nbad name=1\r\nvendor.autotesttool.enable=-2147483649\r\n"
    "a=b=c\nvendor.debug.flk_dump=2\nvendor.debug.flk_dump= 9 \n")
put("property_file", "no_final_newline", "x.y=  -12")

# ---- adapter_setbuf: header then statistics block -------------------------------
def adapter(sensor, width, height, path, mode, auto_test, index, block=b""):
    return bytes([sensor]) + i32(width, height, path, mode, auto_test, index) + block


put("adapter_setbuf", "generic_4000x3000",  # window 666 x 984, slot 0
    adapter(0, 4000, 3000, 0, 0, 0, 0, i64(*range(64))))
put("adapter_setbuf", "generic_autotest_zero",  # all-zero self-check fails
    adapter(0, 640, 100, 0, 0, 1, 1))
put("adapter_setbuf", "generic_empty_window_autotest",  # win_h 0: 18 entries checked
    adapter(0, 11, 45, 0, 0, 1, 7, i64(5)))
put("adapter_setbuf", "tallest_image", adapter(0, 8000, 6040, 0, 0, 0, 1))  # height capped
put("adapter_setbuf", "sensor_1398_widen",  # words -1 and 5 widen to int64
    adapter(1, 1920, 1080, 1, 0, 1, 0, i32(-1, 5) + i32(*range(100))))
put("adapter_setbuf", "sensor_8581_mode0", adapter(2, 1920, 1080, 1, 0, 0, 1, i32(*range(150))))
put("adapter_setbuf", "sensor_8581_mode3", adapter(2, 1920, 1080, 2, 3, 1, 0, i32(*range(201))))
put("adapter_setbuf", "other_sensor_path1", adapter(3, 1920, 1080, 1, 0, 0, 0))  # nothing copied
put("adapter_setbuf", "negative_size", adapter(0, -1, 3000, 0, 0, 0, 0))  # window refused

# ---- algo_detect: commands, then the statistics fill ----------------------------
DEFAULT_TUNING = i32(40, 40, 200, 4, 20, 1023, 4, 950, 300, 50, 0, 3, 8) + i32(*([0] * 22))


def ext(words=DEFAULT_TUNING):
    return bytes([3]) + words + b"\0" * 4


def init(path=0, line_length=2000, lines=2952, width=666, clk=1e8):
    return bytes([0]) + i32(path) + struct.pack("<I", line_length) + i32(lines, width) + \
        struct.pack("<d", clk) + i32(0, 0, 0) + b"\0" * 4


def code(cmd, value):
    return bytes([cmd]) + i32(value)


def detect(freq=50, rows=3, cols=6, w=666, h=984, clk=100000000, line=2000, exposure=10000,
           interval=33333333, path=0):
    rec = i32(path, 0) + i64(0, 0) + i32(rows, cols, w, h, freq, clk) + \
        struct.pack("<I", line) + b"\0" * 128 + i32(exposure) + i64(0) + i64(interval)
    assert len(rec) == 200
    return bytes([2]) + rec


def synthetic(base=50000, amplitude=5000, period=500, shift=167, noise=7):
    return bytes([1]) + i32(base, amplitude) + struct.pack("<HH", period, shift) + i32(noise)


END = bytes([7])
put("algo_detect", "banded_pairs",  # tuning, init, state, reset, three detections
    ext() + init() + code(4, 0) + code(5, 0) + detect() + detect() + detect() + END + synthetic())
put("algo_detect", "flat_pairs", ext() + init() + detect(freq=60) + END + bytes([0]))
put("algo_detect", "detect_before_init", detect() + init() + detect() + END + synthetic())
put("algo_detect", "sensor_paths",  # sensor-specific paths answer neither
    init(path=1) + detect(path=1) + init(path=2) + detect(path=2) + END + synthetic())
put("algo_detect", "bad_records",  # bad codes, zero clock, oversized window
    code(4, 9) + code(5, -1) + init(clk=0.0) + detect() + init() +
    detect(rows=100, h=1000) + detect(exposure=0) + bytes([6]) + i32(3) + b"\0" * 12 + detect() +
    bytes([1]) + detect() + END + synthetic(period=1))

# ---- api_sequence: operation, sensor, fields ------------------------------------
def op(code_, sensor, fields=b""):
    return bytes([code_, sensor]) + fields


def geometry(value):  # small form
    return bytes([0]) + struct.pack("<H", value)


def config(mode=0, w=4000, h=3000, clk=480000000, line=5000):
    return struct.pack("<b", mode) + geometry(w) + geometry(h) + geometry(w) + geometry(h) + \
        struct.pack("<II", clk, line)


def set_param(type_=0, flicker_mode=3, mode=0, master=1):
    return struct.pack("<bbb", type_, flicker_mode, mode) + geometry(4000) + geometry(3000) + \
        struct.pack("<bb", master, 0)


def calc(pattern=1, cycle=0, ts=0):
    return bytes([pattern]) + i32(10000) + struct.pack("<bhh", 0, 0, 0) + geometry(4000) + \
        geometry(3000) + struct.pack("<bbbbbb", 1, cycle, 1, 0, 1, 0) + i64(ts)


session = op(1, 0, bytes([0, 0])) + op(3, 0, config()) + op(5, 0) + op(7, 0, set_param())
AWAIT = op(14, 0)
frames = b"".join(op(8, 0, calc(pattern=1 + (n % 2), ts=n * 33333333)) +
                  (AWAIT if n % 3 == 2 else b"") for n in range(8))
put("api_sequence", "one_session",  # Init, Config, Start, SetParam, frames, GetResult, Stop
    session + frames + op(9, 0, bytes([84])) + op(6, 0) + op(2, 0))
put("api_sequence", "three_sensors_two_slots",  # the third master finds no free slot
    b"".join(op(1, s, bytes([s, 0])) + op(3, s, config()) + op(5, s) + op(7, s, set_param())
             for s in (0, 5, 19)) + op(12, 19) + op(11, 0) + op(10, 19, bytes([2])) + op(6, 5))
put("api_sequence", "out_of_order",  # frames and results before Init, reconfig, bad index
    op(8, 3, calc()) + op(9, 3, bytes([0xFF])) + op(4, 3, config(mode=2)) + op(0, 0, bytes([20])) +
    op(0, 0, bytes([0xFF])) + op(2, 3) + op(6, 3) + op(13, 0, bytes([1]) + i32(1)))
put("api_sequence", "every_frame_cycle",  # AE drives an every-frame cycle, then gives up
    session + b"".join(op(8, 0, calc(pattern=1 + (n % 2), cycle=1, ts=n * 33333333))
                       for n in range(6)) + op(8, 0, calc(cycle=0)) + op(9, 0, bytes([200])))
