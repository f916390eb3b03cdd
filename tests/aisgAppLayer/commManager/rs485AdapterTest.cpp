#include <dlfcn.h>
#include <sys/stat.h>
#include <termios.h>

#include <atomic>
#include <cerrno>
#include <memory>

#include "aisgAppLayer/commManager/rs485Adapter.h"
#include "captureStdout.h"
#include "ptyBus.h"

// A pty forces CS8 and clears PARENB whatever it is given, so the test also looks at the
// attributes where the adapter hands them over, and can make that call fail.
static termios gAsked;
static bool gFailNext = false;

extern "C" int tcsetattr(int fd, int action, const termios* tio) {
  static const auto real = reinterpret_cast<int (*)(int, int, const termios*)>(dlsym(RTLD_NEXT, "tcsetattr"));
  gAsked = *tio;
  return gFailNext ? (gFailNext = false, errno = EIO, -1) : real(fd, action, tio);
}

// Calls on this line are cut as a signal would cut them: a write takes 2 bytes at the most,
// and every other read fails with EINTR.
static std::atomic<dev_t> gCutLine{0};

static bool onCutLine(int fd) {
  struct stat line;
  return gCutLine != 0 && fstat(fd, &line) == 0 && S_ISCHR(line.st_mode) && line.st_rdev == gCutLine;
}

extern "C" ssize_t write(int fd, const void* bytes, size_t count) {
  static const auto real = reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
  return real(fd, bytes, onCutLine(fd) ? std::min<size_t>(count, 2) : count);
}

extern "C" ssize_t read(int fd, void* bytes, size_t count) {
  static const auto real = reinterpret_cast<ssize_t (*)(int, void*, size_t)>(dlsym(RTLD_NEXT, "read"));
  static bool cut = false;
  if (onCutLine(fd) && (cut = !cut)) return errno = EINTR, -1;
  return real(fd, bytes, count);
}

