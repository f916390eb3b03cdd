// A stand-in for the communication manager in the device manager's tests: it
// records every packet handed over and answers the way the manager does, with
// the reply in the caller's packet.
#ifndef PK_TESTS_DEVICEMANAGER_FAKE_BUS_H
#define PK_TESTS_DEVICEMANAGER_FAKE_BUS_H

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "aisgAppLayer/deviceManager/deviceCommInterface.h"
#include "testFrames.h"
#include "utility/hexText.h"

namespace fake {

using tframes::Bytes;

// The frame of a packet as it would go on the wire: "7E 01 93 8D B0 7E".
inline std::string wire(S_HdlcPacket packet) {
  const Bytes bytes = tframes::encoded(packet);
  return bytes.empty() ? "encode failed" : hexText(bytes.data(), bytes.size());
}

// A reply as the manager hands it over: the frame with this control byte on the
// wire, run through the codec in structured mode.
inline S_HdlcPacket reply(uint8_t address, uint8_t wireControl, const Bytes& data = {}) {
  S_HdlcPacket sent = tframes::packetTo(address, wireControl, data);
  Bytes bytes = tframes::encoded(sent, hdlc::kTransparent);
  S_HdlcPacket decoded{};
  EXPECT_EQ(HdlcProtocol::decode(bytes.data(), static_cast<unsigned int>(bytes.size()), &decoded, hdlc::kStructured), 0);
  return decoded;
}

// One ALD on the fake bus, with the fault it can be told to have: no vendor code
// in its identification, or silence to the probe naming its whole UID, to its
// address assignment or to SNRM.
enum Fault { kNoFault, kNoVendor, kFailConfirm, kFailAssign, kFailSnrm };
struct Ald {
  Bytes uid;
  Fault fault = kNoFault;
  uint8_t address = 0;  // 0 until assigned
};

// Answers from `script` while it has steps. Otherwise the ALDs answer as real
// ones do: a broadcast reset takes their addresses (and is not answered), an
// unaddressed ALD answers each probe whose UID it matches under the mask,
// several answers at once collide (-3), and an addressed ALD answers SNRM with
// UA. Silence is -2.
class FakeBus : public DeviceCommInterface {
 public:
  struct Step {
    int result;
    S_HdlcPacket packet;
  };
  std::deque<Step> script;
  std::vector<Ald> alds;
  std::vector<S_HdlcPacket> sent;
  std::vector<unsigned int> times;

  void commandSend(unsigned char*, unsigned int) override {}
  int sendCmdAndWaitResponse(unsigned char*, int*, unsigned int) override { return -1; }
  void clearStatusData() override {}
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    sent.push_back(*packet);
    times.push_back(time);
    Step step{-2, S_HdlcPacket{}};
    if (script.empty()) {
      step.result = respond(*packet, step.packet);
    } else {
      step = script.front();
      script.pop_front();
    }
    *packet = step.packet;
    return step.result;
  }

 private:
  int respond(const S_HdlcPacket& request, S_HdlcPacket& answer) {
    if (request.address != 0xFF) {
      for (Ald& ald : alds) {
        if (ald.address != request.address || request.control != 0x83 || ald.fault == kFailSnrm) continue;
        answer = reply(ald.address, 0x73);
        return 0;
      }
      return -2;
    }
    Bytes uid, mask;
    int newAddress = -1;
    for (unsigned int i = 3; i + 1 < request.dataLength; i += 2u + request.data[i + 1]) {
      Bytes value(request.data + i + 2, request.data + i + 2 + request.data[i + 1]);
      if (request.data[i] == 0x01) uid = value;
      if (request.data[i] == 0x02) newAddress = value.at(0);
      if (request.data[i] == 0x03) mask = value;
      if (request.data[i] != 0x07) continue;
      for (Ald& ald : alds) ald.address = 0;
      return -2;
    }
    const bool confirmation = !mask.empty() && mask == Bytes(uid.size(), 0xFF);
    std::vector<Ald*> answering;
    for (Ald& ald : alds) {
      bool match = newAddress >= 0 ? ald.uid == uid && ald.fault != kFailAssign
                                   : ald.address == 0 && !(confirmation && ald.fault == kFailConfirm);
      for (size_t i = 0; i < mask.size(); ++i) {
        const uint8_t own = i < ald.uid.size() ? ald.uid[i] : 0;
        if (((own ^ (i < uid.size() ? uid[i] : 0)) & mask[i]) != 0) match = false;
      }
      if (match) answering.push_back(&ald);
    }
    if (answering.size() != 1) return answering.empty() ? -2 : -3;
    Ald& ald = *answering[0];
    if (newAddress >= 0) ald.address = static_cast<uint8_t>(newAddress);
    // The identification, its parameters out of order and another among them.
    Bytes data = {0x81, 0xF0, 0};
    data.reserve(40);
    if (newAddress < 0 && ald.fault != kNoVendor) data.insert(data.end(), {0x06, 0x02, 'X', 'Y'});
    data.insert(data.end(), {0x09, 0x01, 0x00, 0x04, 0x01, 0x11, 0x01, static_cast<uint8_t>(ald.uid.size())});
    data.insert(data.end(), ald.uid.begin(), ald.uid.end());
    data[2] = static_cast<uint8_t>(data.size() - 3);
    answer = reply(ald.address == 0 ? 0xFF : ald.address, 0xBF, data);
    return 0;
  }
};

}  // namespace fake

#endif
