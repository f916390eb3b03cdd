#include "captureStdout.h"
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "aisgAppLayer/commManager/rs485Adapter.h"

// A pty driver forces CS8 and clears PARENB whatever it is given, so the test
// looks at the attributes where the adapter hands them over, and can make that
// call fail. Everything else goes on to the real call.
namespace {
std::mutex gHookLock;
termios gRequested;
int gRequestCount = 0;
bool gFailNextSet = false;
}  // namespace

extern "C" int tcsetattr(int fd, int action, const struct termios* tio) {
  using RealTcsetattr = int (*)(int, int, const struct termios*);
  static const RealTcsetattr real = reinterpret_cast<RealTcsetattr>(dlsym(RTLD_NEXT, "tcsetattr"));
  {
    std::lock_guard<std::mutex> guard(gHookLock);
    gRequested = *tio;
    ++gRequestCount;
    if (gFailNextSet) {
      gFailNextSet = false;
      errno = EIO;
      return -1;
    }
  }
  return real(fd, action, tio);
}

namespace {

const char* const kRs485Failure = "ERROR: Set RS485 Conf Error\n";
const char* const kNotInit = "RS485 dev not init yet!\n";

// A pty pair: the adapter opens the slave by its path, the test plays the far end
// on the master and reads the line settings back from its own slave descriptor.
class Rs485AdapterTest : public testing::Test {
 protected:
  void SetUp() override {
    char name[128] = {0};
    ASSERT_EQ(openpty(&_master, &_slave, name, nullptr, nullptr), 0);
    _path = name;
    std::string out = captured([&] { _adapter = std::make_unique<Rs485Adapter>(_path.c_str()); });
    // A pty has no RS-485 mode, so construction ends at that step.
    EXPECT_EQ(out, kRs485Failure);
    ASSERT_TRUE(_adapter->isOpen());
  }

  void TearDown() override {
    _adapter.reset();
    if (_master >= 0) {
      close(_master);
    }
    close(_slave);
  }

  termios settings() const {
    termios tio;
    memset(&tio, 0, sizeof(tio));
    EXPECT_EQ(tcgetattr(_slave, &tio), 0);
    return tio;
  }

  static termios requested() {
    std::lock_guard<std::mutex> guard(gHookLock);
    return gRequested;
  }

  static int requestCount() {
    std::lock_guard<std::mutex> guard(gHookLock);
    return gRequestCount;
  }

  int apply(const S_UartConfig& config, std::string* out) {
    int result = 0;
    *out = captured([&] { result = _adapter->setConfig(config); });
    return result;
  }

  int _master = -1;
  int _slave = -1;
  std::string _path;
  std::unique_ptr<Rs485Adapter> _adapter;
};

TEST_F(Rs485AdapterTest, ConstructionLeavesTheLineRawAt115200Baud8N1) {
  termios tio = settings();
  EXPECT_EQ(cfgetispeed(&tio), static_cast<speed_t>(B115200));
  EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B115200));
  EXPECT_EQ(tio.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
  EXPECT_EQ(tio.c_cflag & (CSTOPB | PARENB | CRTSCTS), 0u);
  EXPECT_NE(tio.c_cflag & CREAD, 0u);
  EXPECT_EQ(tio.c_lflag & (ICANON | ECHO | ECHOE | ISIG), 0u);
  EXPECT_EQ(tio.c_oflag & OPOST, 0u);
  EXPECT_EQ(tio.c_iflag, 0u);
  EXPECT_EQ(tio.c_cc[VMIN], 1);
  EXPECT_EQ(tio.c_cc[VTIME], 0);
  int flags = fcntl(_slave, F_GETFL);
  EXPECT_EQ(flags & O_NONBLOCK, 0);
}

