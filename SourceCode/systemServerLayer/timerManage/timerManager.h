#ifndef PK_TIMERMANAGE_TIMER_MANAGER_H
#define PK_TIMERMANAGE_TIMER_MANAGER_H

#include <signal.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "systemServerLayer/timerManage/timer.h"
#include "systemServerLayer/timerManage/timerManagerLock.h"
#include "systemServerLayer/timerManage/timingServer.h"
#include "utility/thread.h"

// How a registration behaves: 1 runs once, every other value is periodic.
enum E_periodicAttr { E_PERIODIC_ONCE = 1, E_PERIODIC_REPEAT = 2 };
// Passed through the interface and not stored.
enum E_evtType { E_EVT_TIMEOUT = 1 };

// One registration, owned by the timer service.
struct S_timerUnit {
  uint32_t remainTicks;
  uint32_t reloadTicks;
  TimingServer* server;
};

// Id of the tick queue.
extern int timeoutMsgid;

// Software timers on one 100 ms POSIX interval timer. The notification only posts
// a tick on the tick queue; the thread execTick takes it and walks the clients.
class TimerManager {
 public:
  static constexpr int kTickMs = 100;
  // At most this many ticks are sent and not yet taken.
  static constexpr uint32_t kMaxTicksInFlight = 5;

  static TimerManager* getInstance();
  ~TimerManager();

  // Starts the tick timer, then lets the ticks through.
  void startup();
  // ms is cut down to whole ticks; always 1.
  int registerTimingServer(TimingServer* server, E_periodicAttr attr, E_evtType evt, int ms);
  // Removes the first registration of server, one-shots first; always 1.
  int unregisterTimingServer(TimingServer* server);
  void unregisterAllTimingServer();
  void pause();
  void resume();

  // Timer expiries since startup, also those while paused.
  static uint32_t getSystemJiffies();

  static void timeoutNotify(sigval value);
  static void* execTick(void* object);

 private:
  TimerManager();

  // Waits for the next tick on the tick queue.
  static void takeTick();
  // Runs one tick of both lists; the caller holds the lock.
  static void walkUnits();

  Thread _tickThread;
  Timer* _pTimer;

  // Shared between the notification threads, execTick and callers: atomic words.
  static std::atomic<uint32_t> _systemJiffies;
  static std::atomic<uint8_t> _timerServerState;
  static std::atomic<uint32_t> _msgSndCnt;
  static std::atomic<uint32_t> _msgRcvCnt;
  static TimerManagerLock* lock;
  static std::vector<S_timerUnit*> _onceTimingServerVect;
  static std::vector<S_timerUnit*> _periodicTimingServerVect;
  static TimerManager* timerManagerInstance;
};

#endif
