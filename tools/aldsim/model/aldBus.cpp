#include "aldBus.h"

#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/commManager/xidReader.h"
#include "aisgAppLayer/commManager/xidWriter.h"
#include "utility/hexText.h"

#include <cstdio>
#include <cstring>
#include <sstream>

namespace {

using namespace aisg;

// The parameters of an XID frame of the ALD group that the simulator acts on.
struct S_XidParams {
  bool aldGroup = false;
  bool hdlcGroup = false;
  bool reset = false;
  bool hasAddress = false;
  uint8_t address = 0;
  const uint8_t* uid = nullptr;
  size_t uidLength = 0;
  const uint8_t* mask = nullptr;
  size_t maskLength = 0;
};

S_XidParams readXid(const S_HdlcPacket& packet) {
  S_XidParams xid;
  XidReader reader(packet);
  xid.hdlcGroup = reader.isGroup(kHdlcGroup);
  xid.aldGroup = reader.isGroup(kAldGroup);
  if (!xid.aldGroup) return xid;
  for (S_XidParameter parameter; reader.next(parameter);) {
    switch (parameter.id) {
      case kParamUid:
        xid.uid = parameter.value;
        xid.uidLength = parameter.length;
        break;
      case kParamMask:
        xid.mask = parameter.value;
        xid.maskLength = parameter.length;
        break;
      case kParamAddress:
        xid.hasAddress = parameter.length >= 1;
        if (xid.hasAddress) xid.address = parameter.value[0];
        break;
      case kParamReset:
        xid.reset = true;
        break;
      default:
        break;
    }
  }
  return xid;
}

}  // namespace

// One answer before it is encoded: who sends it and the frame.
struct S_SimAnswer {
  const SimAld* ald;
  S_HdlcPacket packet;
};

AldBus::AldBus(const std::vector<S_AldConfig>& configs, unsigned int seed) : _random(seed) {
  for (const S_AldConfig& config : configs) _alds.emplace_back(config);
}

int AldBus::handleFrame(const uint8_t* frame, size_t length, double secondsSinceStart,
                        std::vector<S_SimReply>& replies) {
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  // The silent decode: the log is the simulator's own.
  const int result = hdlc::decodeFrame(frame, static_cast<unsigned int>(length), packet, hdlc::kStructured);
  if (result != hdlc::HDLC_OK) return result;

  std::vector<S_SimAnswer> answers;
  for (SimAld& ald : _alds) answer(ald, packet, secondsSinceStart, answers);
  if (answers.size() == 1) {
    const SimAld& ald = *answers[0].ald;
    bool corrupt = ald.config().badFcsPercent > 0 && _random() % 100 < ald.config().badFcsPercent;
    replies.push_back(encodeAnswer(answers[0], corrupt));
  } else if (answers.size() > 1) {
    // Several senders at once garble each other on the wire: what arrives fails its FCS.
    S_SimReply collision = encodeAnswer(answers[0], true);
    collision.collision = true;
    collision.splitMs = 0;
    replies.push_back(collision);
  }
  return 0;
}

void AldBus::answer(SimAld& ald, const S_HdlcPacket& packet, double now, std::vector<S_SimAnswer>& answers) {
  if (packet.address != kBroadcastAddress) {
    if (packet.address != kNoAddress && ald.address() == packet.address && ald.takeFrame(now)) {
      answerAddressed(ald, packet, answers);
    }
    return;
  }
  // Broadcast: only the ALD group's reset, address assignment and probe mean anything.
  S_XidParams xid = readXid(packet);
  if (!xid.aldGroup) return;
  if (xid.reset) {
    if (ald.takeFrame(now)) ald.forget();
  } else if (xid.hasAddress) {
    if (xid.uid != nullptr && ald.hasUid(xid.uid, xid.uidLength) && ald.takeFrame(now)) {
      ald.setAddress(xid.address);
      answers.push_back(identification(ald, xid.address, false));
    }
  } else if (ald.address() == kNoAddress && ald.matchesProbe(xid.uid, xid.uidLength, xid.mask, xid.maskLength) &&
             ald.takeFrame(now)) {
    answers.push_back(identification(ald, kBroadcastAddress, !ald.config().noVendor));
  }
}

