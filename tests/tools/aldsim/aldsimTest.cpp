// End-to-end tests of the ALD bus simulator: the real program on a pty, driven
// from the primary's side of the bus with the frame codec.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "e2eHarness.h"
#include "testFrames.h"

namespace {

using tframes::Bytes;

constexpr char kLink[] = "/tmp/ttyALD";
constexpr int kNoReply = 1;  // exchange(): nothing came back
constexpr int kBadFcs = hdlc::HDLC_FCS_ERROR;  // exchange(): a collision or a spoiled reply
constexpr uint8_t kXid = 0xAF;
constexpr uint8_t kRr = 0x01;
constexpr uint8_t kSnrm = 0x83;
const Bytes kAll = {0xFF, 0xFF, 0xFF};

long long nowMs() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<long long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

// The frame from the primary, on the wire.
Bytes frame(uint8_t address, uint8_t control, const Bytes& data = {}, uint8_t sendNo = 0, uint8_t receiveNo = 0) {
  return tframes::frame(tframes::packetTo(address, control, data, sendNo, receiveNo));
}

// A broadcast XID of the ALD group with the UID and either a mask (a probe) or a new address.
Bytes aldXid(const Bytes& uid, const Bytes& mask, int address = -1) {
  Bytes data = {0x81, 0xF0, 0, 0x01, static_cast<uint8_t>(uid.size())};
  data.insert(data.end(), uid.begin(), uid.end());
  if (address >= 0) data.insert(data.end(), {0x02, 0x01, static_cast<uint8_t>(address)});
  if (address < 0) data.insert(data.end(), {0x03, static_cast<uint8_t>(mask.size())});
  if (address < 0) data.insert(data.end(), mask.begin(), mask.end());
  data[2] = static_cast<uint8_t>(data.size() - 3);
  return frame(0xFF, kXid, data);
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

const Bytes kRootProbe = {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00, 0xA6, 0x58, 0x7E};
const Bytes kBroadcastReset = {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x02, 0x07, 0x00, 0xA4, 0xF3, 0x7E};

class AldsimTest : public testing::Test {
 protected:
  void TearDown() override {
    if (fd_ >= 0) close(fd_);
  }

  void start(const std::vector<std::string>& alds) {
    std::vector<std::string> argv = {e2e::binPath("aldsim"), "--link", kLink};
    argv.insert(argv.end(), alds.begin(), alds.end());
    ASSERT_TRUE(sim_.start(argv));
    ASSERT_TRUE(sim_.waitFor("ready /dev/pts/", 5000)) << sim_.output();
    fd_ = open(kLink, O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(fd_, 0);
    struct termios t;
    ASSERT_EQ(tcgetattr(fd_, &t), 0);
    cfmakeraw(&t);
    ASSERT_EQ(tcsetattr(fd_, TCSANOW, &t), 0);
  }

  // Sends a frame and reads until one whole frame (7E .. 7E) has come back or the
  // time is up; the arrival time of every read goes to times_. The codec's code
  // for the reply, or kNoReply.
  int exchange(const Bytes& request, int timeoutMs = 300) {
    EXPECT_EQ(write(fd_, request.data(), request.size()), ssize_t(request.size()));
    Bytes got;
    times_.clear();
    const long long deadline = nowMs() + timeoutMs;
    while (got.size() < 3 || got.back() != 0x7E) {
      struct pollfd pfd = {fd_, POLLIN, 0};
      const long long left = deadline - nowMs();
      if (left <= 0 || poll(&pfd, 1, static_cast<int>(left)) <= 0) break;
      uint8_t buffer[300];
      const ssize_t n = read(fd_, buffer, sizeof(buffer));
      if (n <= 0) break;
      got.insert(got.end(), buffer, buffer + n);
      times_.push_back(nowMs());
    }
    raw_ = got;
    reply_ = S_HdlcPacket{};
    if (got.empty()) return kNoReply;
    return HdlcProtocol::decode(got.data(), static_cast<unsigned int>(got.size()), &reply_, hdlc::kStructured);
  }
  Bytes replyData() const { return Bytes(reply_.data, reply_.data + reply_.dataLength); }

  // Sends an operator command and waits for the answer line holding `answer`.
  void command(const std::string& line, const std::string& answer) {
    const size_t mark = sim_.mark();
    sim_.send(line + "\n");
    EXPECT_TRUE(sim_.waitFor(answer, 2000, mark)) << sim_.plainOutput().substr(mark);
  }

  e2e::Child sim_;
  int fd_ = -1;
  Bytes raw_;
  S_HdlcPacket reply_{};
  std::vector<long long> times_;
};

// Probes reach only unaddressed ALDs whose UID matches under the mask (a UID
// shorter than the probe reading as 0 beyond its end), answers from several
// collide, an assignment is answered from the new address, and a broadcast reset
// (never answered) makes every ALD forget its address.
TEST_F(AldsimTest, ProbesAssignmentAndReset) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=0x4142", "uid=0x4143,type=0x11,vendor=XY"}));
  const struct {
    Bytes request;
    int result;
    uint8_t address;  // of the reply
    Bytes data;       // of the reply, when there is one
  } steps[] = {
      {kRootProbe, kBadFcs, 0, {}},
      {aldXid({0x00, 0x01}, {0x00, 0x01}), 0, 0xFF,
       {0x81, 0xF0, 0x0B, 0x01, 0x02, 0x41, 0x43, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y'}},
      {aldXid({0x41, 0x42, 0x00}, kAll), 0, 0xFF,
       {0x81, 0xF0, 0x0B, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x01, 0x06, 0x02, 'S', 'I'}},
      {aldXid({0x41, 0x42, 0x01}, {0xFF, 0xFF, 0x01}), kNoReply, 0, {}},
      {aldXid({0x41, 0x42}, {}, 5), 0, 5, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x42, 0x04, 0x01, 0x01}},
      {kRootProbe, 0, 0xFF, {0x81, 0xF0, 0x0B, 0x01, 0x02, 0x41, 0x43, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y'}},
      {aldXid({0x41, 0x43}, {}, 6), 0, 6, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x43, 0x04, 0x01, 0x11}},
      {kRootProbe, kNoReply, 0, {}},
      {aldXid({0x41, 0x43}, {}, 7), 0, 7, {0x81, 0xF0, 0x07, 0x01, 0x02, 0x41, 0x43, 0x04, 0x01, 0x11}},
      {kBroadcastReset, kNoReply, 0, {}},
      {kRootProbe, kBadFcs, 0, {}},
  };
  for (const auto& step : steps) {
    ASSERT_EQ(exchange(step.request), step.result) << &step - steps;
    if (step.result != 0) continue;
    EXPECT_EQ(reply_.address, step.address) << &step - steps;
    EXPECT_EQ(reply_.control, kXid);
    EXPECT_EQ(replyData(), step.data) << &step - steps;
  }
  EXPECT_TRUE(sim_.waitFor("TX COLLISION 7E FF BF", 3000));
}

TEST_F(AldsimTest, LinkSetUpPollAndTiltWithSequenceNumbers) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=T1,tilt=2.5"}));
  ASSERT_EQ(exchange(aldXid(text("T1"), {}, 3)), 0);
  EXPECT_EQ(exchange(frame(4, kSnrm)), kNoReply) << "another address";
  ASSERT_EQ(exchange(frame(3, kSnrm)), 0);
  EXPECT_EQ(raw_, Bytes({0x7E, 0x03, 0x73, 0x33, 0x64, 0x7E}));  // UA with the final bit
  command("list", "# 1 3 up 5431");
  ASSERT_EQ(exchange(frame(3, kRr)), 0);
  EXPECT_EQ(reply_.control, kRr);
  EXPECT_EQ(reply_.receiveNo, 0);

  // GetTilt of sub-unit 1 in an I-frame with N(S) and N(R) `ns`; the reply in short: "I N(S) N(R)" or "RR N(R)".
  auto getTilt = [&](uint8_t ns) {
    EXPECT_EQ(exchange(frame(3, 0x00, {0x82, 0x01, 0x00, 0x01}, ns, ns)), 0);
    const std::string kind = reply_.control == kRr ? "RR " : "I " + std::to_string(reply_.sendNo) + " ";
    return kind + std::to_string(reply_.receiveNo);
  };
  EXPECT_EQ(getTilt(0), "I 0 1");
  EXPECT_EQ(replyData(), Bytes({0x82, 0x04, 0x00, 0x01, 0x00, 0x19, 0x00}));  // 25 tenths of a degree
  EXPECT_EQ(getTilt(0), "RR 1") << "a repeated frame is out of sequence";
  EXPECT_EQ(getTilt(1), "I 1 2");
  ASSERT_EQ(exchange(frame(3, kSnrm)), 0);
  EXPECT_EQ(getTilt(0), "I 0 1") << "SNRM starts the numbers again";
}

TEST_F(AldsimTest, FaultKnobs) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=BAD,badFcs=100", "uid=SIL,silentFrom=3", "uid=SPL,split=60"}));
  // Every reply of BAD fails its FCS, though it is no collision.
  EXPECT_EQ(exchange(aldXid(text("BAD"), kAll)), kBadFcs);
  ASSERT_TRUE(sim_.waitFor(" TX 7E FF BF", 3000));
  EXPECT_EQ(sim_.output().find("COLLISION"), std::string::npos);
  // SIL answers its first two frames only.
  EXPECT_EQ(exchange(aldXid(text("SIL"), kAll)), 0);
  EXPECT_EQ(exchange(aldXid(text("SIL"), {}, 1)), 0);
  EXPECT_EQ(exchange(frame(1, kSnrm)), kNoReply);
  // SPL's reply comes in two reads about 60 ms apart.
  ASSERT_EQ(exchange(aldXid(text("SPL"), kAll), 500), 0);
  ASSERT_GE(times_.size(), 2u);
  EXPECT_GT(times_.back() - times_.front(), 40);
}

TEST_F(AldsimTest, QuietAndWake) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=Q1", "uid=Q2"}));
  command("quiet 1", "# ald 1 quiet");
  ASSERT_EQ(exchange(kRootProbe), 0);
  EXPECT_EQ(replyData()[6], '2');
  command("wake 1", "# ald 1 awake");
  EXPECT_EQ(exchange(kRootProbe), kBadFcs);
}

}  // namespace
