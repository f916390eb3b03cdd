#include "utility/hexText.h"

#include <cstring>

std::string hexText(const unsigned char* bytes, std::size_t length, const char* separator) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(length * (2 + strlen(separator)));
  for (std::size_t i = 0; i < length; ++i) {
    if (i > 0) text += separator;
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}
