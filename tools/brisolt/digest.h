#pragma once

#include <string>

/// The SHA-256 of a file in hex, as sha256sum prints it. Throws Failure.
std::string sha256(const std::string& file);
