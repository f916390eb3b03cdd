#include "simAld.h"

#include "aisgAppLayer/commManager/aisgFrame.h"

#include <cstring>

namespace {
constexpr uint8_t kResultBadSubUnit = 0x19;
constexpr uint8_t kResultUnknownProcedure = 0x0B;
}  // namespace

SimAld::SimAld(const S_AldConfig& config) : _config(config), _tilts(config.subUnits, config.tilt) {}

bool SimAld::takeFrame(double secondsSinceStart) {
  if (_quiet || _unplugged || secondsSinceStart < _offUntil) return false;
  for (const S_SilentWindow& window : _config.silentAt) {
    if (secondsSinceStart >= window.from && secondsSinceStart < window.to) return false;
  }
  if (_config.silentFrom == 0) return true;
  // Once silent for good the counter has done its job; stop it so it cannot wrap.
  if (_frameCount < _config.silentFrom) ++_frameCount;
  return _frameCount < _config.silentFrom;
}

bool SimAld::hasUid(const uint8_t* uid, size_t length) const {
  return length == _config.uid.size() && memcmp(uid, _config.uid.data(), length) == 0;
}

bool SimAld::matchesProbe(const uint8_t* uid, size_t uidLength, const uint8_t* mask, size_t maskLength) const {
  for (size_t i = 0; i < maskLength; ++i) {
    uint8_t own = i < _config.uid.size() ? _config.uid[i] : 0;
    uint8_t wanted = i < uidLength ? uid[i] : 0;
    if ((own & mask[i]) != (wanted & mask[i])) return false;
  }
  return true;
}

void SimAld::forget() {
  _address = 0;
  _linkUp = false;
}

void SimAld::powerCycle(double until) {
  // Nothing is heard from it until then, so it may lose its state at once.
  forget();
  _offUntil = until;
}

void SimAld::garble(int control, unsigned int count) {
  _garbleKind = control;
  _garbleCount = count;
}

bool SimAld::takeGarble(uint8_t control, bool assignment) {
  const bool kind = _garbleKind == kAnyReply || _garbleKind == control || (_garbleKind == kAssignReply && assignment);
  if (_garbleCount == 0 || !kind) return false;
  --_garbleCount;
  return true;
}

unsigned int SimAld::takeDelay() {
  unsigned int ms = _config.delayMs + _delayOnceMs;
  _delayOnceMs = 0;
  return ms;
}

void SimAld::linkOpen() {
  _linkUp = true;
  _vs = 0;
  _vr = 0;
}

bool SimAld::acceptIFrame(uint8_t sendNo) {
  if (sendNo != _vr) return false;
  _vr = (_vr + 1) & 7;
  return true;
}

uint8_t SimAld::takeSendNo() {
  uint8_t sendNo = _vs;
  _vs = (_vs + 1) & 7;
  return sendNo;
}

uint8_t SimAld::subUnitResult(uint8_t subNo) const {
  if (subNo < 1 || subNo > _config.subUnits) return kResultBadSubUnit;
  return _config.alarm;
}

void SimAld::answerProcedure(const uint8_t* message, size_t length, std::vector<uint8_t>& reply) {
  // Missing bytes of a short message read as 0, which gives a bad sub-unit.
  auto byteAt = [&](size_t i) -> uint8_t { return i < length ? message[i] : 0; };
  uint8_t code = byteAt(0);
  uint8_t subNo = byteAt(3);
  uint8_t result = subUnitResult(subNo);
  switch (code) {
    case E_MRET_CALIBRATE:
      if (result == 0) _tilts[subNo - 1] = 0;
      reply = {code, 0x02, 0x00, subNo, result};
      break;
    case E_MRET_SET_TILT:
      if (result == 0) _tilts[subNo - 1] = static_cast<int16_t>(byteAt(4) | (byteAt(5) << 8));
      reply = {code, 0x02, 0x00, subNo, result};
      break;
    case E_MRET_GET_TILT:
      if (result != 0) {
        reply = {code, 0x02, 0x00, subNo, result};
      } else {
        uint16_t tilt = static_cast<uint16_t>(_tilts[subNo - 1]);
        reply = {code, 0x04, 0x00, subNo, 0x00, static_cast<uint8_t>(tilt & 0xFF), static_cast<uint8_t>(tilt >> 8)};
      }
      break;
    case E_MRET_GET_SUB_NUMS:
      if (_config.alarm != 0) {
        reply = {code, 0x02, 0x00, 0x01, _config.alarm};
      } else {
        reply = {code, 0x02, 0x00, 0x00, static_cast<uint8_t>(_config.subUnits)};
      }
      break;
    default:
      reply = {code, 0x01, 0x00, kResultUnknownProcedure};
      break;
  }
}
