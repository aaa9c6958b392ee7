// Texts and bytes that nobody else knows.
#pragma once

#include <cstddef>
#include <string>

namespace gateway {

/// Fills with bytes that nobody can guess. Throws std::runtime_error.
void fillRandom(unsigned char *bytes, std::size_t count);

/// Compares in a time that does not tell where they differ, or how long the wanted one is.
bool sameSecret(const std::string &given, const std::string &wanted);

/// The first line of a file with a password. Throws std::runtime_error when others may read it.
std::string readPassword(const std::string &file);

}  // namespace gateway
