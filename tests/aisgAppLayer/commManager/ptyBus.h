#ifndef PK_TESTS_COMMMANAGER_PTY_BUS_H
#define PK_TESTS_COMMMANAGER_PTY_BUS_H

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "e2eHarness.h"

using Bytes = std::vector<unsigned char>;

// A pty pair as the bus: the configured port name links to the slave, and the
// test plays the ALD on the master. Its own slave descriptor keeps the bus from
// hanging up when the service closes the port.
class PtyBus {
 public:
  static constexpr const char* kPortLink = "/tmp/aisgbus";
  PtyBus() {
    char name[128];
    EXPECT_EQ(openpty(&_master, &_slave, name, nullptr, nullptr), 0);
    pointPortAt(name);
    e2e::writeConfig(std::string("PortName ") + kPortLink + "\n");
  }
  ~PtyBus() {
    close(_master);
    close(_slave);
  }
  static void pointPortAt(const char* path) {
    unlink(kPortLink);
    EXPECT_EQ(symlink(path, kPortLink), 0);
  }
  void write(const Bytes& bytes) { EXPECT_EQ(::write(_master, bytes.data(), bytes.size()), ssize_t(bytes.size())); }
  // What the service sent: waits up to firstMs for a byte, then reads until 5 ms of quiet.
  Bytes receive(int firstMs = 1000) {
    Bytes bytes;
    pollfd pending = {_master, POLLIN, 0};
    unsigned char chunk[512];
    for (int wait = firstMs; poll(&pending, 1, wait) > 0; wait = 5) {
      ssize_t n = read(_master, chunk, sizeof(chunk));
      if (n <= 0) break;
      bytes.insert(bytes.end(), chunk, chunk + n);
    }
    return bytes;
  }

 private:
  int _master = -1;
  int _slave = -1;
};

inline long msSince(std::chrono::steady_clock::time_point start) {
  return long(std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count());
}

inline S_HdlcPacket packetTo(uint8_t address, uint8_t control, const Bytes& data = {}) {
  S_HdlcPacket packet{};
  packet.pollFinal = 1;
  packet.address = address;
  packet.control = control;
  packet.dataLength = uint16_t(data.size());
  std::copy(data.begin(), data.end(), packet.data);
  return packet;
}

// A frame as an ALD sends it, with P/F set.
inline Bytes frame(uint8_t address, uint8_t control, uint8_t sendNo, uint8_t receiveNo, const Bytes& data = {}) {
  S_HdlcPacket packet = packetTo(address, control, data);
  packet.sendNo = sendNo;
  packet.receiveNo = receiveNo;
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  HdlcProtocol::encode(&packet, buffer, &length, hdlc::kStructured);
  return Bytes(buffer, buffer + length);
}

#endif
