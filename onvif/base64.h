// Base64 as the login header needs it; it stands below, since the host's HTTP needs it too.
#pragma once

#include "util/base64.h"
