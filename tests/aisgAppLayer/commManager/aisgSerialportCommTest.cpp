#include <dlfcn.h>
#include <sys/msg.h>

#include <atomic>
#include <memory>

#include "aisgAppLayer/commManager/aisgSerialportComm.h"
#include "ptyBus.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"

// Stands for a receive thread that the system holds up right after it restarted the silence timer.
static std::atomic<bool> gHeldUpAfterRestart{false};

extern "C" int timer_settime(timer_t id, int flags, const itimerspec* value, itimerspec* old) {
  static const auto real = reinterpret_cast<int (*)(timer_t, int, const itimerspec*, itimerspec*)>(
      dlsym(RTLD_NEXT, "timer_settime"));
  const int result = real(id, flags, value, old);
  if (gHeldUpAfterRestart) e2e::sleepMs(60);
  return result;
}

namespace {

class AisgSerialportCommTest : public testing::Test {
 protected:
  void TearDown() override {
    _comm.reset();
    msgctl(_queue, IPC_RMID, nullptr);
  }
  // The next message posted within timeoutMs; empty when none came.
  Bytes posted(int timeoutMs) {
    S_SerialportMsg msg;
    ssize_t n = -1;
    e2e::waitUntil([&] { return (n = recordReceive(_queue, &msg, sizeof(msg.data), 0, IPC_NOWAIT)) >= 0; }, timeoutMs);
    EXPECT_TRUE(n < 0 || recordType(&msg) == 3);
    return n < 0 ? Bytes() : Bytes(msg.data, msg.data + n);
  }
  Pty _bus{true};
  int _queue = msgget(IPC_PRIVATE, IPC_CREAT | 0600);
  std::unique_ptr<AisgSerialportComm> _comm{new AisgSerialportComm(_queue)};
};

TEST_F(AisgSerialportCommTest, GathersUntil20MsOfSilenceAndStopsReadingAtItsEnd) {
  Bytes ua = frame(packetTo(3, 0x63)), burst(385);
  _bus.write(ua);
  _bus.write(ua);
  EXPECT_EQ(posted(500), hex("7E 03 73 33 64 7E 7E 03 73 33 64 7E"));
  // A pause of more than 20 ms inside a frame cuts it in two.
  _bus.write(Bytes(ua.begin(), ua.begin() + 3));
  e2e::sleepMs(80);
  _bus.write(Bytes(ua.begin() + 3, ua.end()));
  EXPECT_EQ(posted(500), Bytes(ua.begin(), ua.begin() + 3));
  EXPECT_EQ(posted(500), Bytes(ua.begin() + 3, ua.end()));
  // 384 bytes at most; reads into a full buffer still restart the timer, so a trickle holds the
  // message back. A busy machine can stretch a pause past 20 ms: one of three tries must show it.
  for (size_t i = 0; i < burst.size(); ++i) burst[i] = static_cast<unsigned char>(i * 7 + 0x7D);
  bool heldBack = false;
  for (int attempt = 0; attempt < 3 && !heldBack; ++attempt) {
    _bus.write(burst);
    for (int i = 0; i < 20; ++i, e2e::sleepMs(4)) _bus.write({0x55});
    Bytes first = posted(0);
    heldBack = first.empty();
    EXPECT_EQ(heldBack ? posted(500) : first, Bytes(burst.begin(), burst.end() - 1));
    while (!posted(60).empty()) {  // the rest of a try that was cut short
    }
  }
  EXPECT_TRUE(heldBack);
  _bus.write(ua);  // the end comes while the timer runs, and after it nothing reads the port
  e2e::sleepMs(5);
  _comm.reset();
  _bus.write(ua);
  pollfd unread = {_bus.slave, POLLIN, 0};
  EXPECT_EQ(poll(&unread, 1, 100), 1);
}

TEST_F(AisgSerialportCommTest, BytesOfAReadHeldUpAfterTheRestartStillEndTheirMessage) {
  gHeldUpAfterRestart = true;
  _bus.write(frame(packetTo(3, 0x63)));
  Bytes message = posted(500);
  gHeldUpAfterRestart = false;
  EXPECT_EQ(message, hex("7E 03 73 33 64 7E"));
}

}  // namespace
