#include "systemServerLayer/timerManage/timerManager.h"

#include <algorithm>
#include <cerrno>

#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"
#include "utility/debugTrace.h"
#include "utility/threadLoop.h"

int timeoutMsgid = -1;

std::atomic<uint32_t> TimerManager::_systemJiffies{0};
std::atomic<uint8_t> TimerManager::_timerServerState{0};
std::atomic<uint32_t> TimerManager::_msgSndCnt{0};
std::atomic<uint32_t> TimerManager::_msgRcvCnt{0};
TimerManagerLock* TimerManager::lock = nullptr;
std::vector<S_timerUnit*> TimerManager::_onceTimingServerVect;
std::vector<S_timerUnit*> TimerManager::_periodicTimingServerVect;
TimerManager* TimerManager::timerManagerInstance = nullptr;

namespace {

constexpr int32_t kTickMsgType = 1;

std::vector<S_timerUnit*>::iterator findServer(std::vector<S_timerUnit*>& units,
                                               TimingServer* server) {
  return std::find_if(units.begin(), units.end(),
                      [server](const S_timerUnit* unit) { return unit->server == server; });
}

// Releases the first unit of server; false when there is none.
bool eraseFirst(std::vector<S_timerUnit*>& units, TimingServer* server) {
  auto it = findServer(units, server);
  if (it == units.end()) return false;
  delete *it;
  units.erase(it);
  return true;
}

void eraseAll(std::vector<S_timerUnit*>& units) {
  for (S_timerUnit* unit : units) delete unit;
  units.clear();
}

}  // namespace

TimerManager* TimerManager::getInstance() {
  if (timerManagerInstance == nullptr) timerManagerInstance = new TimerManager();
  return timerManagerInstance;
}

TimerManager::TimerManager() : _tickThread("execTick"), _pTimer(nullptr) {
  lock = new TimerManagerLock();
  timeoutMsgid = MsgHandlerManager::getInstance()->allocMsgHandler();
  _tickThread.start(execTick, this, TRACE_SITE, "fail to create TimerManager thread\n", E_THREAD_ID_UNTRACED);
  _pTimer = new Timer(kTickMs, timeoutNotify);
  _timerServerState = 0;
}

TimerManager::~TimerManager() {
  // The tick thread walks the units under the lock released here.
  _tickThread.stop();
  delete _pTimer;
  delete lock;
  lock = nullptr;
}

void TimerManager::startup() {
  _pTimer->startTimer();
  _timerServerState = 1;
}

int TimerManager::registerTimingServer(TimingServer* server, E_periodicAttr attr, E_evtType evt,
                                       int ms) {
  (void)evt;
  uint32_t ticks = static_cast<uint32_t>(ms / kTickMs);
  S_timerUnit* unit = new S_timerUnit{ticks, ticks, server};
  lock->acquire();
  if (attr == E_PERIODIC_ONCE) {
    _onceTimingServerVect.push_back(unit);
  } else if (findServer(_periodicTimingServerVect, server) != _periodicTimingServerVect.end()) {
    // A server has one periodic registration; the first duration stands.
    delete unit;
  } else {
    _periodicTimingServerVect.push_back(unit);
  }
  lock->release();
  return 1;
}

int TimerManager::unregisterTimingServer(TimingServer* server) {
  lock->acquire();
  if (!eraseFirst(_onceTimingServerVect, server)) eraseFirst(_periodicTimingServerVect, server);
  lock->release();
  return 1;
}

void TimerManager::unregisterAllTimingServer() {
  lock->acquire();
  eraseAll(_onceTimingServerVect);
  eraseAll(_periodicTimingServerVect);
  lock->release();
}

void TimerManager::pause() { _timerServerState = 0; }

void TimerManager::resume() { _timerServerState = 1; }

uint32_t TimerManager::getSystemJiffies() { return _systemJiffies; }

void TimerManager::timeoutNotify(sigval value) {
  (void)value;
  ++_systemJiffies;
  if (_timerServerState == 0) return;
  uint32_t sent = _msgSndCnt;
  uint32_t taken = _msgRcvCnt;
  if (sent < taken) {
    // The two counters raced apart; start them afresh.
    _msgSndCnt = 0;
    _msgRcvCnt = 0;
  } else if (sent - taken >= kMaxTicksInFlight) {
    // execTick is behind: this tick is dropped and never made up.
    return;
  }
  unsigned char tick[kRecordTypeSize];
  setRecordType(tick, kTickMsgType);
  if (msgcheckAndsnd(timeoutMsgid, tick, 0, 0) < 0) {
    // The queue is over its limits: take one waiting tick out to make room.
    drainQueue(timeoutMsgid, E_DRAIN_TEXT_MSGS);
  }
  ++_msgSndCnt;
}

void TimerManager::takeTick() {
  unsigned char tick[kRecordTypeSize];
  for (;;) {
    if (receiveRecord(timeoutMsgid, tick, 0, TRACE_SITE, kForeignMsgTraceLevel) >= 0) return;
    // A message with text is dropped, and is no tick: the wait goes on.
    if (errno != E2BIG) break;
  }
  if (timeoutMsgid < 0) {
    // Without a tick queue no tick can ever come: the thread parks for good.
    TRACE(1, "TimerManager has no tick queue, timers stop\n");
    parkForever();
  }
  // A failed receive still counts as a tick; the pause keeps a queue that fails on
  // every call from spinning, and paces the timers at about the tick period meanwhile.
  pauseMs(kFailedReceivePauseMs);
}

void TimerManager::walkUnits() {
  for (auto it = _onceTimingServerVect.begin(); it != _onceTimingServerVect.end();) {
    S_timerUnit* unit = *it;
    if (--unit->remainTicks != 0) {
      ++it;
      continue;
    }
    unit->server->tick();
    delete unit;
    it = _onceTimingServerVect.erase(it);
  }
  for (S_timerUnit* unit : _periodicTimingServerVect) {
    if (--unit->remainTicks != 0) continue;
    unit->server->tick();
    unit->remainTicks = unit->reloadTicks;
  }
}

void* TimerManager::execTick(void* object) {
  (void)object;
  TRACE(4, "2020-03 TimerManager:execTick running.........\n");
  for (;;) {
    takeTick();
    ++_msgRcvCnt;
    lock->acquire();
    walkUnits();
    lock->release();
  }
  return nullptr;
}
