#include "host/intercom/audio_stream.h"

CAudioStreamTarget::CAudioStreamTarget() = default;
CAudioStreamTarget::~CAudioStreamTarget() = default;
