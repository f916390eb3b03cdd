#include "captureStdout.h"
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "utility/debugTrace.h"

namespace {

class DebugTraceTest : public testing::Test {
 protected:
  void TearDown() override { gLogLevel = 3; }
};

TEST_F(DebugTraceTest, LineHasColourTimePlaceAndResetBehindTheMessage) {
  int line = 0;
  std::string out = captured([&] { line = __LINE__; TRACE(3, "commandLineThread start\n"); });
  std::string tail = "]INF:[debugTraceTest,L" + std::to_string(line) + "]commandLineThread start\n\033[0m";
  // ESC[40;32m[AISG][YYYY-MM-DD hh:mm:ss]INF:[debugTraceTest,L<n>]commandLineThread start\nESC[0m
  ASSERT_EQ(out.rfind("\033[40;32m[AISG][", 0), 0u) << out;
  EXPECT_EQ(out.size(), std::string("\033[40;32m[AISG][").size() + 19 + tail.size()) << out;
  EXPECT_EQ(out.substr(out.size() - tail.size()), tail) << out;
  EXPECT_EQ(out[15 + 4], '-');
  EXPECT_EQ(out[15 + 10], ' ');
}

TEST_F(DebugTraceTest, LevelsAndColoursFollowTheThreshold) {
  gLogLevel = 3;
  std::string out = captured([] {
    TRACE(1, "a\n");
    TRACE(2, "b\n");
    TRACE(3, "c\n");
    TRACE(4, "d\n");
  });
  EXPECT_NE(out.find("\033[40;31m[AISG]"), std::string::npos);
  EXPECT_NE(out.find("]ERR:["), std::string::npos);
  EXPECT_NE(out.find("\033[40;33m[AISG]"), std::string::npos);
  EXPECT_NE(out.find("]WRN:["), std::string::npos);
  EXPECT_NE(out.find("]INF:["), std::string::npos);
  EXPECT_EQ(out.find("]DBG:["), std::string::npos);

  gLogLevel = 0;
  EXPECT_EQ(captured([] { TRACE(1, "off\n"); }), "");
  gLogLevel = -2;
  EXPECT_EQ(captured([] { TRACE(1, "off\n"); }), "");
  gLogLevel = 9;
  out = captured([] { TRACE(5, "v\n"); });
  EXPECT_NE(out.find("\033[40;37m[AISG]"), std::string::npos);
  EXPECT_NE(out.find("]VBS:["), std::string::npos);
}

TEST_F(DebugTraceTest, LongMessageIsCutAt1023AndStillReset) {
  std::string longText(3000, 'x');
  std::string out = captured([&] { TRACE(1, "%s", longText.c_str()); });
  size_t start = out.find("]x");
  ASSERT_NE(start, std::string::npos);
  std::string message = out.substr(start + 1);
  EXPECT_EQ(message, std::string(1023, 'x') + "\033[0m");
}

TEST_F(DebugTraceTest, PlaceIsTheBareFileStem) {
  EXPECT_STREQ(PK_FILE_STEM, "debugTraceTest");
  static_assert(pk_trace::stemLength(pk_trace::baseName("/a/b/commandLineObj.cpp")) == 14, "stem");
}

}  // namespace
