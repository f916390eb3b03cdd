#ifndef PK_UTILITY_HEX_TEXT_H
#define PK_UTILITY_HEX_TEXT_H

#include <cstddef>
#include <string>

// Bytes as upper-case hexadecimal pairs with the separator between them: "7E 01 93".
// The one rendering of bytes that the service's dumps and its tools share.
std::string hexText(const unsigned char* bytes, std::size_t length, const char* separator = " ");

#endif
