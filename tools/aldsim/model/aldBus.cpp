#include "aldBus.h"

#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/commManager/xidReader.h"
#include "aisgAppLayer/commManager/xidWriter.h"
#include "utility/hexText.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace {

using namespace aisg;

// The commands with their words; a command takes as many words as its usage has.
const char* const kUsages[] = {"power N SECONDS", "drop N",      "unplug N",    "plug ALD", "garble N KIND COUNT",
                               "delay N MS",      "address N A", "noise COUNT", "quiet N",  "wake N",
                               "alarm N CODE",    "list"};
const struct {
  const char* name;
  int control;
} kReplyKinds[] = {{"xid", kXid}, {"ua", kUa}, {"rr", kRr}, {"dm", kDm}, {"i", kIFrame}, {"any", SimAld::kAnyReply}, {"assign", SimAld::kAssignReply}};
// The number each of these commands ends with.
const struct S_ValueRange {
  const char* verb;
  unsigned long min;
  unsigned long max;
} kValueRanges[] = {{"alarm", 0, 0xFF}, {"address", 1, kLastAddress}, {"delay", 0, 60000}, {"garble", 0, 1000000}};
// More noise at once than a pty takes would only be dropped.
constexpr unsigned long kMaxNoise = 4096;

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
  SimAld* ald;
  S_HdlcPacket packet;
  bool assignment = false;  // the XID that answers an address assignment
};

AldBus::AldBus(const std::vector<S_AldConfig>& configs, unsigned int seed, bool alwaysLinked)
    : _random(seed), _alwaysLinked(alwaysLinked) {
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
  if (answers.empty()) return 0;
  // Several senders at once garble each other on the wire: what arrives fails its FCS.
  bool corrupt = answers.size() > 1;
  S_SimReply reply;
  // Each sender uses up its one-off knobs, also when its reply is lost in a collision.
  for (const S_SimAnswer& sent : answers) {
    corrupt = sent.ald->takeGarble(sent.packet.control, sent.assignment) || corrupt;
    reply.delayMs = std::max(reply.delayMs, sent.ald->takeDelay());
  }
  const S_AldConfig& config = answers[0].ald->config();
  if (answers.size() == 1) {
    corrupt = (config.badFcsPercent > 0 && _random() % 100 < config.badFcsPercent) || corrupt;
    reply.splitMs = config.splitMs;
  } else {
    reply.logAs = "TX COLLISION";
  }
  reply.bytes = encodeAnswer(answers[0].packet, corrupt);
  replies.push_back(reply);
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
      answers.back().assignment = true;
    }
  } else if (ald.address() == kNoAddress && ald.matchesProbe(xid.uid, xid.uidLength, xid.mask, xid.maskLength) &&
             ald.takeFrame(now)) {
    answers.push_back(identification(ald, kBroadcastAddress, !ald.config().noVendor));
  }
}

