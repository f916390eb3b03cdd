#include "InteractionLayer/InteractionObj/CommandLine/mretV2Command.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "utility/hexText.h"

const S_CommandInfo _mretV2Cmds_table[] = {
    {"calibrate", MretV2Command::__mret_v2_calibrate, "calibrate antenna", "usage: mret_v2 calibrate addr subNo"},
    {"getTilt", MretV2Command::__mret_v2_getTilt, "get tilt", "usage: mret_v2 getTilt addr subNo"},
    {"setTilt", MretV2Command::__mret_v2_setTilt, "set tilt", "usage: mret_v2 setTilt addr subNo tilt"},
    {"getSubNums", MretV2Command::__mret_v2_getNumberOfAntenna, "get subUnit numbers", "usage: mret_v2 getSubNums addr"},
    {nullptr, nullptr, nullptr, nullptr},
};

namespace {

constexpr uint16_t kMaxParameters = 3;

const char* const kAddrError = "input devAddr error";
const char* const kSubNoError = "input subNo error";

bool hasWords(int argc, int needed) {
  if (argc >= needed) return true;
  puts("the command is incomplete!");
  return false;
}

// A number in any base strtoul knows, cut to 8 bits; a conversion error is the only failure.
bool parseByte(const char* word, const char* errorLine, uint8_t* value) {
  errno = 0;
  unsigned long number = strtoul(word, nullptr, 0);
  if (errno != 0) {
    puts(errorLine);
    return false;
  }
  *value = static_cast<uint8_t>(number);
  return true;
}

// Toward zero like a plain cast, but saturating as the target's conversion does
// where a plain cast of an out-of-range value would be undefined.
int32_t toInt32(float value) {
  if (value != value) return 0;
  if (value >= 2147483648.0f) return INT32_MAX;
  if (value <= -2147483648.0f) return INT32_MIN;
  return static_cast<int32_t>(value);
}

// The tilt in tenths of a degree, signed 16 bits.
bool parseTilt(const char* word, int16_t* tenths) {
  errno = 0;
  float tilt = strtof(word, nullptr);
  float scaled = tilt * 10.0f;
  if (errno != 0) {
    puts("input tilt error");
    return false;
  }
  *tenths = static_cast<int16_t>(static_cast<uint16_t>(toInt32(scaled)));
  return true;
}

// Encodes the I-frame of one procedure with its parameters.
int buildFrame(uint8_t address, uint8_t procedure, const uint8_t* parameters, uint16_t count, unsigned char* frame,
               unsigned int* frameLength) {
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  packet.pollFinal = 1;
  // The communication manager stamps the ALD's own N(S) and N(R). Only a frame
  // to 255 with no ALD behind it goes out with these, so they are fixed at 0.
  packet.sendNo = 0;
  packet.receiveNo = 0;
  packet.address = address;
  packet.control = aisg::kIFrame;
  packet.data[0] = procedure;
  packet.data[1] = static_cast<uint8_t>(count & 0xFF);
  packet.data[2] = static_cast<uint8_t>(count >> 8);
  for (uint16_t i = 0; i < count && i < kMaxParameters; ++i) packet.data[aisg::kMessageHeader + i] = parameters[i];
  packet.dataLength = static_cast<uint16_t>(aisg::kMessageHeader + count);
  return HdlcProtocol::encode(&packet, frame, frameLength, hdlc::kStructured);
}

// The address and sub-unit number that a command of `words` words begins with.
bool parseSubUnit(int argc, char** argv, int words, uint8_t* address, uint8_t* subNo) {
  return hasWords(argc, words) && parseByte(argv[0], kAddrError, address) && parseByte(argv[1], kSubNoError, subNo);
}

// A procedure whose only parameter is the sub-unit.
int subUnitFrame(int argc, char** argv, uint8_t procedure, unsigned char* frame, unsigned int* frameLength) {
  uint8_t address = 0;
  uint8_t subNo = 0;
  if (!parseSubUnit(argc, argv, 2, &address, &subNo)) return -1;
  return buildFrame(address, procedure, &subNo, 1, frame, frameLength);
}

// The lines of the two procedures whose reply is a sub-unit and a result.
void printSubUnitResult(uint8_t address, const uint8_t* data, const char* successLine) {
  printf("ald[%d] subNo[%d]:\n", address, data[3]);
  if (data[4] == 0) {
    puts(successLine);
  } else {
    printf("alarm = %d\n", data[4]);
  }
}

}  // namespace

MretV2Command::MretV2Command() : Command(_mretV2Cmds_table) {}

int MretV2Command::__mret_v2_calibrate(int argc, char** argv, unsigned char* frame, unsigned int* frameLength) {
  return subUnitFrame(argc, argv, E_MRET_CALIBRATE, frame, frameLength);
}

int MretV2Command::__mret_v2_getTilt(int argc, char** argv, unsigned char* frame, unsigned int* frameLength) {
  return subUnitFrame(argc, argv, E_MRET_GET_TILT, frame, frameLength);
}

int MretV2Command::__mret_v2_setTilt(int argc, char** argv, unsigned char* frame, unsigned int* frameLength) {
  uint8_t address = 0;
  uint8_t subNo = 0;
  int16_t tenths = 0;
  if (!parseSubUnit(argc, argv, 3, &address, &subNo) || !parseTilt(argv[2], &tenths)) return -1;
  uint16_t wire = static_cast<uint16_t>(tenths);
  const uint8_t parameters[] = {subNo, static_cast<uint8_t>(wire & 0xFF), static_cast<uint8_t>(wire >> 8)};
  return buildFrame(address, E_MRET_SET_TILT, parameters, 3, frame, frameLength);
}

int MretV2Command::__mret_v2_getNumberOfAntenna(int argc, char** argv, unsigned char* frame,
                                                 unsigned int* frameLength) {
  uint8_t address = 0;
  if (!hasWords(argc, 1) || !parseByte(argv[0], kAddrError, &address)) return -1;
  return buildFrame(address, E_MRET_GET_SUB_NUMS, nullptr, 0, frame, frameLength);
}

int MretV2Command::responseAnalyse(unsigned char* frame, unsigned int frameLength) {
  puts("mret_v2 Command response analyse:");
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  if (HdlcProtocol::decode(frame, frameLength, &packet, hdlc::kStructured) != 0) {
    puts("hdlc decode failed!");
    return -1;
  }
  if (!hdlc::isIFrame(packet.control)) {
    puts("reply frame is not I_Frame!");
    return -1;
  }
  const uint8_t* data = packet.data;
  switch (data[0]) {
    case E_MRET_CALIBRATE:
      printSubUnitResult(packet.address, data, "calibrate success");
      break;
    case E_MRET_SET_TILT:
      printSubUnitResult(packet.address, data, "set tilt success");
      break;
    case E_MRET_GET_TILT:
      printf("ald[%d] subNo[%d]:\n", packet.address, data[3]);
      if (data[4] != 0) {
        printf("alarm = %d\n", data[4]);
      } else {
        int16_t tenths = static_cast<int16_t>(data[5] | (data[6] << 8));
        float tilt = static_cast<float>(tenths / 10.0);
        printf("tilt = %f\n", tilt);
      }
      break;
    case E_MRET_GET_SUB_NUMS:
      printf("ald[%d] :\n", packet.address);
      if (data[3] == 0) {
        printf("subUint nums = %d\n", data[4]);
      } else {
        printf("alarm = %d\n", data[4]);
      }
      break;
    default:
      printf("reply data = %s%s\n", hexText(frame, frameLength).c_str(), frameLength > 0 ? " " : "");
      break;
  }
  return 0;
}
