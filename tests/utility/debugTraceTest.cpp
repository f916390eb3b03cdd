#include <gtest/gtest.h>

#include <string>

#include "captureStdout.h"
#include "utility/debugTrace.h"

namespace {

class DebugTraceTest : public testing::Test {
 protected:
  void TearDown() override { gLogLevel = 3; }
};

TEST_F(DebugTraceTest, LineHasColourTimePlaceAndResetBehindTheMessage) {
  int line = __LINE__ + 1;
  std::string out = captured([] { TRACE(3, "commandLineThread start\n"); });
  // ESC[40;32m[AISG][YYYY-MM-DD hh:mm:ss]INF:[debugTraceTest,L<n>]commandLineThread start\nESC[0m
  const std::string head = "\033[40;32m[AISG][",
                    tail = "]INF:[debugTraceTest,L" + std::to_string(line) + "]commandLineThread start\n\033[0m";
  ASSERT_EQ(out.size(), head.size() + 19 + tail.size()) << out;
  EXPECT_EQ(out.substr(0, head.size()) + out.substr(head.size() + 19), head + tail);
  EXPECT_EQ(out.substr(head.size(), 19).find_first_not_of("0123456789- :"), std::string::npos) << out;
  // A long message is cut at 1023 characters, and the colour still reset.
  out = captured([] { TRACE(1, "%s", std::string(3000, 'x').c_str()); });
  EXPECT_EQ(out.substr(out.find("]x") + 1), std::string(1023, 'x') + "\033[0m");
}

TEST_F(DebugTraceTest, LevelsAndColoursFollowTheThreshold) {
  auto tracedAt = [](int threshold, int level) {
    gLogLevel = threshold;
    std::string out = captured([level] { TRACE(level, "m\n"); });
    return out.empty() ? std::string("-") : out.substr(0, out.find("[AISG]")) + out.substr(out.find("]", 20) + 1, 4);
  };
  const struct {
    int threshold, level;
    std::string shown;
  } cases[] = {{3, 1, "\033[40;31mERR:"},
               {3, 2, "\033[40;33mWRN:"},
               {3, 3, "\033[40;32mINF:"},
               {3, 4, "-"},
               {0, 1, "-"},
               {-2, 1, "-"},
               {9, 4, "\033[40;37mDBG:"},
               {9, 5, "\033[40;37mVBS:"}};
  for (const auto& c : cases) EXPECT_EQ(tracedAt(c.threshold, c.level), c.shown) << c.threshold << " " << c.level;
}

}  // namespace