void AldBus::answerAddressed(SimAld& ald, const S_HdlcPacket& packet, std::vector<S_SimAnswer>& answers) {
  uint8_t own = ald.address();
  const bool iFrame = hdlc::isIFrame(packet.control);
  // A secondary in disconnected mode refuses polls and I-frames until an SNRM.
  // --always-linked serves them anyway, for a primary that goes on after an
  // address assignment without a fresh SNRM and keeps its numbers.
  if ((iFrame || hdlc::isSFrame(packet.control)) && !ald.linkUp() && !_alwaysLinked) {
    answers.push_back(makeAnswer(ald, own, kDm));
  } else if (iFrame) {
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

S_SimAnswer AldBus::identification(SimAld& ald, uint8_t address, bool withVendor) {
  const S_AldConfig& config = ald.config();
  S_SimAnswer answer = makeAnswer(ald, address, kXid);
  XidWriter xid(answer.packet, kAldGroup);
  xid.add(kParamUid, config.uid.data(), static_cast<uint8_t>(config.uid.size()));
  xid.add(kParamDeviceType, &config.deviceType, 1);
  if (withVendor) xid.add(kParamVendorCode, config.vendor, 2);
  return answer;
}

S_SimAnswer AldBus::makeAnswer(SimAld& ald, uint8_t address, uint8_t control) {
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

std::vector<uint8_t> AldBus::encodeAnswer(S_HdlcPacket packet, bool corrupt) {
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
  return std::vector<uint8_t>(buffer, buffer + length);
}

void AldBus::noise(unsigned long count, std::vector<S_SimReply>* out) {
  S_SimReply noise;
  noise.logAs = "TX NOISE";
  // Without a flag no stretch of it can pass for a frame.
  for (unsigned long i = 0; i < count; ++i) {
    unsigned int byte = _random() % 255;
    noise.bytes.push_back(static_cast<uint8_t>(byte >= hdlc::kFlag ? byte + 1 : byte));
  }
  if (out != nullptr) out->push_back(noise);
}

int AldBus::command(const std::string& line, std::vector<std::string>& lines, double now,
                    std::vector<S_SimReply>* out) {
  std::istringstream in(line);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  if (words.empty()) return 0;
  const char* usage = nullptr;
  size_t wordCount = 0;
  for (const char* candidate : kUsages) {
    std::istringstream usageWords(candidate);
    std::string first;
    usageWords >> first;
    if (first != words[0]) continue;
    usage = candidate;
    wordCount = 1;
    for (std::string word; usageWords >> word;) ++wordCount;
  }
  if (usage == nullptr) {
    std::string all;
    for (const char* candidate : kUsages) all += std::string(all.empty() ? "" : ", ") + candidate;
    lines.push_back("unknown command '" + words[0] + "' (" + all + ")");
    return -1;
  }
  if (words.size() != wordCount) {
    lines.push_back(std::string("usage: ") + usage);
    return -1;
  }
  const std::string& verb = words[0];
  std::string echo = verb;
  for (size_t i = 1; i < words.size(); ++i) echo += " " + words[i];
  if (verb == "list") {
    for (size_t i = 0; i < _alds.size(); ++i) {
      const SimAld& ald = _alds[i];
      std::string text = std::to_string(i + 1) + " " + (ald.address() == 0 ? "-" : std::to_string(ald.address())) +
                         (ald.linkUp() ? " up " : " down ");
      const auto& uid = ald.config().uid;
      lines.push_back(text + hexText(uid.data(), uid.size(), ""));
    }
    return 0;
  }
  if (verb == "plug") {
    S_AldConfig config;
    std::string error;
    if (_alds.size() >= kLastAddress) error = "the bus holds 254 ALDs already";
    if (error.empty() && AldDescription::parse(words[1], config, error) == 0) {
      _alds.emplace_back(config);
      lines.push_back(echo);
      return 0;
    }
    lines.push_back(error);
    return -1;
  }
  if (verb == "noise") {
    unsigned long count = 0;
    if (AldDescription::parseUnsigned(words[1], kMaxNoise, count) != 0 || count == 0) {
      lines.push_back("bad COUNT '" + words[1] + "' for noise (1 to " + std::to_string(kMaxNoise) + ")");
      return -1;
    }
    noise(count, out);
    lines.push_back(echo);
    return 0;
  }
  if (aldCommand(words, now, lines) != 0) return -1;
  // The older commands keep the lines they always printed.
  if (verb != "quiet" && verb != "wake" && verb != "alarm") lines.push_back(echo);
  return 0;
}

int AldBus::aldCommand(const std::vector<std::string>& words, double now, std::vector<std::string>& lines) {
  const std::string& verb = words[0];
  unsigned long number = 0;
  if (AldDescription::parseUnsigned(words[1], _alds.size(), number) != 0 || number == 0) {
    lines.push_back("no ALD '" + words[1] + "' (1 to " + std::to_string(_alds.size()) + ")");
    return -1;
  }
  SimAld& ald = _alds[number - 1];
  // The last word of power is seconds, of the others that have one a number in a range.
  const std::string& last = words.back();
  double seconds = 0;
  unsigned long value = 0;
  if (verb == "power" && (AldDescription::parseDecimal(last, seconds) != 0 || seconds < 0)) {
    lines.push_back("bad SECONDS '" + last + "' for power (0 or more)");
    return -1;
  }
  for (const S_ValueRange& range : kValueRanges) {
    if (verb == range.verb && (AldDescription::parseUnsigned(last, range.max, value) != 0 || value < range.min)) {
      lines.push_back("bad value '" + last + "' for " + verb + " (" + std::to_string(range.min) + " to " +
                      std::to_string(range.max) + ")");
      return -1;
    }
  }
  int kind = SimAld::kAnyReply;
  if (verb == "garble") {
    const auto* found = std::find_if(std::begin(kReplyKinds), std::end(kReplyKinds),
                                     [&](const auto& k) { return words[2] == k.name; });
    if (found == std::end(kReplyKinds)) {
      lines.push_back("bad kind '" + words[2] + "' for garble (xid, ua, rr, dm, i, any, assign)");
      return -1;
    }
    kind = found->control;
  }
  if (verb == "power") {
    ald.powerCycle(now + seconds);
  } else if (verb == "drop") {
    ald.linkClose();
  } else if (verb == "unplug") {
    ald.unplug();
  } else if (verb == "garble") {
    ald.garble(kind, static_cast<unsigned int>(value));
  } else if (verb == "delay") {
    ald.delayNext(static_cast<unsigned int>(value));
  } else if (verb == "address") {
    ald.setAddress(static_cast<uint8_t>(value));
  } else if (verb == "alarm") {
    ald.setAlarm(static_cast<uint8_t>(value));
    lines.push_back("ald " + words[1] + " alarm " + std::to_string(value));
  } else {
    ald.setQuiet(verb == "quiet");
    lines.push_back("ald " + words[1] + (verb == "quiet" ? " quiet" : " awake"));
  }
  return 0;
}
