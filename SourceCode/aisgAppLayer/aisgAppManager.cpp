#include "aisgAppLayer/aisgAppManager.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>

#include "aisgAppLayer/commManager/aisgCommManager.h"
#include "aisgAppLayer/commManager/aisgFrame.h"
#include "aisgAppLayer/deviceManager/aldDeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceContainer.h"
#include "aisgAppLayer/deviceManager/layer2Device/layer2DeviceFactory.h"
#include "common/configFile.h"
#include "serviceEntry.h"
#include "systemServerLayer/msgAlloc/msgAlloc.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "systemServerLayer/msgAlloc/queueLoop.h"
#include "systemServerLayer/timerManage/timerManager.h"
#include "utility/debugTrace.h"
#include "utility/threadLoop.h"

AisgAppManager* AisgAppManager::_pAisgAppManager = nullptr;

namespace {

constexpr int32_t kTickMsgType = 1;
constexpr unsigned char kAisgVersion2 = 2;

// Visits each layer-2 device. The walk uses this thread's own cursor, so the
// console's device listing on another thread does not disturb it.
template <typename Visit>
void forEachLayer2Device(Visit visit) {
  Layer2DeviceContainer* devices = Layer2DeviceContainer::getInstance();
  for (Layer2Device* device = devices->getBeginLayer2DeviceObj(); device != nullptr && !devices->isEnd();
       device = devices->getNextLayer2DeviceObj()) {
    visit(*device);
  }
}

}  // namespace

AisgAppManager* AisgAppManager::getInstance() {
  if (_pAisgAppManager == nullptr) _pAisgAppManager = new AisgAppManager("aisgAppManagerThread");
  return _pAisgAppManager;
}

AisgAppManager::AisgAppManager(const std::string& threadName)
    : _msgId(-1),
      _thread("aisgAppManagerThread"),
      _threadName(threadName),
      _serviceFlag(0),
      _runStep(E_RUN_STEP_DEVICE_SCAN),
      _pShareMem(nullptr),
      _rxStillCount(0),
      _txStillCount(0),
      _lastRxOctets(0),
      _lastTxOctets(0),
      _armed(false),
      _tickLost(false),
      _lostTickRetry(*this),
      _discoveryPeriodS(ConfigFile::getInstance()->_discoveryPeriod),
      _discoveryPeriodStart(),
      _discovering(false) {
  // The own queue comes before the communication manager's, so it has the lower key.
  _msgId = MsgHandlerManager::getInstance()->allocMsgHandler();
  AisgCommManager* comm = AisgCommManager::getInstance();
  Layer2Device* layer2 = Layer2DeviceFactory::creatLayer2DeviceObj(kAisgVersion2, comm);
  if (layer2 != nullptr) Layer2DeviceContainer::getInstance()->attach(layer2);
  attachStatusBlock();
  // The first link of the tick chain, set before the thread can take a message and arm
  // one of its own; the timer counts only after TimerManager::startup.
  _armed = true;
  createThread();
  TimerManager* timers = TimerManager::getInstance();
  timers->registerTimingServer(this, E_PERIODIC_ONCE, E_EVT_TIMEOUT, kCycleMs);
  timers->registerTimingServer(&_lostTickRetry, E_PERIODIC_REPEAT, E_EVT_TIMEOUT, kCycleMs);
}

AisgAppManager::~AisgAppManager() {
  deleteThread();
  // Nothing may call back into a released manager.
  TimerManager::getInstance()->unregisterTimingServer(this);
  TimerManager::getInstance()->unregisterTimingServer(&_lostTickRetry);
}

// Without the block (shmget or shmat refused, e.g. a block of this key exists with a
// smaller size) the service runs on and leaves the block alone: _pShareMem stays null.
void AisgAppManager::attachStatusBlock() {
  int key = ConfigFile::getInstance()->_shareMemKey;
  int id = shmget(key, sizeof(S_StatusShareMem), IPC_CREAT | 0666);
  if (id < 0) {
    TRACE(1, "status block 0x%x not available (shmget errno=%d), run without it\n", key, errno);
    return;
  }
  void* block = shmat(id, nullptr, 0);
  if (block == reinterpret_cast<void*>(-1)) {
    TRACE(1, "status block 0x%x not available (shmat errno=%d), run without it\n", key, errno);
    return;
  }
  _pShareMem = static_cast<S_StatusShareMem*>(block);
  _pShareMem->rxAlarm = 0;
  _pShareMem->txAlarm = 0;
  _pShareMem->tickCount = 0;
  _pShareMem->runStep = E_RUN_STEP_DEVICE_SCAN;
}

std::string AisgAppManager::getThreadName() { return _threadName; }

void AisgAppManager::createThread() {
  _thread.start(aisgAppManagerThread, this, TRACE_SITE, "fail to create AisgAppManager thread!\n",
                E_THREAD_ID_TRACED);
}

// Joined rather than detached: the thread works on this object.
void AisgAppManager::deleteThread() { _thread.stop(); }