void AldBus::answerAddressed(SimAld& ald, const S_HdlcPacket& packet, std::vector<S_SimAnswer>& answers) {
  uint8_t own = ald.address();
  // I-frames and polls are served whatever the link state: after a new address
  // assignment the primary goes on without a fresh SNRM and keeps its numbers.
  if (hdlc::isIFrame(packet.control)) {
    if (!ald.acceptIFrame(packet.sendNo)) {
      answers.push_back(makeAnswer(ald, own, kRr));
      return;
    }
    std::vector<uint8_t> message;
    ald.answerProcedure(packet.data, packet.dataLength, message);
    S_SimAnswer reply = makeAnswer(ald, own, kIFrame);
    reply.packet.dataLength = static_cast<uint16_t>(message.size());
    memcpy(reply.packet.data, message.data(), message.size());
    reply.packet.sendNo = ald.takeSendNo();
    answers.push_back(reply);
  } else if (hdlc::isSFrame(packet.control)) {  // RR, RNR or REJ
    answers.push_back(makeAnswer(ald, own, kRr));
  } else if (packet.control == kSnrm || packet.control == kDisc) {
    if (packet.control == kSnrm) {
      ald.linkOpen();
    } else {
      ald.linkClose();
    }
    answers.push_back(makeAnswer(ald, own, kUa));
  } else if (packet.control == kXid) {
    S_XidParams xid = readXid(packet);
    S_SimAnswer reply = makeAnswer(ald, own, kXid);
    if (xid.hdlcGroup) {
      const uint8_t window = 1;
      XidWriter(reply.packet, kHdlcGroup).add(kHdlcParamTransmitWindow, &window, 1);
      answers.push_back(reply);
    } else if (xid.reset) {
      XidWriter(reply.packet, kAldGroup).add(kParamReset, nullptr, 0);
      answers.push_back(reply);
      ald.forget();
    }
  }
}

S_SimAnswer AldBus::identification(const SimAld& ald, uint8_t address, bool withVendor) {
  const S_AldConfig& config = ald.config();
  S_SimAnswer answer = makeAnswer(ald, address, kXid);
  XidWriter xid(answer.packet, kAldGroup);
  xid.add(kParamUid, config.uid.data(), static_cast<uint8_t>(config.uid.size()));
  xid.add(kParamDeviceType, &config.deviceType, 1);
  if (withVendor) xid.add(kParamVendorCode, config.vendor, 2);
  return answer;
}

S_SimAnswer AldBus::makeAnswer(const SimAld& ald, uint8_t address, uint8_t control) {
  S_SimAnswer answer;
  answer.ald = &ald;
  S_HdlcPacket& packet = answer.packet;
  memset(&packet, 0, sizeof(packet));
  packet.pollFinal = 1;
  packet.address = address;
  if (ald.config().wrongAddr >= 0 && address != kBroadcastAddress) packet.address = static_cast<uint8_t>(ald.config().wrongAddr);
  packet.control = control;
  packet.receiveNo = ald.receiveNo();
  return answer;
}

S_SimReply AldBus::encodeAnswer(S_SimAnswer answer, bool corrupt) {
  S_HdlcPacket& packet = answer.packet;
  uint8_t buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  hdlc::encodeFrame(packet, hdlc::kStructured, buffer, length);
  if (corrupt) {
    // Spoil the FCS in the record and stuff the frame area again, so the frame
    // stays well formed and only its check fails.
    packet.data[packet.dataLength] ^= 0xFF;
    unsigned int stuffed = 0;
    hdlc::stuff(hdlc::frameArea(packet), packet.dataLength + 4u, buffer + 1, stuffed);
    buffer[stuffed + 1] = hdlc::kFlag;
    length = stuffed + 2;
  }
  S_SimReply reply;
  reply.bytes.assign(buffer, buffer + length);
  reply.delayMs = answer.ald->config().delayMs;
  reply.splitMs = answer.ald->config().splitMs;
  return reply;
}

SimAld* AldBus::aldByNumber(const std::string& word, std::vector<std::string>& lines) {
  unsigned long number = 0;
  if (AldDescription::parseUnsigned(word, _alds.size(), number) != 0 || number == 0) {
    lines.push_back("no ALD '" + word + "' (1 to " + std::to_string(_alds.size()) + ")");
    return nullptr;
  }
  return &_alds[number - 1];
}

void AldBus::command(const std::string& line, std::vector<std::string>& lines) {
  std::istringstream words(line);
  std::string verb, number, code;
  words >> verb >> number >> code;
  if (verb.empty()) return;
  if (verb == "list") {
    for (size_t i = 0; i < _alds.size(); ++i) {
      const SimAld& ald = _alds[i];
      std::string text = std::to_string(i + 1) + " " + (ald.address() == 0 ? "-" : std::to_string(ald.address())) +
                         (ald.linkUp() ? " up " : " down ");
      const auto& uid = ald.config().uid;
      lines.push_back(text + hexText(uid.data(), uid.size(), ""));
    }
    return;
  }
  if (verb != "quiet" && verb != "wake" && verb != "alarm") {
    lines.push_back("unknown command '" + verb + "' (quiet N, wake N, alarm N CODE, list)");
    return;
  }
  SimAld* ald = aldByNumber(number, lines);
  if (ald == nullptr) return;
  if (verb == "alarm") {
    unsigned long value = 0;
    if (AldDescription::parseUnsigned(code, 0xFF, value) != 0) {
      lines.push_back("bad alarm code '" + code + "' (0 to 255)");
      return;
    }
    ald->setAlarm(static_cast<uint8_t>(value));
    lines.push_back("ald " + number + " alarm " + std::to_string(value));
    return;
  }
  ald->setQuiet(verb == "quiet");
  lines.push_back("ald " + number + (verb == "quiet" ? " quiet" : " awake"));
}
