#include "aldDescription.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

int AldDescription::parseUnsigned(const std::string& text, unsigned long max, unsigned long& value) {
  // strtoul alone would take blanks, signs and wrap negative numbers.
  if (text.empty() || !isdigit(static_cast<unsigned char>(text[0]))) return -1;
  char* end = nullptr;
  errno = 0;
  unsigned long v = strtoul(text.c_str(), &end, 0);
  if (errno != 0 || *end != '\0' || v > max) return -1;
  value = v;
  return 0;
}

int AldDescription::parseDecimal(const std::string& text, double& value) {
  if (text.empty()) return -1;
  char* end = nullptr;
  errno = 0;
  double v = strtod(text.c_str(), &end);
  if (errno != 0 || *end != '\0' || !std::isfinite(v)) return -1;
  value = v;
  return 0;
}

int AldDescription::parseHexBytes(const std::string& hex, std::vector<uint8_t>& bytes) {
  if (hex.empty() || hex.size() % 2 != 0) return -1;
  for (char c : hex) {
    if (!isxdigit(static_cast<unsigned char>(c))) return -1;
  }
  bytes.clear();
  for (size_t i = 0; i < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(strtoul(hex.substr(i, 2).c_str(), nullptr, 16)));
  }
  return 0;
}

int AldDescription::parseField(const std::string& key, const std::string& value, S_AldConfig& config) {
  unsigned long n = 0;
  if (key == "uid") {
    if (value.rfind("0x", 0) == 0 || value.rfind("0X", 0) == 0) {
      if (parseHexBytes(value.substr(2), config.uid) != 0) return -1;
    } else {
      config.uid.assign(value.begin(), value.end());
    }
    return config.uid.empty() || config.uid.size() > kMaxUidLength ? -1 : 0;
  }
  if (key == "type") {
    if (parseUnsigned(value, 0xFF, n) != 0) return -1;
    config.deviceType = static_cast<uint8_t>(n);
    return 0;
  }
  if (key == "vendor") {
    std::vector<uint8_t> bytes;
    if (value.rfind("0x", 0) == 0 || value.rfind("0X", 0) == 0) {
      if (parseHexBytes(value.substr(2), bytes) != 0) return -1;
    } else {
      bytes.assign(value.begin(), value.end());
    }
    if (bytes.size() != 2) return -1;
    config.vendor[0] = bytes[0];
    config.vendor[1] = bytes[1];
    return 0;
  }
  if (key == "subs") {
    if (parseUnsigned(value, 0xFF, n) != 0 || n == 0) return -1;
    config.subUnits = static_cast<unsigned int>(n);
    return 0;
  }
  if (key == "tilt") {
    double degrees;
    if (parseDecimal(value, degrees) != 0) return -1;
    double tenths = std::round(degrees * 10.0);
    if (tenths < -32768.0 || tenths > 32767.0) return -1;
    config.tilt = static_cast<int16_t>(tenths);
    return 0;
  }
  if (key == "silentFrom") {
    if (parseUnsigned(value, 0xFFFFFFFFul, n) != 0 || n == 0) return -1;
    config.silentFrom = static_cast<unsigned int>(n);
    return 0;
  }
  if (key == "silentAt") {
    size_t dash = value.find('-', 1);
    S_SilentWindow window;
    if (dash == std::string::npos || parseDecimal(value.substr(0, dash), window.from) != 0 ||
        parseDecimal(value.substr(dash + 1), window.to) != 0 || window.from < 0 || window.to <= window.from) {
      return -1;
    }
    config.silentAt.push_back(window);
    return 0;
  }
  if (key == "badFcs") {
    if (parseUnsigned(value, 100, n) != 0) return -1;
    config.badFcsPercent = static_cast<unsigned int>(n);
    return 0;
  }
  if (key == "split" || key == "delay") {
    if (parseUnsigned(value, 60000, n) != 0) return -1;
    (key == "split" ? config.splitMs : config.delayMs) = static_cast<unsigned int>(n);
    return 0;
  }
  if (key == "noVendor") {
    if (parseUnsigned(value, 1, n) != 0) return -1;
    config.noVendor = n == 1;
    return 0;
  }
  if (key == "wrongAddr") {
    if (parseUnsigned(value, 0xFF, n) != 0) return -1;
    config.wrongAddr = static_cast<int>(n);
    return 0;
  }
  if (key == "alarm") {
    if (parseUnsigned(value, 0xFF, n) != 0) return -1;
    config.alarm = static_cast<uint8_t>(n);
    return 0;
  }
  return -1;
}

int AldDescription::parse(const std::string& text, S_AldConfig& config, std::string& error) {
  config = S_AldConfig();
  std::istringstream fields(text);
  std::string field;
  while (std::getline(fields, field, ',')) {
    if (field.empty()) continue;
    size_t eq = field.find('=');
    if (eq == std::string::npos || parseField(field.substr(0, eq), field.substr(eq + 1), config) != 0) {
      error = "bad field '" + field + "' in ALD '" + text + "'";
      return -1;
    }
  }
  if (config.uid.empty()) {
    error = "ALD '" + text + "' has no uid";
    return -1;
  }
  return 0;
}
