#ifndef PK_TESTS_COMMMANAGER_PTY_BUS_H
#define PK_TESTS_COMMMANAGER_PTY_BUS_H

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "e2eHarness.h"
#include "testFrames.h"

using tframes::Bytes;
using Clock = std::chrono::steady_clock;

inline long msSince(Clock::time_point start) { return long((Clock::now() - start) / std::chrono::milliseconds(1)); }

// Bytes from hex pairs, as "7E 03 93".
inline Bytes hex(const std::string& text) {
  Bytes bytes;
  std::istringstream in(text);
  for (unsigned int b; in >> std::hex >> b;) bytes.push_back(uint8_t(b));
  return bytes;
}

// A pty pair: the code under test opens the slave, the test plays the far end on the
// master. Its own slave descriptor keeps the line from hanging up when the other side closes.
struct Pty {
  int master = -1, slave = -1;
  char name[128] = {0};
  explicit Pty(bool isServicePort = false) {
    EXPECT_EQ(openpty(&master, &slave, name, nullptr, nullptr), 0);
    if (!isServicePort) return;
    unlink("/tmp/aisgbus");
    EXPECT_EQ(symlink(name, "/tmp/aisgbus"), 0);
    e2e::writeConfig("PortName /tmp/aisgbus\n");
  }
  ~Pty() { close(master), close(slave); }
  void write(const Bytes& b) { EXPECT_EQ(::write(master, b.data(), b.size()), ssize_t(b.size())); }
  // What the other side sent: up to firstMs for the first byte, then until 5 ms of quiet.
  Bytes receive(int firstMs = 1000) {
    Bytes bytes;
    unsigned char chunk[512];
    pollfd pending = {master, POLLIN, 0};
    for (ssize_t n; poll(&pending, 1, bytes.empty() ? firstMs : 5) > 0 && (n = read(master, chunk, 512)) > 0;) {
      bytes.insert(bytes.end(), chunk, chunk + n);
    }
    return bytes;
  }
};

using tframes::encoded;
using tframes::frame;
using tframes::packetTo;

#endif
