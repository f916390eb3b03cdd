// End-to-end tests of the ALD bus simulator: the real program on a pty, driven
// from the primary's side of the bus with the frame codec.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "e2eHarness.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr char kLink[] = "/tmp/ttyALD";
constexpr int kNoReply = 1;  // exchange(): nothing came back
constexpr uint8_t kXid = 0xAF;
constexpr uint8_t kRr = 0x01;
constexpr uint8_t kUa = 0x63;
constexpr uint8_t kIFrame = 0x00;

long long nowMs() {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<long long>(t.tv_sec) * 1000 + t.tv_nsec / 1000000;
}

S_HdlcPacket packet(uint8_t address, uint8_t control, const Bytes& data = {}, uint8_t sendNo = 0,
                    uint8_t receiveNo = 0) {
  S_HdlcPacket p;
  memset(&p, 0, sizeof(p));
  p.pollFinal = 1;
  p.address = address;
  p.control = control;
  p.sendNo = sendNo;
  p.receiveNo = receiveNo;
  p.dataLength = static_cast<uint16_t>(data.size());
  if (!data.empty()) memcpy(p.data, data.data(), data.size());
  return p;
}

Bytes encoded(S_HdlcPacket p) {
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  EXPECT_EQ(HdlcProtocol::encode(&p, buffer, &length, hdlc::kStructured), 0);
  return Bytes(buffer, buffer + length);
}

Bytes probe(const Bytes& uid, const Bytes& mask) {
  Bytes data = {0x81, 0xF0, static_cast<uint8_t>(2 * uid.size() + 4), 0x01, static_cast<uint8_t>(uid.size())};
  data.insert(data.end(), uid.begin(), uid.end());
  data.insert(data.end(), {0x03, static_cast<uint8_t>(mask.size())});
  data.insert(data.end(), mask.begin(), mask.end());
  return data;
}

Bytes assignment(const Bytes& uid, uint8_t address) {
  Bytes data = {0x81, 0xF0, static_cast<uint8_t>(uid.size() + 5), 0x01, static_cast<uint8_t>(uid.size())};
  data.insert(data.end(), uid.begin(), uid.end());
  data.insert(data.end(), {0x02, 0x01, address});
  return data;
}

Bytes dataOf(const S_HdlcPacket& p) { return Bytes(p.data, p.data + p.dataLength); }

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

bool isUpperHex(const std::string& s) {
  return !s.empty() && s.find_first_not_of("0123456789ABCDEF") == std::string::npos;
}

// "HH:MM:SS.mmm RX|TX|TX COLLISION" and at least one " HH".
bool isFrameLine(const std::string& line) {
  const std::string digits = "0123456789";
  for (size_t i : {0, 1, 3, 4, 6, 7, 9, 10, 11}) {
    if (line.size() <= i || digits.find(line[i]) == std::string::npos) return false;
  }
  if (line.size() < 12 || line[2] != ':' || line[5] != ':' || line[8] != '.') return false;
  size_t at = 0;
  for (const char* direction : {" RX", " TX COLLISION", " TX"}) {
    if (line.compare(12, strlen(direction), direction) == 0) {
      at = 12 + strlen(direction);
      break;
    }
  }
  if (at == 0 || at == line.size() || (line.size() - at) % 3 != 0) return false;
  for (; at < line.size(); at += 3) {
    if (line[at] != ' ' || !isUpperHex(line.substr(at + 1, 2))) return false;
  }
  return true;
}

const Bytes kFirstProbe = {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x04, 0x01, 0x00, 0x03, 0x00, 0xA6, 0x58, 0x7E};
const Bytes kBroadcastReset = {0x7E, 0xFF, 0xBF, 0x81, 0xF0, 0x02, 0x07, 0x00, 0xA4, 0xF3, 0x7E};

class AldsimTest : public testing::Test {
 protected:
  void TearDown() override {
    if (_fd >= 0) close(_fd);
  }

