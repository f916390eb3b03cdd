#ifndef PK_AISGAPPLAYER_AISG_APP_MANAGER_H
#define PK_AISGAPPLAYER_AISG_APP_MANAGER_H

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "aisgAppLayer/statusShareMem.h"
#include "systemServerLayer/timerManage/timingServer.h"
#include "utility/appThreadInterface.h"
#include "utility/thread.h"
#include "utility/threadLock.h"

enum E_AppRunStep {
  E_RUN_STEP_DEVICE_SCAN = 1,
  E_RUN_STEP_GET_BASE_INFO = 2,
  E_RUN_STEP_ALDS_POLL = 3,
  E_RUN_STEP_IDLE = 4,
};

// The main loop: once per timer cycle its thread takes one run step (scan, base
// info, poll or idle), then checks the bus alarms, and shows all of it in the
// status block.
class AisgAppManager : public AppThreadInterface, public TimingServer {
 public:
  static constexpr int kCycleMs = 1000;
  static constexpr unsigned char kMaxUidLength = 19;
  // An alarm word rises at this many checks in a row without a change of its count.
  static constexpr unsigned int kAlarmStillChecks = 30;

  static AisgAppManager* getInstance();
  ~AisgAppManager() override;

  // AppThreadInterface
  std::string getThreadName() override;
  void createThread() override;
  void deleteThread() override;
  void stopServive() override;
  void startServive() override;
  pthread_t getThreadId() override;

  // TimingServer: on the timer service's thread, under its lock; only posts.
  void tick() override;

  int aldDeviceScan();
  // A step of the discovery of every layer-2 device (ALDs plugged in, or back
  // without their address, since the scan); 1 while a search goes on.
  int aldsDiscover();
  int getAldsBaseInfo();
  int createAldsFromFile();
  int aldsPoll();
  E_AppRunStep getRunStep();
  int rxAlarmCheck();
  int txAlarmCheck();

  // One alarm check of a byte count against the count seen at its last change.
  // True when the count stood still; the alarm word then rises at the 30th still
  // check in a row, and any change clears it.
  static bool octetStillCheck(unsigned int octets, unsigned int& lastOctets,
                              unsigned int& stillCount, uint32_t& alarmWord);

  static void* aisgAppManagerThread(void* object);

 private:
  // Posts again, once per cycle, a tick whose post was refused (see tick()).
  class LostTickRetry : public TimingServer {
   public:
    explicit LostTickRetry(AisgAppManager& owner) : _owner(owner) {}
    void tick() override { _owner.retryLostTick(); }

   private:
    AisgAppManager& _owner;
  };

  explicit AisgAppManager(const std::string& threadName);

  void attachStatusBlock();
  void serve();
  void runCycle();
  E_AppRunStep runOneStep(E_AppRunStep step);
  void setRunStep(E_AppRunStep step);
  int postTick();
  void armNextTick();
  void retryLostTick();

  int _msgId;
  Thread _thread;
  std::string _threadName;
  int _serviceFlag;
  ThreadLock _lock;
  int _runStep;
  S_StatusShareMem* _pShareMem;
  unsigned int _rxStillCount;
  unsigned int _txStillCount;
  unsigned int _lastRxOctets;
  unsigned int _lastTxOctets;

  // The tick chain: a one-shot unit is registered, or its tick is lost (see tick()).
  std::atomic<bool> _armed;
  std::atomic<bool> _tickLost;
  LostTickRetry _lostTickRetry;

  // The poll step runs a discovery once per period (seconds; none when 0 or less),
  // which starts anew with each scan and each discovery.
  int _discoveryPeriodS;
  std::chrono::steady_clock::time_point _discoveryPeriodStart;
  bool _discovering;  // a search is under way: it takes its next step in the next cycle

  static AisgAppManager* _pAisgAppManager;
};

#endif