namespace {

TEST(Rs485AdapterTest, SettingsAreAppliedRawAndRejectionsLeaveThemAlone) {
  Pty pty;
  std::unique_ptr<Rs485Adapter> adapter;
  auto apply = [&](const S_UartConfig& config) { return captured([&] { EXPECT_EQ(adapter->setConfig(config), -1); }); };
  auto line = [&] {
    termios tio{};
    EXPECT_EQ(tcgetattr(pty.slave, &tio), 0);
    return tio;
  };
  // A pty has no RS-485 mode, so every full setConfig ends at that step.
  const std::string rs485Failure = "ERROR: Set RS485 Conf Error\n";
  ASSERT_EQ(captured([&] { adapter.reset(new Rs485Adapter(pty.name)); }), rs485Failure);
  termios tio = line();
  EXPECT_EQ(cfgetospeed(&tio), speed_t(B115200));  // 8N1 at first
  EXPECT_EQ(gAsked.c_cflag & (CSIZE | CSTOPB | PARENB), tcflag_t(CS8));
  tio.c_cflag |= CLOCAL;  // CLOCAL and IEXTEN belong to the port and are kept
  tio.c_lflag |= IEXTEN;
  ASSERT_EQ(tcsetattr(pty.slave, TCSANOW, &tio), 0);
  const struct { S_UartConfig config; speed_t speed; tcflag_t cflag; } cases[] = {  // size, stop bits, parity
      {{19200, 7, 2, 'e'}, B19200, CS7 | CSTOPB | PARENB}, {{38400, 8, 1, 'O'}, B38400, CS8 | PARENB | PARODD},
      {{57600, 7, 2, 'o'}, B57600, CS7 | CSTOPB | PARENB | PARODD}, {{115200, 8, 1, 'E'}, B115200, CS8 | PARENB},
      {{9600, 8, 2, 'S'}, B9600, CS8}, {{19200, 7, 2, 's'}, B19200, CS7},  // space parity: one stop bit
      {{38400, 8, 2, 'n'}, B38400, CS8 | CSTOPB}, {{9600, 8, 1, 'N'}, B9600, CS8}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.config.baudrate) + c.config.parity);
    EXPECT_EQ(apply(c.config), rs485Failure);
    // Read back, but CS7 and parity as asked: the pty keeps neither.
    EXPECT_EQ(gAsked.c_cflag & (CSIZE | PARENB), c.cflag & (CSIZE | PARENB));
    const termios t = line();
    EXPECT_EQ(std::vector<speed_t>({cfgetispeed(&t), cfgetospeed(&t)}), std::vector<speed_t>(2, c.speed));
    EXPECT_EQ(t.c_cflag & (CSTOPB | PARODD | CLOCAL | CREAD | CRTSCTS), (c.cflag & (CSTOPB | PARODD)) | CLOCAL | CREAD);
    EXPECT_EQ(std::vector<tcflag_t>({t.c_lflag & (ICANON | ECHO | ECHOE | ISIG | IEXTEN), t.c_iflag, t.c_oflag & OPOST,
                                     t.c_cc[VMIN], t.c_cc[VTIME]}),
              std::vector<tcflag_t>({IEXTEN, 0, 0, 1, 0}));
  }
  // Checked in the order speed, data size, stop bits, parity: the first bad one speaks. A failed
  // terminal set stops before the RS-485 request.
  const tcflag_t known = line().c_cflag;  // speed, size, stop bits and parity
  const struct { S_UartConfig config; const char* text; } rejected[] = {
      {{4800, 5, 3, 'F'}, "ERROR: Unsupported baudrate!\n"}, {{19200, 5, 3, 'F'}, "ERROR: Unsupported data size\n"},
      {{19200, 6, 1, 'N'}, "ERROR: Unsupported data size\n"}, {{19200, 8, 3, 'F'}, "ERROR: Unsupported stop bits\n"},
      {{19200, 7, 2, 'F'}, "ERROR: Unsupported parity\n"}, {{19200, 8, 1, 'M'}, "ERROR: Unsupported parity\n"}};
  for (const auto& c : rejected) EXPECT_EQ(apply(c.config), c.text);
  gFailNext = true;
  EXPECT_EQ(apply({19200, 8, 1, 'N'}), "");
  EXPECT_EQ(line().c_cflag, known);
}

TEST(Rs485AdapterTest, APortThatDidNotOpenRefusesEverything) {
  std::unique_ptr<Rs485Adapter> adapter;
  unsigned char byte = 0;
  S_UartConfig config{9600, 8, 1, 'N'};
  std::string notInit = "RS485 dev not init yet!\n", out = captured([&] {
    adapter.reset(new Rs485Adapter("/dev/ttyNoSuchPort"));
    EXPECT_EQ(std::vector<int>({adapter->setConfig(config), adapter->getConfig(config), adapter->send(&byte, 1),
                                adapter->receive(&byte, 1)}),
              std::vector<int>(4, -1));
  });
  EXPECT_EQ(out, "ERROR: open /dev/ttyNoSuchPort failed!\n" + notInit + notInit + notInit + notInit);
}

TEST(Rs485AdapterTest, AWholeFrameGoesOutAndAReadThatASignalCutIsMadeAgain) {
  Pty pty;
  std::unique_ptr<Rs485Adapter> adapter;
  captured([&] { adapter.reset(new Rs485Adapter(pty.name)); });
  struct stat line;
  ASSERT_EQ(fstat(pty.slave, &line), 0);
  Bytes ua = hex("7E 03 73 33 64 7E"), got(8);
  pty.write({0x7E});
  gCutLine = line.st_rdev;
  std::string out = captured([&] {
    EXPECT_EQ(adapter->send(ua.data(), ua.size()), 0);
    EXPECT_EQ(adapter->receive(got.data(), got.size()), 1);
  });
  gCutLine = 0;
  EXPECT_EQ(out, "");
  EXPECT_EQ(pty.receive(), ua);
}

}  // namespace