  void start(const std::vector<std::string>& args) {
    std::vector<std::string> argv = {e2e::binPath("aldsim"), "--link", kLink};
    argv.insert(argv.end(), args.begin(), args.end());
    ASSERT_TRUE(_sim.start(argv));
    ASSERT_TRUE(_sim.waitFor("ready /dev/pts/", 5000)) << _sim.output();
    _fd = open(kLink, O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(_fd, 0);
    struct termios t;
    ASSERT_EQ(tcgetattr(_fd, &t), 0);
    cfmakeraw(&t);
    ASSERT_EQ(tcsetattr(_fd, TCSANOW, &t), 0);
  }

  void send(const Bytes& bytes) { ASSERT_EQ(write(_fd, bytes.data(), bytes.size()), ssize_t(bytes.size())); }

  // Reads until one whole frame (7E .. 7E) has come or the time is up; the
  // arrival time of every read goes to `times`.
  Bytes readFrame(int timeoutMs, std::vector<long long>* times = nullptr) {
    Bytes got;
    long long deadline = nowMs() + timeoutMs;
    while (got.size() < 3 || got.back() != 0x7E) {
      long long left = deadline - nowMs();
      struct pollfd pfd = {_fd, POLLIN, 0};
      if (left <= 0 || poll(&pfd, 1, static_cast<int>(left)) <= 0) break;
      uint8_t buffer[300];
      ssize_t n = read(_fd, buffer, sizeof(buffer));
      if (n <= 0) break;
      got.insert(got.end(), buffer, buffer + n);
      if (times != nullptr) times->push_back(nowMs());
    }
    return got;
  }

  // Sends a frame and decodes what comes back: the codec's code, or kNoReply.
  int exchange(const Bytes& frame, S_HdlcPacket& reply, int timeoutMs = 300) {
    send(frame);
    _lastReply = readFrame(timeoutMs);
    if (_lastReply.empty()) return kNoReply;
    return HdlcProtocol::decode(_lastReply.data(), static_cast<unsigned int>(_lastReply.size()), &reply,
                                hdlc::kStructured);
  }

  int exchange(const S_HdlcPacket& request, S_HdlcPacket& reply, int timeoutMs = 300) {
    return exchange(encoded(request), reply, timeoutMs);
  }

  // Gives `address` to the ALD of `uid` and checks the reply's identification.
  void assign(const Bytes& uid, uint8_t address, uint8_t from, uint8_t type = 0x01) {
    S_HdlcPacket reply;
    ASSERT_EQ(exchange(packet(0xFF, kXid, assignment(uid, address)), reply), 0);
    EXPECT_EQ(reply.address, from);
    EXPECT_EQ(reply.control, kXid);
    Bytes expected = {0x81, 0xF0, static_cast<uint8_t>(uid.size() + 5), 0x01, static_cast<uint8_t>(uid.size())};
    expected.insert(expected.end(), uid.begin(), uid.end());
    expected.insert(expected.end(), {0x04, 0x01, type});
    EXPECT_EQ(dataOf(reply), expected);
  }

  // Sends an operator command and waits for the answer line holding `answer`.
  void command(const std::string& line, const std::string& answer) {
    size_t mark = _sim.mark();
    _sim.send(line + "\n");
    EXPECT_TRUE(_sim.waitFor(answer, 2000, mark)) << _sim.plainOutput().substr(mark);
  }

  e2e::Child _sim;
  int _fd = -1;
  Bytes _lastReply;
};

TEST_F(AldsimTest, ScanProbesReachOnlyMatchingUnaddressedAlds) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=0x4142", "uid=0x4143,type=0x11,vendor=XY"}));
  S_HdlcPacket reply;
  // The scan's first probe matches both: one frame that fails its FCS.
  EXPECT_EQ(exchange(kFirstProbe, reply), hdlc::HDLC_FCS_ERROR);
  EXPECT_TRUE(_sim.waitFor("TX COLLISION 7E FF BF", 1000));

