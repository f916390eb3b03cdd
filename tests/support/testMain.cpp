// The main of every test program: re-runs the program inside the sandbox, so
// that the fixed configuration path, /tmp and the fixed System V keys are the
// run's own, then runs the tests. Listing the tests needs no sandbox.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "e2eHarness.h"

int main(int argc, char** argv) {
  bool listing = false;
  for (int i = 1; i < argc; ++i) {
    if (strncmp(argv[i], "--gtest_list_tests", 18) == 0) listing = true;
  }
  if (!listing && getenv("PK_SANDBOX_RUN") == nullptr) {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof(self) - 1);
    if (n > 0) {
      self[n] = '\0';
      std::vector<std::string> words = e2e::emulatorWords();
      std::vector<char*> args = {const_cast<char*>(PK_SANDBOX), const_cast<char*>("--base"),
                                 const_cast<char*>(PK_RUN_BASE), const_cast<char*>("--")};
      for (auto& word : words) args.push_back(const_cast<char*>(word.c_str()));
      args.push_back(self);
      for (int i = 1; i < argc; ++i) args.push_back(argv[i]);
      args.push_back(nullptr);
      execv(PK_SANDBOX, args.data());
      perror("execv sandbox");
      return 125;
    }
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
