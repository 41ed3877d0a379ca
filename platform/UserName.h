#pragma once

#include <string>

/// Name of the user that runs this process, in UTF-8: the system's answer, else the environment
/// variable "USERNAME", else empty.
std::string currentUserName();
