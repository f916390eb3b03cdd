#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "InteractionLayer/InteractionObj/CommandLine/commandSplit.h"

namespace {

std::vector<std::string> words(const std::string& text) {
  std::vector<char> line(text.begin(), text.end());
  line.push_back('\0');
  S_CommmandSplit_t split;
  memset(&split, 0, sizeof(split));
  CommandSplit::split(&split, line.data());
  return std::vector<std::string>(split.argv, split.argv + split.argc);
}

TEST(CommandSplitTest, BlanksSeparateAndRunsOfBlanksCountAsOne) {
  EXPECT_EQ(words("mret_v2 getTilt 3 1"), (std::vector<std::string>{"mret_v2", "getTilt", "3", "1"}));
  EXPECT_EQ(words("  aisg   getDevNums  "), (std::vector<std::string>{"aisg", "getDevNums"}));
  // A tabulator is part of a word.
  EXPECT_EQ(words("aisg\tgetDevNums x"), (std::vector<std::string>{"aisg\tgetDevNums", "x"}));
}

TEST(CommandSplitTest, BlankLineHasNoWords) {
  EXPECT_TRUE(words("").empty());
  EXPECT_TRUE(words("     ").empty());
}

TEST(CommandSplitTest, TenWordsAtMost) {
  EXPECT_EQ(words("1 2 3 4 5 6 7 8 9 10").size(), 10u);
  std::vector<std::string> eleven = words("1 2 3 4 5 6 7 8 9 10 11 12");
  ASSERT_EQ(eleven.size(), 10u);
  EXPECT_EQ(eleven.back(), "10");
}

}  // namespace
