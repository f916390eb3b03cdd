#ifndef PK_ALDSIM_SIM_LOG_H
#define PK_ALDSIM_SIM_LOG_H

#include <cstddef>
#include <cstdint>
#include <string>

// The simulator's output on stdout, one flushed line at a time: frame lines
// "HH:MM:SS.mmm RX|TX 7E .. 7E" and informational lines starting with "# ".
class SimLog {
 public:
  static void frame(const char* direction, const uint8_t* bytes, size_t length);
  static void info(const std::string& text);
  static void line(const std::string& text);
};

#endif
