#ifndef PK_ALDSIM_ALD_BUS_H
#define PK_ALDSIM_ALD_BUS_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "simAld.h"

// Bytes to put on the bus (a frame, flags included, or noise), with the knobs
// of the ALD that sends them and the word the log shows them with.
struct S_SimReply {
  std::vector<uint8_t> bytes;
  unsigned int delayMs = 0;
  unsigned int splitMs = 0;
  const char* logAs = "TX";  // "TX COLLISION" when several ALDs answered at once, "TX NOISE"
};

struct S_SimAnswer;

// The ALDs of the bus as one secondary side: takes the bytes of one frame from
// the primary and gives back the frames the ALDs answer with, if any.
class AldBus {
 public:
  // `alwaysLinked`: ALDs serve polls and I-frames without a link instead of answering DM.
  AldBus(const std::vector<S_AldConfig>& configs, unsigned int seed, bool alwaysLinked = false);

  // Answers one received frame (flags included). 0 when it decoded, otherwise the
  // codec's negative code; `replies` receives the answers in order.
  int handleFrame(const uint8_t* frame, size_t length, double secondsSinceStart, std::vector<S_SimReply>& replies);

  // One operator command (power, drop, unplug, plug, garble, delay, address,
  // noise, quiet, wake, alarm, list; `aldsim --help`), given `now` seconds after start; `lines`
  // receives its log lines, `out` (if given) the noise it puts on the bus. 0, or
  // -1 with the reason in `lines` and nothing changed.
  int command(const std::string& line, std::vector<std::string>& lines, double now = 0,
              std::vector<S_SimReply>* out = nullptr);

 private:
  // Adds what `ald` answers to `packet` (nothing, or one frame) to `answers`.
  void answer(SimAld& ald, const S_HdlcPacket& packet, double now, std::vector<S_SimAnswer>& answers);
  void answerAddressed(SimAld& ald, const S_HdlcPacket& packet, std::vector<S_SimAnswer>& answers);
  // The ALD group of a scan or assignment reply: UID, device type and maybe the vendor.
  static S_SimAnswer identification(SimAld& ald, uint8_t address, bool withVendor);
  // A frame without data from `ald`, with its N(R).
  static S_SimAnswer makeAnswer(SimAld& ald, uint8_t address, uint8_t control);
  // The frame with the F bit set; `corrupt` spoils the FCS.
  static std::vector<uint8_t> encodeAnswer(S_HdlcPacket packet, bool corrupt);
  // The commands that name an ALD; `words` has the count its usage asks for.
  int aldCommand(const std::vector<std::string>& words, double now, std::vector<std::string>& lines);
  void noise(unsigned long count, std::vector<S_SimReply>* out);

  std::vector<SimAld> _alds;
  std::mt19937 _random;
  bool _alwaysLinked;
};

#endif