  // Bit 0 of byte 1 tells them apart.
  ASSERT_EQ(exchange(packet(0xFF, kXid, probe({0x00, 0x01}, {0x00, 0x01})), reply), 0);
  EXPECT_EQ(reply.address, 0xFF);
  EXPECT_EQ(reply.control, kXid);
  EXPECT_EQ(dataOf(reply), Bytes({0x81, 0xF0, 0x0B, 0x01, 0x02, 0x41, 0x43, 0x04, 0x01, 0x11, 0x06, 0x02, 'X', 'Y'}));
  // A UID shorter than the probe reads as 0 beyond its end.
  ASSERT_EQ(exchange(packet(0xFF, kXid, probe({0x41, 0x42, 0x00}, {0xFF, 0xFF, 0xFF})), reply), 0);
  EXPECT_EQ(dataOf(reply)[6], 0x42);
  EXPECT_EQ(exchange(packet(0xFF, kXid, probe({0x41, 0x42, 0x01}, {0xFF, 0xFF, 0x01})), reply), kNoReply);

  // Addressed ALDs no longer answer probes; the assignment is answered from the new address.
  assign({0x41, 0x42}, 5, 5);
  ASSERT_EQ(exchange(kFirstProbe, reply), 0);
  EXPECT_EQ(dataOf(reply)[6], 0x43);
  assign({0x41, 0x43}, 6, 6, 0x11);
  EXPECT_EQ(exchange(kFirstProbe, reply), kNoReply);
  // An addressed ALD takes a new address too.
  assign({0x41, 0x43}, 7, 7, 0x11);
  command("list", "# 2 7 down 4143");

  // A broadcast reset is never answered and makes every ALD forget its address.
  EXPECT_EQ(exchange(kBroadcastReset, reply), kNoReply);
  command("list", "# 1 - down 4142");
  EXPECT_EQ(exchange(kFirstProbe, reply), hdlc::HDLC_FCS_ERROR);
}

TEST_F(AldsimTest, LinkProceduresAnswerLikeAnHdlcSecondary) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=AB"}));
  assign(text("AB"), 3, 3);
  S_HdlcPacket reply;
  EXPECT_EQ(exchange(packet(4, 0x83), reply), kNoReply) << "another address";
  ASSERT_EQ(exchange(packet(3, 0x83), reply), 0);
  EXPECT_EQ(_lastReply, Bytes({0x7E, 0x03, 0x73, 0x33, 0x64, 0x7E}));
  command("list", "# 1 3 up 4142");

  ASSERT_EQ(exchange(packet(3, kRr), reply), 0);
  EXPECT_EQ(reply.control, kRr);
  EXPECT_EQ(reply.receiveNo, 0);
  EXPECT_EQ(reply.pollFinal, 1);

  ASSERT_EQ(exchange(packet(3, kXid, {0x81, 0x80, 0x12, 0x05, 0x04, 0, 0, 0, 0, 0x06, 0x04, 0, 0, 0, 0, 0x07, 0x01,
                                      0x00, 0x08, 0x01, 0x00}),
                     reply),
            0);
  EXPECT_EQ(reply.control, kXid);
  EXPECT_EQ(reply.data[0], 0x81);
  EXPECT_EQ(reply.data[1], 0x80);
  EXPECT_EQ(reply.data[3], 0x07);

  ASSERT_EQ(exchange(packet(3, 0x43), reply), 0);
  EXPECT_EQ(reply.control, kUa);
  command("list", "# 1 3 down");

  // A reset to its own address is answered, and then the address is gone.
  ASSERT_EQ(exchange(packet(3, kXid, {0x81, 0xF0, 0x02, 0x07, 0x00}), reply), 0);
  EXPECT_EQ(reply.address, 3);
  EXPECT_EQ(dataOf(reply), Bytes({0x81, 0xF0, 0x02, 0x07, 0x00}));
  EXPECT_EQ(exchange(packet(3, kRr), reply), kNoReply);
  ASSERT_EQ(exchange(kFirstProbe, reply), 0);
}

