#ifndef PK_AISGAPPLAYER_STATUS_SHARE_MEM_H
#define PK_AISGAPPLAYER_STATUS_SHARE_MEM_H

#include <cstddef>
#include <cstdint>

// The status block that the service shows to the other processes of the board in
// System V shared memory: five 32-bit words in the byte order of the machine.
struct S_StatusShareMem {
  uint32_t runStep;    // E_AppRunStep of the cycle that runs
  uint32_t tickCount;  // one more per cycle: the life counter
  uint32_t rxAlarm;    // 1: nothing received for 30 checks or more
  uint32_t txAlarm;    // 1: nothing sent for 30 checks or more
  uint32_t spare;      // never read or written by the service
};
static_assert(sizeof(S_StatusShareMem) == 20, "the status block is five 32-bit words");
static_assert(offsetof(S_StatusShareMem, runStep) == 0, "runStep at 0");
static_assert(offsetof(S_StatusShareMem, tickCount) == 4, "tickCount at 4");
static_assert(offsetof(S_StatusShareMem, rxAlarm) == 8, "rxAlarm at 8");
static_assert(offsetof(S_StatusShareMem, txAlarm) == 12, "txAlarm at 12");
static_assert(offsetof(S_StatusShareMem, spare) == 16, "spare at 16");

#endif
