#include "tests/support/places.h"

const char* const TEST_BIN_DIR = BIN_DIR;
const char* const TEST_DATA_DIR = DATA_DIR;
