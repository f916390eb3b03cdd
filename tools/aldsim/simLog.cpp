#include "simLog.h"

#include "utility/hexText.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>

void SimLog::line(const std::string& text) {
  fputs(text.c_str(), stdout);
  fputc('\n', stdout);
  fflush(stdout);
}

void SimLog::info(const std::string& text) { line("# " + text); }

void SimLog::frame(const char* direction, const uint8_t* bytes, size_t length) {
  struct timeval now;
  gettimeofday(&now, nullptr);
  struct tm local;
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  snprintf(stamp, sizeof(stamp), "%02d:%02d:%02d.%03ld %s", local.tm_hour, local.tm_min, local.tm_sec,
           static_cast<long>(now.tv_usec / 1000), direction);
  std::string text(stamp);
  if (length > 0) text += " " + hexText(bytes, length);
  line(text);
}
