#include "serviceEntry.h"

#include "InteractionLayer/interactionManager.h"
#include "aisgAppLayer/aisgAppManager.h"
#include "systemServerLayer/timerManage/timerManager.h"

// Each singleton's constructor starts its threads; the order of the calls is the
// order of construction and so of the internal queue keys.
void startupChain() {
  InteractionManager::getInstance();
  AisgAppManager::getInstance();
  // The 100 ms timer runs only from here on, so no tick comes before the managers are complete.
  TimerManager::getInstance()->startup();
  // Last: the endpoints forward nothing before every singleton above is complete.
  InteractionManager::getInstance()->openStartGate();
}
