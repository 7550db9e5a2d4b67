// The password of a camera: never from the command line, where every user of the machine can read it.
#pragma once

#include <string>

inline constexpr char PASSWORD_VARIABLE[] = "CONTROLLER_PASSWORD";

// From the environment, else asked for on the terminal without echo. False with a reason when there is neither,
// or the user broke it off.
bool AskPassword(const std::string& user, std::string* password, std::string* error);
