// Small file and clock helpers of the flicker diagnostics: the dump counter
// file, directory creation, raw buffer dumps and a millisecond clock.
// Stateless; safe from any thread (two callers may race on the same file,
// which is accepted for a debug facility).
#pragma once

#include <cstddef>
#include <cstdint>

// Reads the decimal counter in `path` into `*count`. `*count` is set to
// `defaultValue` first and keeps it on any failure. Returns 0 or -1.
int getFileCount(const char* path, int* count, int defaultValue);

// Writes `count` as decimal text (no newline) to `path`. Returns 0 or -1.
int setFileCount(const char* path, int count);

// Creates one directory with mode 0770. Returns -1 for a null path, else the
// result of mkdir (0, or -1 with errno set).
int createDir(const char* path);

// Writes `size` bytes of `buf` to `filename`. Returns 0 when the file could be
// opened, -1 when it could not but `dir` was then created, -2 when neither.
int dumpBufToFile(char* filename, char* dir, void* buf, int size);

// `out` receives the target of `path` when it is a symbolic link, else a copy
// of `path`; both truncated to `size` bytes including the terminator.
void _get_canonical_filepath(const char* path, char* out, unsigned long size);

// The monotonic clock in milliseconds.
int64_t getMs();

// The system's text for the error number `err`, in `buf` or a static string;
// never null.
const char* flickerErrorText(int err, char* buf, size_t size);
