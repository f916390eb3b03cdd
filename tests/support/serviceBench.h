#ifndef PK_TESTS_SUPPORT_SERVICE_BENCH_H
#define PK_TESTS_SUPPORT_SERVICE_BENCH_H

// The one fixture of the end-to-end cases: the real service, the ALD simulator on a
// pty and the outside tools, in the sandbox; and scenes played on it, step by step.
#include <gtest/gtest.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cstdio>

#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "e2eHarness.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"

namespace e2e {

// How often `what` stands in text.
inline int occurrences(const std::string& text, const std::string& what) {
  int n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// Deterministic bytes of any value, line feeds included.
inline std::string garbage(size_t length, unsigned int seed) {
  std::string bytes;
  for (size_t i = 0; i < length; ++i) bytes += static_cast<char>((seed = seed * 1103515245u + 12345u) >> 16);
  return bytes;
}

// Words of a text, split at blanks.
inline std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream split(text);
  return std::vector<std::string>(std::istream_iterator<std::string>(split), {});
}

// One scene: the simulator's ALDs and the service's options (words of a text each), the service's
// configuration file when it is to open another port than the simulator's, and the script (see play).
struct S_Scene {
  std::string name, alds, options, config, script;
};

class ServiceBench : public testing::Test {
 protected:
  // A wait fails after this long: the bound says how long a failure takes, never how fast the service must be.
  static constexpr int kStepMs = 45000;

  void TearDown() override {
    service.stop();
    bus.stop();
    // A sanitizer build reports on the service's own terminal.
    for (const char* report : {"ThreadSanitizer", "AddressSanitizer", "runtime error:", "LeakSanitizer"}) {
      EXPECT_EQ(service.output().find(report), std::string::npos) << service.plainOutput();
    }
  }

  // The simulator with these ALDs, then the service with these options behind trace level 1 (a later -l wins).
  void start(const std::vector<std::string>& alds, const std::vector<std::string>& options,
             const std::string& config = "") {
    ASSERT_TRUE(startSimulator(bus, alds)) << bus.output();
    if (!config.empty()) writeConfig(config);
    std::vector<std::string> argv = {"-l", "1"};
    argv.insert(argv.end(), options.begin(), options.end());
    ASSERT_TRUE(startService(service, argv)) << service.output();
  }
  void start(const S_Scene& scene) { start(wordsOf(scene.alds), wordsOf(scene.options), scene.config); }

  // Runs a tool of the build (mplanectl, pkstatus) with these words to its end; its exit status, or -1.
  int run(const std::string& words, std::string* out = nullptr) {
    std::vector<std::string> argv = wordsOf(words);
    argv[0] = binPath(argv[0]);
    return runToEnd(argv, out);
  }
  // The share of one core that the service uses over the next milliseconds, in percent.
  double cpuPercent(int ms) {
    long before = cpuTicks(service.pid());
    sleepMs(ms);
    return 100.0 * static_cast<double>(cpuTicks(service.pid()) - before) / static_cast<double>(sysconf(_SC_CLK_TCK)) *
           1000.0 / ms;
  }

