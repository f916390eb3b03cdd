#ifndef PK_INTERACTION_INTERACTION_MANAGER_H
#define PK_INTERACTION_INTERACTION_MANAGER_H

#include <pthread.h>

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "InteractionLayer/interactionBusInterface.h"
#include "InteractionLayer/interactionInterface.h"
#include "InteractionLayer/interactionMsg.h"
#include "InteractionLayer/interactionMsgManageInterface.h"
#include "utility/appThreadInterface.h"
#include "utility/startGate.h"
#include "utility/thread.h"
#include "utility/threadLock.h"

struct S_HdlcPacket;

// The door between the outside and the bus: takes the endpoints' records off
// its queue one at a time, serves each, and routes the reply back by type.
class InteractionManager : public AppThreadInterface {
 public:
  static constexpr unsigned int kConsoleReplyWaitMs = 500;
  static constexpr unsigned int kMPlaneReplyWaitMs = 1000;
  static constexpr unsigned int kMPlaneFrameBufferSize = 1200;

  static InteractionManager* getInstance();

  // The thread and the endpoints serve and forward nothing until the start-up chain
  // has brought up every singleton that serving needs; its last step opens the gate.
  void openStartGate();

  ~InteractionManager() override;

  std::string getThreadName() override;
  void createThread() override;
  void deleteThread() override;
  void stopServive() override;
  void startServive() override;
  pthread_t getThreadId() override;

  int createInteractionInterface();
  int sendInteractionResponseMsg(unsigned char* msg, unsigned int size);
  // size is the text size the record came with (from offset 4).
  int messageProcessingMPlaneService(S_InteractionMsg* msg, unsigned int size);
  int messageProcessingService(S_InteractionMsg* msg, unsigned int size);

  int getMsgId() const { return _msgId; }

  // The bus of the two services; null puts the communication manager back, whose
  // singleton is then taken anew for every request. Tests and fuzz targets put in
  // a bus that answers at once.
  void setBus(InteractionBusInterface* bus) { _pBus = bus; }
  // Attaches an endpoint and routes the replies of msgType to it; the endpoint it
  // replaces, or null. Construction enters the real ones; a test may enter its own
  // before any request is served, since the interaction thread reads the map unlocked.
  InteractionInterface* registerInteraction(long msgType, InteractionInterface* endpoint);

  static void* interactionManagerThread(void* object);

 private:
  explicit InteractionManager(const std::string& threadName);
  InteractionBusInterface* bus();

  // First, so that it outlasts every thread that waits on it.
  StartGate _startGate;
  InteractionMsgManageInterface* _pMsgManageInterface;
  int _msgId;
  unsigned char* _pMsgBuffer;
  Thread _thread;
  std::string _threadName;
  int _serviceFlag;
  ThreadLock _lock;
  std::map<long, InteractionInterface*> _interactionMap;
  std::atomic<InteractionBusInterface*> _pBus;
  // The endpoints made by createInteractionInterface.
  std::vector<std::unique_ptr<InteractionInterface>> _ownEndpoints;

  static InteractionManager* _pInteractionManager;
};

#endif