TEST_F(AldsimTest, TiltProceduresKeepSequenceNumbers) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=T1,subs=2,tilt=2.5"}));
  assign(text("T1"), 1, 1);
  S_HdlcPacket reply;
  ASSERT_EQ(exchange(packet(1, 0x83), reply), 0);
  uint8_t ns = 0;
  // Sends one I-frame in sequence and expects the I-frame answer with `data`.
  auto procedure = [&](const Bytes& request, const Bytes& data) {
    ASSERT_EQ(exchange(packet(1, kIFrame, request, ns, ns), reply), 0);
    EXPECT_EQ(reply.control, kIFrame);
    EXPECT_EQ(reply.pollFinal, 1);
    EXPECT_EQ(reply.sendNo, ns);
    ns = (ns + 1) & 7;
    EXPECT_EQ(reply.receiveNo, ns);
    EXPECT_EQ(dataOf(reply), data);
  };
  procedure({0x82, 0x01, 0x00, 0x01}, {0x82, 0x04, 0x00, 0x01, 0x00, 0x19, 0x00});
  procedure({0x81, 0x03, 0x00, 0x02, 0xF1, 0xFF}, {0x81, 0x02, 0x00, 0x02, 0x00});
  procedure({0x82, 0x01, 0x00, 0x02}, {0x82, 0x04, 0x00, 0x02, 0x00, 0xF1, 0xFF});

  // A repeated frame is out of sequence: RR with the ALD's V(R), nothing changes.
  ASSERT_EQ(exchange(packet(1, kIFrame, {0x80, 0x01, 0x00, 0x02}, 2, 2), reply), 0);
  EXPECT_EQ(reply.control, kRr);
  EXPECT_EQ(reply.receiveNo, 3);
  ASSERT_EQ(exchange(packet(1, kRr, {}, 0, 3), reply), 0);
  EXPECT_EQ(reply.receiveNo, 3);

  procedure({0x80, 0x01, 0x00, 0x02}, {0x80, 0x02, 0x00, 0x02, 0x00});
  procedure({0x82, 0x01, 0x00, 0x02}, {0x82, 0x04, 0x00, 0x02, 0x00, 0x00, 0x00});
  procedure({0x82, 0x01, 0x00, 0x01}, {0x82, 0x04, 0x00, 0x01, 0x00, 0x19, 0x00});
  procedure({0x82, 0x01, 0x00, 0x03}, {0x82, 0x02, 0x00, 0x03, 0x19});
  procedure({0x81, 0x03, 0x00, 0x00, 0x10, 0x00}, {0x81, 0x02, 0x00, 0x00, 0x19});
  procedure({0x83, 0x00, 0x00}, {0x83, 0x01, 0x00, 0x0B});
  // Past the wrap of the numbers at 8.
  procedure({0x88, 0x00, 0x00}, {0x88, 0x02, 0x00, 0x00, 0x02});
  procedure({0x88, 0x00, 0x00}, {0x88, 0x02, 0x00, 0x00, 0x02});

  command("alarm 1 7", "# ald 1 alarm 7");
  procedure({0x88, 0x00, 0x00}, {0x88, 0x02, 0x00, 0x01, 0x07});
  procedure({0x82, 0x01, 0x00, 0x01}, {0x82, 0x02, 0x00, 0x01, 0x07});
  procedure({0x81, 0x03, 0x00, 0x01, 0x32, 0x00}, {0x81, 0x02, 0x00, 0x01, 0x07});
  command("alarm 1 0", "# ald 1 alarm 0");
  procedure({0x82, 0x01, 0x00, 0x01}, {0x82, 0x04, 0x00, 0x01, 0x00, 0x19, 0x00});

  // SNRM starts the numbers again.
  ASSERT_EQ(exchange(packet(1, 0x83), reply), 0);
  ns = 0;
  procedure({0x88, 0x00, 0x00}, {0x88, 0x02, 0x00, 0x00, 0x02});
}

TEST_F(AldsimTest, FaultKnobsSpoilReplies) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=BAD,badFcs=100", "uid=NOV,noVendor=1", "uid=WRO,wrongAddr=9", "uid=0x4142,alarm=0x21"}));
  S_HdlcPacket reply;
  Bytes all = {0xFF, 0xFF, 0xFF};
  EXPECT_EQ(exchange(packet(0xFF, kXid, probe(text("BAD"), all)), reply), hdlc::HDLC_FCS_ERROR);
  ASSERT_TRUE(_sim.waitFor(" TX 7E FF BF", 1000));
  EXPECT_EQ(_sim.output().find("COLLISION"), std::string::npos);

  ASSERT_EQ(exchange(packet(0xFF, kXid, probe(text("NOV"), all)), reply), 0);
  EXPECT_EQ(dataOf(reply), Bytes({0x81, 0xF0, 0x08, 0x01, 0x03, 'N', 'O', 'V', 0x04, 0x01, 0x01}));

  assign(text("WRO"), 1, 9);
  ASSERT_EQ(exchange(packet(1, 0x83), reply), 0);
  EXPECT_EQ(reply.address, 9);
  EXPECT_EQ(exchange(packet(9, 0x83), reply), kNoReply);

  assign({0x41, 0x42}, 2, 2);
  ASSERT_EQ(exchange(packet(2, kIFrame, {0x88, 0x00, 0x00}), reply), 0);
  EXPECT_EQ(dataOf(reply), Bytes({0x88, 0x02, 0x00, 0x01, 0x21}));
}

