#!/usr/bin/python3
"""Checks Android.bp against the tree: every source and include folder a
module names exists, every library source is in some module, and every unit
test that runs on the device is in a cc_test module (so the device build
cannot drift from the CMake build).

Usage: /usr/bin/python3 scripts/check_android_bp.py [ROOT]
Reads Android.bp with mini-soong's parser (installed for Debian's
interpreter). Prints one line per problem; exits 1 when there is any.
"""
import glob
import os
import sys

from mini_soong.model import Module
from mini_soong.parser import soong

# Folders whose sources make up libraries (tests, benchmarks and fuzz targets
# beside a unit are not library sources).
LIBRARY_FOLDERS = ("aaa/common/flicker", "aaa/common/flicker/platform", "algo",
                   "camera_stack/device", "camera_stack/host")
NOT_LIBRARY = ("_test.cpp", "_bench.cpp", "_fuzz.cpp")
# Test areas whose sources run on the device against the recording fake.
DEVICE_TEST_AREAS = ("fake", "adapter", "manager", "algo")


def read_modules(path):
    modules = {}
    for item in soong.parseString(open(path).read(), parseAll=True):
        if isinstance(item, Module):
            modules[item.arguments["name"]] = (item.name, item.arguments)
    return modules


def prop(modules, name, key):
    """A list property of a module, its defaults' values in front."""
    _, args = modules[name]
    values = []
    for d in args.get("defaults", []):
        if d not in modules:
            raise SystemExit(f"{name}: unknown defaults {d}")
        values += prop(modules, d, key)
    return values + list(args.get(key, []))


def main():
    os.chdir(sys.argv[1] if len(sys.argv) > 1 else ".")
    modules = read_modules("Android.bp")
    errors = []
    covered = set()
    tested = set()
    for name, (kind, _) in modules.items():
        if kind.endswith("_defaults"):
            continue
        for src in prop(modules, name, "srcs"):
            matches = [os.path.normpath(m) for m in glob.glob(src)]
            if not matches:
                errors.append(f"{name}: source {src} matches no file")
            covered.update(matches)
            if kind == "cc_test":
                tested.update(matches)
        for key in ("local_include_dirs", "export_include_dirs"):
            for d in prop(modules, name, key):
                if not os.path.isdir(d):
                    errors.append(f"{name}: {key} folder {d} does not exist")

    for folder in LIBRARY_FOLDERS:
        for src in sorted(glob.glob(f"{folder}/*.cpp")):
            if not src.endswith(NOT_LIBRARY) and os.path.normpath(src) not in covered:
                errors.append(f"{src} is in no Android.bp module")

    device_tests = [t for t in glob.glob("tests/platform/*_test.cpp")
                    if not os.path.basename(t).startswith("host_")]
    for area in DEVICE_TEST_AREAS:
        device_tests += glob.glob(f"tests/{area}/*.cpp")
    for src in sorted(device_tests):
        if os.path.normpath(src) not in tested:
            errors.append(f"{src} is in no cc_test module")

    for e in errors:
        print("   " + e)
    print(f"   {len(modules)} modules, {len(covered)} source files named")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main())