  // Plays a script: steps separated by " | ", each a verb and its text, in turn:
  //   type LINE      a line on the service's console      sim COMMAND  a command to the simulator (quiet 1, wake 1)
  //   eof            the end of the console's input       run TOOL ..  a tool to its end: the reply is its output
  //                                                        and "exit STATUS"
  //   says TEXT      the service's output shows TEXT after what the last `says` found, or the last line typed
  //   bus TEXT       the simulator's log shows TEXT after what the last `bus` or `sent` found, or the last command
  //   sent KINDS     the next frames that the service sends are of these kinds (see kindOf)
  //   reply TEXT     the last tool's output holds TEXT    idle         under 10 % of one core over 2 s
  //   within S       later waits fail after S seconds, and print how long after the last event they took
  //   never TEXT     the simulator's log holds no TEXT since the last event   wait S   S seconds pass
  //   queue KEY      an event: a 64-byte type-1 message on the System V queue of this hex key
  void play(const std::string& script) {
    size_t said = 0, logged = 0;
    int bound = kStepMs;
    double event = nowMs();
    std::string reply;
    for (size_t at = 0, end = 0; end < script.size(); at = end + 3) {
      end = std::min(script.find(" | ", at), script.size());
      const std::string step = script.substr(at, end - at);
      SCOPED_TRACE(step.substr(0, 200));
      const std::string verb = step.substr(0, step.find(' ')),
                        text = step.substr(std::min(step.size(), verb.size() + 1));
      if (verb == "type" || verb == "eof") {
        said = service.mark();
        verb == "eof" ? service.sendEof() : service.send(text + "\n");
      } else if (verb == "sim" || verb == "queue") {
        logged = bus.mark();
        said = service.mark();
        event = nowMs();
        unsigned char message[kRecordTypeSize + 64] = {1};
        if (verb == "sim") {
          bus.send(text + "\n");
        } else {
          EXPECT_EQ(recordSend(msgget(std::stoi(text, nullptr, 16), 0), message, 64, 0), 0);
        }
      } else if (verb == "within") {
        bound = std::stoi(text) * 1000;
      } else if (verb == "wait") {
        sleepMs(std::stoi(text) * 1000);
      } else if (verb == "never") {
        EXPECT_EQ(since(bus, logged).find(text), std::string::npos) << since(bus, logged);
      } else if (verb == "run") {
        const int status = run(text, &reply);
        reply += "exit " + std::to_string(status) + "\n";
      } else if (verb == "reply") {
        EXPECT_NE(reply.find(text), std::string::npos) << reply;
      } else if (verb == "idle") {
        EXPECT_LT(cpuPercent(2000), 10.0);
      } else if (verb == "says" || verb == "bus") {
        Child& child = verb == "says" ? service : bus;
        size_t& from = verb == "says" ? said : logged;
        size_t at = child.offsetOf(text, from, bound);
        ASSERT_NE(at, std::string::npos) << since(child, from);
        if (bound != kStepMs) std::printf("[ %s: %.1f s after the event ]\n", step.c_str(), (nowMs() - event) / 1000);
        from = at + text.size();
      } else if (verb == "sent") {
        std::vector<std::pair<std::string, size_t>> frames;
        size_t count = static_cast<size_t>(occurrences(text, " ") + 1);
        waitUntil([&] { return (frames = framesSent(logged)).size() >= count; }, bound);
        std::string kinds;
        for (size_t i = 0; i < std::min(count, frames.size()); ++i) kinds += (i > 0 ? " " : "") + frames[i].first;
        ASSERT_EQ(kinds, text) << since(bus, logged);
        logged = frames[count - 1].second;
      } else {
        FAIL() << "no such step";
      }
    }
  }

  // The kind of a frame that the service sent, by its bytes behind the flag as the simulator logs them.
  static std::string kindOf(const std::string& bytes) {
    static const std::pair<const char*, const char*> kinds[] = {
        {"FF BF 81 F0 02 07 00", "reset"},
        {"FF BF 81 F0 04 01 00 03 00", "probe"},
        {"FF BF 81 F0 06 01 01 41 02 01 01", "assign"},  // the ALD of UID 0x41 to address 1
        {"01 11", "poll1"},
        {"02 11", "poll2"},
        {"01 93", "snrm1"},
        {"02 93", "snrm2"}};
    for (const auto& kind : kinds) {
      if (bytes.rfind(kind.first, 0) == 0) return kind.second;
    }
    return "other";
  }
  // The kinds of the frames that the service sent from log position `from` on, each with the end of its line.
  std::vector<std::pair<std::string, size_t>> framesSent(size_t from) {
    std::vector<std::pair<std::string, size_t>> frames;
    std::string log = bus.output();
    for (size_t at = log.find(" RX 7E ", from), end; at != std::string::npos; at = log.find(" RX 7E ", end)) {
      if ((end = log.find('\n', at)) == std::string::npos) break;
      frames.emplace_back(kindOf(log.substr(at + 7, end - at - 7)), end);
    }
    return frames;
  }
  static std::string since(Child& child, size_t from) {
    std::string text = child.output();
    return stripColours(text.substr(std::min(from, text.size())));
  }

  Child bus, service;
};

}  // namespace e2e

#endif
