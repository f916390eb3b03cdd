#include "frameSplitter.h"

size_t FrameSplitter::feed(const uint8_t* bytes, size_t length, std::vector<std::vector<uint8_t>>& frames) {
  size_t noise = 0;
  for (size_t i = 0; i < length; ++i) {
    uint8_t byte = bytes[i];
    if (_current.empty()) {
      if (byte == hdlc::kFlag) {
        _current.push_back(byte);
      } else {
        ++noise;
      }
      continue;
    }
    if (byte != hdlc::kFlag) {
      _current.push_back(byte);
      if (_current.size() > kMaxFrameBytes) {
        noise += _current.size();
        _current.clear();
      }
      continue;
    }
    if (_current.size() > 1) {
      _current.push_back(byte);
      frames.push_back(_current);
    }
    _current.assign(1, hdlc::kFlag);
  }
  return noise;
}
