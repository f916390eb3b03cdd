// The simulator's ALD bus behind the device manager's way to the bus: a packet
// goes through the codec onto the simulated bus, and the answer comes back as
// the communication manager hands it over.
#ifndef PK_TESTS_SUPPORT_SIM_BUS_H
#define PK_TESTS_SUPPORT_SIM_BUS_H

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "aisgAppLayer/deviceManager/deviceCommInterface.h"
#include "aldBus.h"
#include "testFrames.h"

class SimBus : public DeviceCommInterface {
 public:
  // The ALDs in the simulator's syntax, "uid=0x4142,type=0x11".
  explicit SimBus(const std::vector<std::string>& alds = {}) : model(configs(alds), 1) {}

  // The reply on the wire to the frame of packet, empty for silence; a scripted
  // reply goes first. The packet goes to `sent`.
  tframes::Bytes answer(const S_HdlcPacket& packet) {
    sent.push_back(packet);
    tframes::Bytes reply;
    if (!script.empty()) {
      reply = script.front();
      script.pop_front();
      return reply;
    }
    const tframes::Bytes frame = tframes::frame(packet);
    std::vector<S_SimReply> replies;
    model.handleFrame(frame.data(), frame.size(), 0, replies);
    return replies.empty() ? reply : replies[0].bytes;
  }

  // 0 with the reply in packet, -2 silence, -3 a reply that does not decode. Every
  // exchange of the link waits a second.
  int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) override {
    EXPECT_EQ(time, 1000u);
    const tframes::Bytes reply = answer(*packet);
    *packet = S_HdlcPacket{};
    if (reply.empty()) return -2;
    return hdlc::decodeFrame(reply.data(), unsigned(reply.size()), *packet, hdlc::kStructured) == 0 ? 0 : -3;
  }
  void commandSend(unsigned char*, unsigned int) override {}
  int sendCmdAndWaitResponse(unsigned char*, int*, unsigned int) override { return -1; }
  void clearStatusData() override {}

  AldBus model;
  std::deque<tframes::Bytes> script;
  std::vector<S_HdlcPacket> sent;

 private:
  static std::vector<S_AldConfig> configs(const std::vector<std::string>& alds) {
    std::vector<S_AldConfig> result(alds.size());
    std::string error;
    for (size_t i = 0; i < alds.size(); ++i) EXPECT_EQ(AldDescription::parse(alds[i], result[i], error), 0) << error;
    return result;
  }
};

#endif
