#ifndef PK_UTILITY_DEBUG_TRACE_H
#define PK_UTILITY_DEBUG_TRACE_H

#include <cstddef>

// Trace levels: 1 error, 2 warn, 3 info, 4 debug, 5 verbose. 0 switches tracing off.
extern int gLogLevel;
extern int gLogEnable;
extern const char* gTraceLevelMsg[6];
extern const int gTraceColorMsg[6];

// The one logging operation: one coloured line on standard output.
void DebugTrace(int level, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

namespace pk_trace {

// The place of a trace is the bare name of its source file, without folders and
// extension, worked out by the compiler so that a trace costs nothing for it.
constexpr const char* baseName(const char* path) {
  const char* base = path;
  for (const char* p = path; *p != '\0'; ++p) {
    if (*p == '/') base = p + 1;
  }
  return base;
}

constexpr std::size_t stemLength(const char* name) {
  std::size_t n = 0;
  std::size_t dot = static_cast<std::size_t>(-1);
  for (; name[n] != '\0'; ++n) {
    if (name[n] == '.') dot = n;
  }
  return dot == static_cast<std::size_t>(-1) ? n : dot;
}

template <std::size_t N>
struct Stem {
  char text[N + 1];
};

template <std::size_t N>
constexpr Stem<N> makeStem(const char* name) {
  Stem<N> stem{};
  for (std::size_t i = 0; i < N; ++i) stem.text[i] = name[i];
  stem.text[N] = '\0';
  return stem;
}

}  // namespace pk_trace

#define PK_FILE_STEM                                                          \
  ([]() -> const char* {                                                      \
    constexpr const char* pkBase = pk_trace::baseName(__FILE__);              \
    static constexpr auto pkStem =                                            \
        pk_trace::makeStem<pk_trace::stemLength(pkBase)>(pkBase);             \
    return pkStem.text;                                                       \
  }())

// Every call site passes its own file and line through this macro.
#define TRACE(level, ...) DebugTrace((level), PK_FILE_STEM, __LINE__, __VA_ARGS__)

// The place a shared helper traces for: its caller's file and line, so that a
// trace names the owner it speaks of and not the helper.
struct S_TraceSite {
  const char* file;
  int line;
};
#define TRACE_SITE (S_TraceSite{PK_FILE_STEM, __LINE__})

#endif
