#include "utility/debugTrace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

int gLogLevel = 3;
int gLogEnable = 1;
const char* gTraceLevelMsg[6] = {"ERR", "WRN", "INF", "DBG", "VBS", nullptr};
const int gTraceColorMsg[6] = {31, 33, 32, 37, 37, 0};

void DebugTrace(int level, const char* file, int line, const char* format, ...) {
  // The threshold comes first, so that a trace above it formats nothing.
  if (gLogLevel < level || gLogLevel <= 0) return;

  char message[1024];
  memset(message, 0, sizeof(message));
  va_list args;
  va_start(args, format);
  vsnprintf(message, sizeof(message), format, args);
  va_end(args);

  if (gLogEnable != 1) return;

  time_t now = time(nullptr);
  struct tm local;
  localtime_r(&now, &local);
  char timeText[128];
  memset(timeText, 0, sizeof(timeText));
  snprintf(timeText, sizeof(timeText), "%04d-%02d-%02d %02d:%02d:%02d", local.tm_year + 1900,
           local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);

  // One print call per line keeps lines of different threads apart.
  printf("\033[40;%dm[AISG][%s]%s:[%s,L%d]%s\033[0m", gTraceColorMsg[level - 1], timeText,
         gTraceLevelMsg[level - 1], file, line, message);
}
