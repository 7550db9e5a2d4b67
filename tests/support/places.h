// Where the tests find what they run and read.
#pragma once

extern const char* const TEST_BIN_DIR;   // the built programs and the plug-in
extern const char* const TEST_DATA_DIR;  // tests/data
