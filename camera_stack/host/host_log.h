// Host implementation of the framework's log sinks.
//
// The debug-print sink writes logcat-style lines to stderr:
//   "MM-DD HH:MM:SS.mmm  <pid>  <tid> <D|E> <tag>: <message>"
// (level 0 is D, level 1 and anything else E). The unified logger writes the
// same line format (level 1 is E, others D) to its own file, and nowhere until
// one is given, by setUnifiedLogFile or the environment variable
// FLICKER_ULOG_FILE (read on first use).
//
// Framework defaults on the host: ULogger::sMode = 1 (the debug-print sink;
// bit 1 is added when a unified-logger file is set), sDetailsLevel = 5,
// sNormalDetailsMask = 0x801000 and both g_logInfoLv entries enabled with an
// empty prefix. So errors always come through and debug lines come through
// when the library's own level property (vendor.debug.flicker_mgr.log.level)
// allows them.
//
// Thread-safe: each line is written whole under one mutex.
#pragma once

#include <string>

namespace flicker_host {

// Silences (true) or restores (false) both sinks; tools use it for quiet runs.
void setLogsQuiet(bool quiet);
// Sends the debug-print lines to `path` (appending) instead of stderr; an
// empty path goes back to stderr. False when the file cannot be opened (the
// destination is then unchanged).
bool setDebugLogFile(const std::string& path);
// Sends the unified logger to `path` (appending) and turns its sink on in
// ULogger::sMode; an empty path turns it off again. False when the file
// cannot be opened.
bool setUnifiedLogFile(const std::string& path);

}  // namespace flicker_host
