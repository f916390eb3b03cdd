#ifndef PK_ALDSIM_SIM_ALD_H
#define PK_ALDSIM_SIM_ALD_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "aldDescription.h"

// One simulated ALD: its identity and fault knobs, its HDLC secondary state
// (address, link, V(S), V(R)) and the tilts of its sub-units.
class SimAld {
 public:
  explicit SimAld(const S_AldConfig& config);

  const S_AldConfig& config() const { return _config; }
  uint8_t address() const { return _address; }
  bool linkUp() const { return _linkUp; }
  uint8_t receiveNo() const { return _vr; }

  // Counts a frame meant for this ALD; false when the ALD keeps silent about it
  // (quiet, unplugged, powered off, inside a silentAt window, or past silentFrom)
  // and must ignore it.
  bool takeFrame(double secondsSinceStart);
  bool isQuiet() const { return _quiet; }
  void setQuiet(bool quiet) { _quiet = quiet; }
  void setAlarm(uint8_t code) { _config.alarm = code; }

  bool hasUid(const uint8_t* uid, size_t length) const;
  // Bytes beyond the UID's end count as 0; mask bytes beyond the mask as "don't care".
  bool matchesProbe(const uint8_t* uid, size_t uidLength, const uint8_t* mask, size_t maskLength) const;

  void forget();
  // Off until `until` (seconds since start), then back with no address and no link.
  void powerCycle(double until);
  void unplug() { _unplugged = true; }
  // The next `count` replies of kind `control` (a value of aisgFrame.h, kAnyReply, or kAssignReply for
  // the XID that answers an address assignment) carry a wrong FCS.
  static constexpr int kAnyReply = -1;
  static constexpr int kAssignReply = -2;
  void garble(int control, unsigned int count);
  // True when the reply of kind `control` about to go out (`assignment`: it answers an assignment) is one of them.
  bool takeGarble(uint8_t control, bool assignment);
  void delayNext(unsigned int ms) { _delayOnceMs = ms; }
  // The milliseconds the next reply is late: the ALD's own delay and a one-off delay, which is used up.
  unsigned int takeDelay();
  void setAddress(uint8_t address) { _address = address; }
  // SNRM: the link comes up with both sequence numbers at 0.
  void linkOpen();
  void linkClose() { _linkUp = false; }

  // True when the I-frame numbered `sendNo` is the next expected; then V(R) moves on.
  bool acceptIFrame(uint8_t sendNo);
  // V(S) for the next I-frame sent, which moves V(S) on.
  uint8_t takeSendNo();

  // Answers one layer-7 message (procedure, count low, count high, parameters).
  void answerProcedure(const uint8_t* message, size_t length, std::vector<uint8_t>& reply);

 private:
  uint8_t subUnitResult(uint8_t subNo) const;

  S_AldConfig _config;
  std::vector<int16_t> _tilts;
  uint8_t _address = 0;
  bool _linkUp = false;
  uint8_t _vs = 0;
  uint8_t _vr = 0;
  bool _quiet = false;
  unsigned int _frameCount = 0;
  bool _unplugged = false;
  double _offUntil = 0;
  int _garbleKind = kAnyReply;
  unsigned int _garbleCount = 0;
  unsigned int _delayOnceMs = 0;
};

#endif
