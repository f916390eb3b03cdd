#ifndef PK_ALDSIM_FRAME_SPLITTER_H
#define PK_ALDSIM_FRAME_SPLITTER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"

// Cuts the byte stream from the primary into frames (7E ... 7E). A closing flag
// may also open the next frame, empty frames are skipped, and bytes before an
// opening flag or in an overlong frame are noise.
class FrameSplitter {
 public:
  // Frames completed by `bytes` go to `frames`, flags included; returns the noise count.
  size_t feed(const uint8_t* bytes, size_t length, std::vector<std::vector<uint8_t>>& frames);

 private:
  // Twice the longest content: every byte stuffed.
  static constexpr size_t kMaxFrameBytes = 2 * hdlc::kMaxContent + 2;

  std::vector<uint8_t> _current;  // empty: waiting for an opening flag
};

#endif
