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

using Bytes = std::vector<unsigned char>;
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

inline S_HdlcPacket packetTo(uint8_t address, uint8_t control, const Bytes& data = {}, uint8_t sendNo = 0,
                             uint8_t receiveNo = 0) {
  S_HdlcPacket packet{1, sendNo, receiveNo, uint16_t(data.size()), 0, address, control, {}};
  std::copy(data.begin(), data.end(), packet.data);
  return packet;
}

// The bytes of a packet, empty when it does not encode; the packet keeps what encode left in it.
inline Bytes encoded(S_HdlcPacket& packet, int mode = hdlc::kStructured) {
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  return HdlcProtocol::encode(&packet, buffer, &length, mode) == 0 ? Bytes(buffer, buffer + length) : Bytes();
}
inline Bytes frame(S_HdlcPacket packet) { return encoded(packet); }

#endif
