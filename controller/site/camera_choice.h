// Which camera somebody means.
#pragma once

#include "host/video/video.h"

#include <string>

// The installed camera with that name, id, service URL or address ("10.0.0.7", "10.0.0.7:8080"), tried in this
// order. Null with a reason when there is none or several are meant. Under the main-thread lock.
CVideoSystem* ChooseCamera(const std::string& wanted, std::string* error);