void AisgAppManager::stopServive() { _serviceFlag = 0; }

void AisgAppManager::startServive() { _serviceFlag = 1; }

pthread_t AisgAppManager::getThreadId() { return _thread.getThreadId(); }

E_AppRunStep AisgAppManager::getRunStep() {
  ThreadLockGuard guard(_lock);
  return static_cast<E_AppRunStep>(_runStep);
}

void AisgAppManager::setRunStep(E_AppRunStep step) {
  ThreadLockGuard guard(_lock);
  _runStep = step;
}

// The tick chain. It must neither die nor double. It is carried at any moment by a
// registered one-shot unit (_armed), by a tick message on the queue or in the thread's
// hands, or by a lost tick (_tickLost), and each hand-over passes it on:
// - tick() takes it from the unit (which the timer service drops right after, still
//   under its lock) and turns it into a message, or, when the post is refused, into a
//   lost tick;
// - LostTickRetry, a periodic unit of its own, turns a lost tick into a message as soon
//   as the queue takes it again, so a refused post delays a cycle but never ends the
//   chain;
// - the thread turns a message into a new unit after its step (armNextTick). Arming is
//   skipped while _armed is set, so a surplus message (one that another process put on
//   the queue) gives an extra cycle but never a second unit.
// A failed receive carries nothing and arms nothing: the thread pauses and waits again.
// tick() and LostTickRetry::tick() both run on the timer service's thread, one after
// the other, so a lost tick is never posted twice.
void AisgAppManager::tick() {
  _armed = false;
  if (postTick() != 0) _tickLost = true;
  TRACE(4, "AisgAppManager::tick() v2\n");
}

void AisgAppManager::retryLostTick() {
  if (_tickLost.exchange(false) && postTick() != 0) _tickLost = true;
}

int AisgAppManager::postTick() {
  unsigned char message[kRecordTypeSize];
  setRecordType(message, kTickMsgType);
  return msgcheckAndsnd(_msgId, message, 0, 0) == 0 ? 0 : -1;
}

void AisgAppManager::armNextTick() {
  if (_armed.exchange(true)) return;
  TimerManager::getInstance()->registerTimingServer(this, E_PERIODIC_ONCE, E_EVT_TIMEOUT,
                                                    kCycleMs);
}

void* AisgAppManager::aisgAppManagerThread(void* object) {
  // The singleton pointer is not set yet when the thread starts: work on the argument.
  static_cast<AisgAppManager*>(object)->serve();
  return nullptr;
}

void AisgAppManager::serve() {
  setRunStep(selfCtrlEnable == 1 ? E_RUN_STEP_DEVICE_SCAN : E_RUN_STEP_IDLE);
  TRACE(3, "aisgAppManagerThread start");
  unsigned char message[kRecordTypeSize];
  for (;;) {
    TRACE(4, "aisgAppManagerThread v3 wait msg = %d!\n", _msgId);
    ssize_t length = receiveOrPause(_msgId, message, 0, TRACE_SITE, kForeignMsgTraceLevel);
    if (length < 0) {
      // Without a queue no tick can ever come.
      if (_msgId < 0) parkForever();
      continue;
    }
    TRACE(4, "aisgAppManagerThread receive msg -- length = %d , _msgType=%d\n",
          static_cast<int>(length), recordType(message));
    runCycle();
    armNextTick();
  }
}

void AisgAppManager::runCycle() {
  // Only this thread writes _runStep, so it reads it without the lock.
  E_AppRunStep step = static_cast<E_AppRunStep>(_runStep);
  if (_pShareMem != nullptr) {
    ++_pShareMem->tickCount;
    _pShareMem->runStep = step;
  }
  setRunStep(runOneStep(step));
  rxAlarmCheck();
  txAlarmCheck();
}

E_AppRunStep AisgAppManager::runOneStep(E_AppRunStep step) {
  switch (step) {
    case E_RUN_STEP_DEVICE_SCAN:
      if (aldDeviceScan() != 0) return E_RUN_STEP_DEVICE_SCAN;
      TRACE(3, "device scan success, then go to get base info.\n");
      _discoveryPeriodStart = std::chrono::steady_clock::now();
      return E_RUN_STEP_GET_BASE_INFO;
    case E_RUN_STEP_GET_BASE_INFO:
      TRACE(3, "get base info start.\n");
      getAldsBaseInfo();
      return E_RUN_STEP_ALDS_POLL;
    case E_RUN_STEP_ALDS_POLL:
      if (aldsPoll() != 0) {
        _discovering = false;  // the scan starts every search afresh
        return E_RUN_STEP_DEVICE_SCAN;
      }
      // A search takes a step in every cycle until it is done; the period counts from its end.
      if (_discovering || (_discoveryPeriodS > 0 && std::chrono::steady_clock::now() - _discoveryPeriodStart >=
                                                        std::chrono::seconds(_discoveryPeriodS))) {
        _discovering = aldsDiscover() != 0;
        if (!_discovering) _discoveryPeriodStart = std::chrono::steady_clock::now();
      }
      return E_RUN_STEP_ALDS_POLL;
    default:
      return step;
  }
}

