#ifndef PK_TESTS_CAPTURE_STDOUT_H
#define PK_TESTS_CAPTURE_STDOUT_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

// Runs fn with standard output captured and returns what it printed.
template <typename Fn>
std::string captured(Fn fn) {
  fflush(stdout);
  testing::internal::CaptureStdout();
  fn();
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

#endif