TEST_F(AldsimTest, TimingAndSilenceKnobs) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=SIL,silentFrom=3", "uid=SPL,split=60", "uid=DLY,delay=150", "uid=WIN,silentAt=0-1.5"}));
  S_HdlcPacket reply;
  Bytes all = {0xFF, 0xFF, 0xFF};
  // The first two frames for SIL are answered, from the third on it is silent.
  ASSERT_EQ(exchange(packet(0xFF, kXid, probe(text("SIL"), all)), reply), 0);
  assign(text("SIL"), 1, 1);
  EXPECT_EQ(exchange(packet(1, 0x83), reply), kNoReply);
  EXPECT_EQ(exchange(packet(1, kRr), reply), kNoReply);

  // A split reply arrives as two reads with a gap of about 60 ms.
  std::vector<long long> times;
  send(encoded(packet(0xFF, kXid, probe(text("SPL"), all))));
  Bytes got = readFrame(500, &times);
  ASSERT_EQ(HdlcProtocol::decode(got.data(), static_cast<unsigned int>(got.size()), &reply, hdlc::kStructured), 0);
  ASSERT_GE(times.size(), 2u);
  EXPECT_GT(times.back() - times.front(), 40);

  long long sent = nowMs();
  ASSERT_EQ(exchange(packet(0xFF, kXid, probe(text("DLY"), all)), reply, 1000), 0);
  EXPECT_GE(nowMs() - sent, 140);

  // WIN keeps silent for its first 1.5 seconds only.
  EXPECT_EQ(exchange(packet(0xFF, kXid, probe(text("WIN"), all)), reply), kNoReply);
  e2e::sleepMs(1500);
  EXPECT_EQ(exchange(packet(0xFF, kXid, probe(text("WIN"), all)), reply), 0);
}

TEST_F(AldsimTest, OperatorCommandsAndLogLines) {
  ASSERT_NO_FATAL_FAILURE(start({"uid=Q1", "uid=Q2"}));
  S_HdlcPacket reply;
  command("quiet 1", "# ald 1 quiet");
  // Only Q2 is left to answer the first probe.
  ASSERT_EQ(exchange(kFirstProbe, reply), 0);
  EXPECT_EQ(dataOf(reply)[6], '2');
  command("wake 1", "# ald 1 awake");
  EXPECT_EQ(exchange(kFirstProbe, reply), hdlc::HDLC_FCS_ERROR);
  command("quiet 3", "# no ALD '3'");
  command("jump 1", "# unknown command");

  // Bytes between frames make a frame of their own that fails and is ignored;
  // two frames in one write are both answered.
  assign(text("Q1"), 1, 1);
  assign(text("Q2"), 2, 2);
  Bytes two = {0x00, 0x11};
  Bytes rr1 = encoded(packet(1, kRr)), rr2 = encoded(packet(2, kRr));
  two.insert(two.end(), rr1.begin(), rr1.end());
  two.insert(two.end(), rr2.begin(), rr2.end());
  send(two);
  Bytes first = readFrame(300);
  if (first.size() <= 6) {
    Bytes second = readFrame(300);
    first.insert(first.end(), second.begin(), second.end());
  }
  EXPECT_EQ(first.size(), 12u);
  EXPECT_TRUE(_sim.waitFor("RX 7E 00 11 7E\n# frame not decoded", 1000));

  // End of input leaves the bus running.
  _sim.sendEof();
  e2e::sleepMs(100);
  ASSERT_EQ(exchange(packet(1, kRr), reply), 0);

  std::string out = _sim.plainOutput();
  EXPECT_EQ(out.rfind("ready /dev/pts/", 0), 0u) << out;
  size_t frames = 0;
  size_t start = out.find('\n') + 1;
  for (size_t end; (end = out.find('\n', start)) != std::string::npos; start = end + 1) {
    std::string line = out.substr(start, end - start);
    if (line.rfind("# ", 0) == 0) continue;
    EXPECT_TRUE(isFrameLine(line)) << line;
    ++frames;
  }
  EXPECT_GE(frames, 12u);
  EXPECT_NE(out.find(" RX 7E FF BF 81 F0 04 01 00 03 00 A6 58 7E\n"), std::string::npos);

  // SIGTERM ends the simulator and takes the link with it.
  _sim.stop();
  struct stat st;
  EXPECT_NE(lstat(kLink, &st), 0);
}

