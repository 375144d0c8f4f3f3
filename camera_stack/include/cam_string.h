// String helpers of the camera framework.
#pragma once

// True when `text` is an optionally signed run of decimal digits and nothing
// else. Null or empty text is not an integer.
extern "C" bool isInt(const char* text);
