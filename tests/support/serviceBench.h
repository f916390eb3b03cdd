#ifndef PK_TESTS_SUPPORT_SERVICE_BENCH_H
#define PK_TESTS_SUPPORT_SERVICE_BENCH_H

// The bench of the end-to-end cases: the real service, the ALD simulator on a
// pty and the outside tools. Every wait gathers the output of the service and
// of the simulator, so that neither ever blocks on a full terminal.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "e2eHarness.h"

namespace e2e {

const char* const kPort = "/tmp/ttyALD";

// How often `what` stands in text.
inline int occurrences(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

class ServiceBench : public testing::Test {
 protected:
  void TearDown() override {
    service.stop();
    bus.stop();
    // A sanitizer build reports on the service's own terminal.
    for (const char* report : {"WARNING: ThreadSanitizer", "ERROR: AddressSanitizer", "runtime error:",
                               "ERROR: LeakSanitizer"}) {
      EXPECT_EQ(service.output().find(report), std::string::npos) << service.plainOutput();
    }
  }

  // The simulator with these ALDs, and a configuration that names its pty.
  void startBus(const std::vector<std::string>& alds) {
    std::vector<std::string> argv = {e2e::binPath("aldsim"), "--link", kPort};
    argv.insert(argv.end(), alds.begin(), alds.end());
    ASSERT_TRUE(bus.start(argv));
    ASSERT_TRUE(bus.waitFor("ready ", 5000)) << bus.output();
    e2e::writeConfig(std::string("PortName ") + kPort + "\n");
  }

  // The service with these options behind trace level 1 (a later -l wins).
  void startService(const std::vector<std::string>& options) {
    std::vector<std::string> argv = {e2e::binPath("pylonkeeper"), "-l", "1"};
    argv.insert(argv.end(), options.begin(), options.end());
    ASSERT_TRUE(service.start(argv));
    ASSERT_TRUE(says(service, "/*****************************************************", 5000));
  }

  bool waitUntil(const std::function<bool()>& done, int timeoutMs) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      service.pump(10);
      bus.pump(10);
    }
    return true;
  }
  void pumpFor(int ms) { waitUntil([] { return false; }, ms); }
  bool says(e2e::Child& child, const std::string& text, int timeoutMs, size_t from = 0) {
    return waitUntil([&] { return child.output().find(text, from) != std::string::npos; }, timeoutMs);
  }

  // Sends a console line and waits for text in what follows it.
  bool console(const std::string& line, const std::string& text, int timeoutMs = 3000) {
    size_t mark = service.mark();
    service.send(line + "\n");
    return says(service, text, timeoutMs, mark);
  }
  // Runs a program of the build to its end; its exit status, or -1.
  int runTool(const std::vector<std::string>& argv, std::string* out = nullptr) {
    e2e::Child tool;
    if (!tool.start(argv)) return -1;
    waitUntil([&] { return !tool.running(); }, 15000);
    int status = tool.waitExit(0);
    if (out != nullptr) *out = tool.plainOutput();
    return status;
  }
  int mplane(const std::vector<std::string>& args, std::string* out = nullptr) {
    std::vector<std::string> argv = {e2e::binPath("mplanectl")};
    argv.insert(argv.end(), args.begin(), args.end());
    return runTool(argv, out);
  }
  // pkstatus's verdict: 0 alive, 1 alive with an alarm, 2 not alive, 3 no block.
  int pkstatus() { return runTool({e2e::binPath("pkstatus"), "--alive", "3"}); }

  // The share of one core that the service used over the next milliseconds, in percent.
  double cpuPercent(int ms) {
    long before = e2e::cpuTicks(service.pid());
    pumpFor(ms);
    long used = e2e::cpuTicks(service.pid()) - before;
    return 100.0 * static_cast<double>(used) / static_cast<double>(sysconf(_SC_CLK_TCK)) * 1000.0 / ms;
  }

  e2e::Child bus;
  e2e::Child service;
};

}  // namespace e2e

#endif
