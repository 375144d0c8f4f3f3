// Host implementation of the framework's system properties: an in-process
// store, so that the library, tests and tools can run on a desk.
//
// Sources, lowest precedence first:
//  1. The property file named by the environment variable FLICKER_PROPS (or
//     given to loadPropertyFile), in the phone's format: one `name=value` per
//     line, `#` starts a comment line, blank lines are ignored, spaces around
//     name and value are trimmed. A malformed line (no `=`, empty name, a name
//     with spaces) is reported through the host log with the file name and
//     line number and skipped.
//  2. Environment overrides: FLICKER_PROP_<name> where every character of the
//     name that is not a letter, digit or underscore is replaced by `_`; so
//     vendor.debug.flk_dump is overridden by FLICKER_PROP_vendor_debug_flk_dump.
//     The environment is read when the store loads.
//  3. Values set through setProperty / clearProperty below.
// The store loads lazily on the first read and again on reloadProperties().
//
// Integer reads (property_get_int32/64) accept what the phone's reader
// accepts: optional leading spaces and sign, then decimal, 0x hex or
// leading-zero octal, and nothing after it. Anything else, or a value out of
// range for the type, gives the caller's default.
//
// Thread-safe: one mutex guards the store.
#pragma once

#include <cstdint>
#include <string>

namespace flicker_host {

// Sets `name` for this process; wins over the file and the environment.
void setProperty(const std::string& name, const std::string& value);
void setProperty(const std::string& name, int64_t value);
// Makes `name` unset for this process, whatever the file or environment say.
void clearProperty(const std::string& name);
// The effective text of `name`; false when it is unset.
bool getProperty(const std::string& name, std::string* value);
// Replaces the file layer with `path`. False when the file cannot be read
// (the file layer is then empty).
bool loadPropertyFile(const std::string& path);
// Drops every value set through this API, then reads FLICKER_PROPS and the
// environment overrides again.
void reloadProperties();
// The environment variable that overrides `name`.
std::string propertyEnvName(const std::string& name);
// Parses a property value as an integer the phone's way (see above).
bool parsePropertyInteger(const std::string& text, int64_t* value);

}  // namespace flicker_host
