#ifndef PK_ALDSIM_ALD_DESCRIPTION_H
#define PK_ALDSIM_ALD_DESCRIPTION_H

#include <cstdint>
#include <string>
#include <vector>

// A window of seconds after start in which an ALD keeps silent.
struct S_SilentWindow {
  double from;
  double to;
};

// Everything a simulated ALD is told on the command line.
struct S_AldConfig {
  std::vector<uint8_t> uid;
  uint8_t deviceType = 0x01;
  uint8_t vendor[2] = {'S', 'I'};
  unsigned int subUnits = 1;
  int16_t tilt = 0;             // tenths of a degree, for every sub-unit
  unsigned int silentFrom = 0;  // 0: answers for ever
  std::vector<S_SilentWindow> silentAt;
  unsigned int badFcsPercent = 0;
  unsigned int splitMs = 0;     // 0: replies go out in one piece
  bool noVendor = false;
  unsigned int delayMs = 0;
  int wrongAddr = -1;           // -1: replies carry the ALD's own address
  uint8_t alarm = 0;
};

// Reads one ALD description: comma-separated key=value fields, uid required.
class AldDescription {
 public:
  static constexpr size_t kMaxUidLength = 19;

  // 0 on success; -1 with a readable reason in `error`.
  static int parse(const std::string& text, S_AldConfig& config, std::string& error);
  // Whole-string unsigned number in C notation (decimal, 0x.., 0..) up to `max`.
  static int parseUnsigned(const std::string& text, unsigned long max, unsigned long& value);
  // Whole-string finite decimal number.
  static int parseDecimal(const std::string& text, double& value);

 private:
  static int parseField(const std::string& key, const std::string& value, S_AldConfig& config);
  static int parseHexBytes(const std::string& hex, std::vector<uint8_t>& bytes);
};

#endif