int AisgAppManager::aldDeviceScan() {
  unsigned char total = 0;
  forEachLayer2Device([&total](Layer2Device& device) {
    unsigned char count = 0;
    if (device.deviceScan(kMaxUidLength, count) != 0) return;
    total = static_cast<unsigned char>(total + count);
    TRACE(3, "Aisg V%d scan device numbers = %d\n", device.aisgVersion, count);
    TRACE(3, "scan device total numbers = %d\n", total);
  });
  return total != 0 ? 0 : -1;
}

int AisgAppManager::aldsDiscover() {
  int searching = 0;
  forEachLayer2Device([&searching](Layer2Device& device) {
    unsigned char count = 0;
    if (device.deviceDiscover(kMaxUidLength, count) != 0) searching = 1;
  });
  return searching;
}

int AisgAppManager::getAldsBaseInfo() {
  TRACE(3, "getAldsBaseInfo() start\n");
  return 0;
}

int AisgAppManager::createAldsFromFile() {
  TRACE(3, "createAldsFromFile() start\n");
  return -1;
}

// The walk uses this thread's own cursor, as forEachLayer2Device's does.
int AisgAppManager::aldsPoll() {
  AldDeviceContainer* alds = AldDeviceContainer::getInstance();
  TRACE(4, "aldsPoll() start\n");
  TRACE(4, "aldsPoll() devNums = %d\n", static_cast<int>(alds->getAldDeviceNums()));
  for (AldDevice* ald = alds->getBeginAldDeviceObj(); ald != nullptr && !alds->isEnd();
       ald = alds->getNextAldDeviceObj()) {
    TRACE(4, "ald aisg ver = %d\n", ald->aisgVersion);
    Layer2Device* layer2 = Layer2DeviceContainer::getInstance()->findLayer2DeviceObj(ald->aisgVersion);
    if (layer2 == nullptr) {
      TRACE(4, "layer2 dev is null\n");
      continue;
    }
    TRACE(4, "dev[%d] status=%d\n", ald->address, ald->getStatus());
    if (ald->getStatus() == LOST) return -1;
    if (ald->getStatus() == RUNNING) {
      int polled = layer2->devicePoll(ald->address);
      if (polled == E_EXCHANGE_DISCONNECTED_MODE) {
        // The ALD is there but has lost its link (reset, or power-cycled and given its
        // address again): it answers nothing but DM until it gets an SNRM.
        TRACE(2, "dev[%d] answered the poll with DM, SNRM follows\n", ald->address);
        polled = layer2->openLink(*ald);
      }
      if (polled == 0) {
        ald->clearFailedCount();
      } else {
        ald->addFailedCount();
      }
    }
    // Also right after the fifth failed poll of this pass. The address alone is no
    // link: an ALD that lost its address lost its link with it, and answers DM until
    // an SNRM. When that fails the assignment counts as failed, so two ALDs on one
    // address, whose UAs collide, end LOST and a new scan parts them.
    if (ald->getStatus() == ADDRESSED) {
      S_AldBaseInfo info = ald->baseInfo;
      if (layer2->addressAssign(&info, ald->address) != 0 || layer2->openLink(*ald) != 0) {
        ald->addAddressAissgnRetryCount();
      }
    }
  }
  TRACE(4, "aldsPoll() end\n");
  return 0;
}

bool AisgAppManager::octetStillCheck(unsigned int octets, unsigned int& lastOctets,
                                     unsigned int& stillCount, uint32_t& alarmWord) {
  if (octets != lastOctets) {
    lastOctets = octets;
    stillCount = 0;
    alarmWord = 0;
    return false;
  }
  if (++stillCount >= kAlarmStillChecks) {
    stillCount = kAlarmStillChecks;
    alarmWord = 1;
  }
  return true;
}

int AisgAppManager::rxAlarmCheck() {
  if (_pShareMem == nullptr) {
    TRACE(1, "_pShareMem is NULL.\n");
    return -1;
  }
  unsigned int octets = AisgCommManager::getInstance()->getReceivedOctetsCount();
  if (octetStillCheck(octets, _lastRxOctets, _rxStillCount, _pShareMem->rxAlarm)) {
    TRACE(3, "Alarm: alway not receive data.\n");
  }
  return 0;
}

int AisgAppManager::txAlarmCheck() {
  if (_pShareMem == nullptr) {
    TRACE(1, "_pShareMem is NULL.\n");
    return -1;
  }
  unsigned int octets = AisgCommManager::getInstance()->getSendOctetsCount();
  if (octetStillCheck(octets, _lastTxOctets, _txStillCount, _pShareMem->txAlarm)) {
    TRACE(3, "Alarm: alway not send data.\n");
  }
  return 0;
}
