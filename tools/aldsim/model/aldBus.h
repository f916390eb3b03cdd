#ifndef PK_ALDSIM_ALD_BUS_H
#define PK_ALDSIM_ALD_BUS_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "simAld.h"

// One frame to put on the bus, with the knobs of the ALD that sends it.
struct S_SimReply {
  std::vector<uint8_t> bytes;  // the whole frame, flags included
  unsigned int delayMs = 0;
  unsigned int splitMs = 0;
  bool collision = false;
};

struct S_SimAnswer;

// The ALDs of the bus as one secondary side: takes the bytes of one frame from
// the primary and gives back the frames the ALDs answer with, if any.
class AldBus {
 public:
  AldBus(const std::vector<S_AldConfig>& configs, unsigned int seed);

  // Answers one received frame (flags included). 0 when it decoded, otherwise the
  // codec's negative code; `replies` receives the answers in order.
  int handleFrame(const uint8_t* frame, size_t length, double secondsSinceStart, std::vector<S_SimReply>& replies);

  // One operator command (quiet N, wake N, alarm N CODE, list); `lines` receives the answer.
  void command(const std::string& line, std::vector<std::string>& lines);

 private:
  // Adds what `ald` answers to `packet` (nothing, or one frame) to `answers`.
  void answer(SimAld& ald, const S_HdlcPacket& packet, double now, std::vector<S_SimAnswer>& answers);
  void answerAddressed(SimAld& ald, const S_HdlcPacket& packet, std::vector<S_SimAnswer>& answers);
  // The ALD group of a scan or assignment reply: UID, device type and maybe the vendor.
  static S_SimAnswer identification(const SimAld& ald, uint8_t address, bool withVendor);
  // A frame without data from `ald`, with its N(R).
  static S_SimAnswer makeAnswer(const SimAld& ald, uint8_t address, uint8_t control);
  // Encodes with the F bit set; `corrupt` spoils the FCS.
  static S_SimReply encodeAnswer(S_SimAnswer answer, bool corrupt);
  SimAld* aldByNumber(const std::string& word, std::vector<std::string>& lines);

  std::vector<SimAld> _alds;
  std::mt19937 _random;
};

#endif