TEST_F(Rs485AdapterTest, SettingsAreAppliedEvenWhenRs485ModeFails) {
  struct S_Case {
    S_UartConfig config;
    speed_t speed;
    tcflag_t size;
    tcflag_t stopAndParity;  // CSTOPB, PARENB and PARODD as they must end up
  };
  const S_Case cases[] = {
      {{9600, 8, 1, 'N'}, B9600, CS8, 0},
      {{19200, 7, 2, 'e'}, B19200, CS7, CSTOPB | PARENB},
      {{38400, 8, 1, 'O'}, B38400, CS8, PARENB | PARODD},
      {{57600, 7, 2, 'o'}, B57600, CS7, CSTOPB | PARENB | PARODD},
      {{115200, 8, 1, 'E'}, B115200, CS8, PARENB},
      {{9600, 8, 2, 'S'}, B9600, CS8, 0},  // space parity overrides the second stop bit
      {{19200, 7, 2, 's'}, B19200, CS7, 0},
      {{38400, 8, 2, 'n'}, B38400, CS8, CSTOPB},
  };
  // CLOCAL and the like belong to the port and are kept as they were.
  termios before = settings();
  before.c_cflag |= CLOCAL;
  before.c_lflag |= IEXTEN;
  ASSERT_EQ(tcsetattr(_slave, TCSANOW, &before), 0);

  for (const S_Case& c : cases) {
    SCOPED_TRACE(c.config.parity);
    SCOPED_TRACE(c.config.baudrate);
    std::string out;
    EXPECT_EQ(apply(c.config, &out), -1);
    EXPECT_EQ(out, kRs485Failure);
    termios asked = requested();
    EXPECT_EQ(cfgetispeed(&asked), c.speed);
    EXPECT_EQ(cfgetospeed(&asked), c.speed);
    EXPECT_EQ(asked.c_cflag & CSIZE, c.size);
    EXPECT_EQ(asked.c_cflag & (CSTOPB | PARENB | PARODD), c.stopAndParity);
    EXPECT_NE(asked.c_cflag & CLOCAL, 0u);
    EXPECT_NE(asked.c_lflag & IEXTEN, 0u);
    EXPECT_EQ(asked.c_iflag, 0u);
    EXPECT_EQ(asked.c_cc[VMIN], 1);
    // The port took them, though the pty keeps its own character size and parity.
    termios tio = settings();
    EXPECT_EQ(cfgetospeed(&tio), c.speed);
    EXPECT_EQ(tio.c_cflag & (CSTOPB | PARODD), c.stopAndParity & (CSTOPB | PARODD));
  }
}

TEST_F(Rs485AdapterTest, FailedTerminalSetSkipsTheRs485Request) {
  {
    std::lock_guard<std::mutex> guard(gHookLock);
    gFailNextSet = true;
  }
  int result = 0;
  testing::internal::CaptureStderr();
  std::string out = captured([&] { result = _adapter->setConfig({9600, 8, 1, 'N'}); });
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, std::string("ERROR: Set terminal attribute failed!: ") + strerror(EIO) + "\n");
  termios tio = settings();
  EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B115200));
}

TEST_F(Rs485AdapterTest, RejectedValuesLeaveTheSettingsAlone) {
  std::string out;
  ASSERT_EQ(apply({9600, 8, 1, 'N'}, &out), -1);
  const termios known = settings();
  const int applied = requestCount();

  struct S_Case {
    S_UartConfig config;
    const char* text;
  };
  // Checked in the order speed, data size, stop bits, parity: the first bad one speaks.
  const S_Case cases[] = {
      {{4800, 5, 3, 'F'}, "ERROR: Unsupported baudrate!\n"},
      {{0, 8, 1, 'N'}, "ERROR: Unsupported baudrate!\n"},
      {{19200, 5, 3, 'F'}, "ERROR: Unsupported data size\n"},
      {{19200, 6, 1, 'N'}, "ERROR: Unsupported data size\n"},
      {{19200, 8, 3, 'F'}, "ERROR: Unsupported stop bits\n"},
      {{19200, 8, 0, 'N'}, "ERROR: Unsupported stop bits\n"},
      {{19200, 7, 2, 'F'}, "ERROR: Unsupported parity\n"},
      {{19200, 8, 1, 'M'}, "ERROR: Unsupported parity\n"},
      {{19200, 8, 1, '\0'}, "ERROR: Unsupported parity\n"},
  };
  for (const S_Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(apply(c.config, &out), -1);
    EXPECT_EQ(out, c.text);
    termios tio = settings();
    EXPECT_EQ(cfgetospeed(&tio), static_cast<speed_t>(B9600));
    EXPECT_EQ(tio.c_cflag, known.c_cflag);
  }
  EXPECT_EQ(requestCount(), applied);
}

