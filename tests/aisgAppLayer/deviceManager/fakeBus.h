// Stand-ins for the communication manager in the device manager's tests: they
// record every packet handed over and answer the way the manager does, with the
// reply in the caller's packet.
#ifndef PK_TESTS_DEVICEMANAGER_FAKE_BUS_H
#define PK_TESTS_DEVICEMANAGER_FAKE_BUS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/deviceCommInterface.h"

namespace fake {

using Bytes = std::vector<uint8_t>;

// What fn printed on standard output, traces included.
inline std::string captured(const std::function<void()>& fn) {
  fflush(stdout);
  testing::internal::CaptureStdout();
  fn();
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

// The frame of a packet as it would go on the wire, in hex: "7E 01 93 8D B0 7E".
inline std::string wire(S_HdlcPacket packet) {
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  if (HdlcProtocol::encode(&packet, buffer, &length, hdlc::kStructured) != 0) return "encode failed";
  std::string text;
  char hex[4];
  for (unsigned int i = 0; i < length; ++i) {
    snprintf(hex, sizeof(hex), i == 0 ? "%02X" : " %02X", buffer[i]);
    text += hex;
  }
  return text;
}

inline Bytes dataOf(const S_HdlcPacket& packet) {
  return Bytes(packet.data, packet.data + packet.dataLength);
}

// A reply as the manager hands it over: the frame with this control byte on the
// wire, run through the codec in structured mode.
inline S_HdlcPacket reply(uint8_t address, uint8_t wireControl, const Bytes& data = {}) {
  S_HdlcPacket frame{};
  frame.address = address;
  frame.control = wireControl;
  frame.dataLength = static_cast<uint16_t>(data.size());
  if (!data.empty()) memcpy(frame.data, data.data(), data.size());
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  EXPECT_EQ(HdlcProtocol::encode(&frame, buffer, &length, hdlc::kTransparent), 0);
  S_HdlcPacket decoded{};
  EXPECT_EQ(HdlcProtocol::decode(buffer, length, &decoded, hdlc::kStructured), 0);
  return decoded;
}

// Records each exchange; subclasses decide the answer.
class RecordingComm : public DeviceCommInterface {
 public:
  std::vector<S_HdlcPacket> sent;
  std::vector<unsigned int> times;

  void commandSend(unsigned char*, unsigned int) override { ++commandSends; }
  int sendCmdAndWaitResponse(unsigned char*, int*, unsigned int) override { return -1; }
  void clearStatusData() override {}

  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    sent.push_back(*packet);
    times.push_back(time);
    S_HdlcPacket answer{};
    int result = respond(*packet, answer);
    *packet = answer;
    return result;
  }

  int commandSends = 0;

 protected:
  virtual int respond(const S_HdlcPacket& request, S_HdlcPacket& answer) = 0;
};

// Answers from a script, in order; an empty script is a silent bus (-2).
class ScriptedComm : public RecordingComm {
 public:
  struct Step {
    int result;
    S_HdlcPacket packet;
  };

  void then(int result, const S_HdlcPacket& packet = S_HdlcPacket{}) { script.push_back({result, packet}); }

  std::deque<Step> script;

 protected:
  int respond(const S_HdlcPacket&, S_HdlcPacket& answer) override {
    if (script.empty()) return -2;
    Step step = script.front();
    script.pop_front();
    answer = step.packet;
    return step.result;
  }
};

// One ALD on the fake bus, with the faults it can be told to have.
struct Ald {
  Bytes uid;
  uint8_t type = 0x11;
  bool noVendor = false;
  bool failConfirm = false;  // silent to the probe that names its whole UID
  bool failAssign = false;   // silent to its address assignment
  bool failSnrm = false;     // silent to SNRM
  uint8_t address = 0;       // 0 until assigned
};

// A bus of ALDs that answer as real ones do: a broadcast reset takes their
// addresses (and is not answered), an unaddressed ALD answers each probe whose
// UID it matches under the mask, several answers at once collide (-3), and an
// addressed ALD answers SNRM with UA and RR with RR.
class FakeBus : public RecordingComm {
 public:
  std::vector<Ald> alds;

  Ald* byAddress(uint8_t address) {
    for (Ald& ald : alds) {
      if (ald.address == address) return &ald;
    }
    return nullptr;
  }

 protected:
  int respond(const S_HdlcPacket& request, S_HdlcPacket& answer) override {
    if (request.address != 0xFF) return respondAddressed(request, answer);
    if (request.control != 0xAF || request.dataLength < 3 || request.data[1] != 0xF0) return -2;
    Bytes uid, mask;
    bool reset = false;
    int newAddress = -1;
    for (unsigned int i = 3; i + 1 < request.dataLength; i += 2u + request.data[i + 1]) {
      const uint8_t* value = request.data + i + 2;
      Bytes bytes(value, value + request.data[i + 1]);
      switch (request.data[i]) {
        case 0x01: uid = bytes; break;
        case 0x02: newAddress = bytes.at(0); break;
        case 0x03: mask = bytes; break;
        case 0x07: reset = true; break;
      }
    }
    if (reset) {
      for (Ald& ald : alds) ald.address = 0;
      return -2;
    }
    if (newAddress >= 0) {
      for (Ald& ald : alds) {
        if (ald.uid != uid || ald.failAssign) continue;
        ald.address = static_cast<uint8_t>(newAddress);
        answer = xidReply(ald, false);
        return 0;
      }
      return -2;
    }
    const Ald* single = nullptr;
    int matches = 0;
    const bool confirmation = !mask.empty() && mask.size() == uid.size() &&
                              std::all_of(mask.begin(), mask.end(), [](uint8_t b) { return b == 0xFF; });
    for (const Ald& ald : alds) {
      if (ald.address != 0 || !matchesProbe(ald, uid, mask)) continue;
      if (confirmation && ald.failConfirm) continue;
      ++matches;
      single = &ald;
    }
    if (matches == 0) return -2;
    if (matches > 1) return -3;
    answer = xidReply(*single, !single->noVendor);
    return 0;
  }

 private:
  static bool matchesProbe(const Ald& ald, const Bytes& uid, const Bytes& mask) {
    for (size_t i = 0; i < mask.size(); ++i) {
      const uint8_t own = i < ald.uid.size() ? ald.uid[i] : 0;
      const uint8_t probe = i < uid.size() ? uid[i] : 0;
      if (((own ^ probe) & mask[i]) != 0) return false;
    }
    return true;
  }

  static S_HdlcPacket xidReply(const Ald& ald, bool withVendor) {
    Bytes data = {0x81, 0xF0, 0, 0x01, static_cast<uint8_t>(ald.uid.size())};
    data.insert(data.end(), ald.uid.begin(), ald.uid.end());
    data.insert(data.end(), {0x04, 0x01, ald.type});
    if (withVendor) data.insert(data.end(), {0x06, 0x02, 'X', 'Y'});
    data[2] = static_cast<uint8_t>(data.size() - 3);
    return reply(ald.address == 0 ? 0xFF : ald.address, 0xBF, data);
  }

  int respondAddressed(const S_HdlcPacket& request, S_HdlcPacket& answer) {
    Ald* ald = byAddress(request.address);
    if (ald == nullptr) return -2;
    if (request.control == 0x83) {
      if (ald->failSnrm) return -2;
      answer = reply(ald->address, 0x73);
      return 0;
    }
    if (request.control == 0x01) {
      answer = reply(ald->address, 0x11);
      return 0;
    }
    return -2;
  }
};

}  // namespace fake

#endif