TEST_F(AldsimTest, PacedOutputTakesAMillisecondPerByte) {
  ASSERT_NO_FATAL_FAILURE(start({"--pace", "uid=PACED"}));
  S_HdlcPacket reply;
  std::vector<long long> times;
  send(kFirstProbe);
  Bytes got = readFrame(1000, &times);
  ASSERT_EQ(HdlcProtocol::decode(got.data(), static_cast<unsigned int>(got.size()), &reply, hdlc::kStructured), 0);
  ASSERT_GE(got.size(), 20u);
  EXPECT_GE(times.back() - times.front(), static_cast<long long>(got.size()) - 5);
}

TEST(AldsimOptions, FilesRandomAldsAndBadInput) {
  {
    std::FILE* f = std::fopen("/tmp/alds.txt", "w");
    ASSERT_NE(f, nullptr);
    std::fputs("# two from a file\nuid=F1\n\n  uid=0x00FF,subs=3  \n", f);
    std::fclose(f);
  }
  auto listing = [](const std::vector<std::string>& args) {
    e2e::Child sim;
    std::vector<std::string> argv = {e2e::binPath("aldsim")};
    argv.insert(argv.end(), args.begin(), args.end());
    EXPECT_TRUE(sim.start(argv));
    EXPECT_TRUE(sim.waitFor("ready ", 5000));
    size_t mark = sim.mark();
    sim.send("list\n");
    EXPECT_TRUE(sim.waitFor("# 4 ", 2000, mark));
    sim.pump(100);
    return sim.plainOutput().substr(mark);
  };
  std::string a = listing({"--file", "/tmp/alds.txt", "uid=C1", "--random", "1", "--seed", "7"});
  EXPECT_NE(a.find("# 1 - down 4631\n# 2 - down 00FF\n# 3 - down 4331\n# 4 - down "), std::string::npos) << a;
  size_t random = a.find("# 4 - down ") + 11;
  EXPECT_TRUE(isUpperHex(a.substr(random, 38))) << a;
  EXPECT_EQ(a.substr(random + 38, 1), "\n") << a;
  EXPECT_EQ(a, listing({"--seed", "7", "--file", "/tmp/alds.txt", "uid=C1", "--random", "1"}));
  EXPECT_NE(a, listing({"--seed", "8", "--file", "/tmp/alds.txt", "uid=C1", "--random", "1"}));

  for (const char* bad : {"type=2", "uid=0x123", "uid=ABCDEFGHIJKLMNOPQRST", "uid=A,subs=0", "uid=A,colour=red",
                          "uid=A,silentAt=5-2", "uid=A,badFcs=101", "--bogus"}) {
    e2e::Child sim;
    ASSERT_TRUE(sim.start({e2e::binPath("aldsim"), bad}));
    EXPECT_EQ(sim.waitExit(3000), 2) << bad;
    EXPECT_NE(sim.output().find("aldsim: "), std::string::npos) << bad;
  }
  e2e::Child help;
  ASSERT_TRUE(help.start({e2e::binPath("aldsim"), "--help"}));
  EXPECT_EQ(help.waitExit(3000), 0);
  EXPECT_NE(help.output().find("usage: aldsim"), std::string::npos);
}

}  // namespace