TEST_F(Rs485AdapterTest, BytesPassUnchangedBothWays) {
  unsigned char frame[] = {0x7E, 0x03, 0x0D, 0x0A, 0x11, 0x13, 0x7F, 0x00, 0xFF, 0x7E};
  EXPECT_EQ(_adapter->send(frame, sizeof(frame)), 0);
  unsigned char got[sizeof(frame)] = {0};
  size_t total = 0;
  while (total < sizeof(frame)) {
    ssize_t n = read(_master, got + total, sizeof(got) - total);
    ASSERT_GT(n, 0);
    total += static_cast<size_t>(n);
  }
  EXPECT_EQ(0, memcmp(got, frame, sizeof(frame)));

  ASSERT_EQ(write(_master, frame, sizeof(frame)), static_cast<ssize_t>(sizeof(frame)));
  unsigned char in[64] = {0};
  total = 0;
  // At most the asked count comes back per call.
  int first = _adapter->receive(in, 3);
  EXPECT_GE(first, 1);
  EXPECT_LE(first, 3);
  total = static_cast<size_t>(first);
  while (total < sizeof(frame)) {
    int n = _adapter->receive(in + total, sizeof(in) - static_cast<unsigned int>(total));
    ASSERT_GT(n, 0);
    total += static_cast<size_t>(n);
  }
  EXPECT_EQ(total, sizeof(frame));
  EXPECT_EQ(0, memcmp(in, frame, sizeof(frame)));

  S_UartConfig config{1, 2, 3, 'x'};
  EXPECT_EQ(_adapter->getConfig(config), 0);
  EXPECT_EQ(config.baudrate, 1u);
}

TEST_F(Rs485AdapterTest, EndOfInputIsACountOfZero) {
  close(_master);
  _master = -1;
  unsigned char byte = 0x55;
  std::string out = captured([&] { EXPECT_EQ(_adapter->receive(&byte, 1), 0); });
  EXPECT_EQ(out, "");
  out = captured([&] { EXPECT_EQ(_adapter->send(&byte, 1), -1); });
  EXPECT_EQ(out, "ERROR: rs485 write error!\n");
}

void expectEveryOperationRefused(Rs485Adapter& adapter) {
  ASSERT_FALSE(adapter.isOpen());
  unsigned char byte = 0;
  S_UartConfig config{9600, 8, 1, 'N'};
  std::string out = captured([&] {
    EXPECT_EQ(adapter.setConfig(config), -1);
    EXPECT_EQ(adapter.getConfig(config), -1);
    EXPECT_EQ(adapter.send(&byte, 1), -1);
    EXPECT_EQ(adapter.receive(&byte, 1), -1);
  });
  EXPECT_EQ(out, std::string(kNotInit) + kNotInit + kNotInit + kNotInit);
}

TEST(Rs485AdapterOpenTest, MissingDeviceIsNeverOpen) {
  std::unique_ptr<Rs485Adapter> adapter;
  std::string out = captured([&] { adapter = std::make_unique<Rs485Adapter>("/dev/ttyNoSuchPort"); });
  EXPECT_EQ(out, "ERROR: open /dev/ttyNoSuchPort failed!\n");
  expectEveryOperationRefused(*adapter);
}

TEST(Rs485AdapterOpenTest, DescriptorZeroCountsAsNotOpenAndIsNotClosed) {
  int master = -1;
  int slave = -1;
  char name[128] = {0};
  ASSERT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
  int savedStdin = dup(0);
  ASSERT_GE(savedStdin, 0);
  {
    std::unique_ptr<Rs485Adapter> adapter;
    // Closed only now: the capture itself takes a descriptor.
    std::string out = captured([&] {
      close(0);
      adapter = std::make_unique<Rs485Adapter>(name);
    });
    EXPECT_EQ(out, std::string("ERROR: open ") + name + " failed!\n");
    expectEveryOperationRefused(*adapter);
  }
  // The descriptor the open gave is still there after the destructor.
  EXPECT_NE(fcntl(0, F_GETFD), -1);
  dup2(savedStdin, 0);
  close(savedStdin);
  close(slave);
  close(master);
}

}  // namespace
