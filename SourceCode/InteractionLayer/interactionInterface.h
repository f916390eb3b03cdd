#ifndef PK_INTERACTION_INTERACTION_INTERFACE_H
#define PK_INTERACTION_INTERACTION_INTERFACE_H

#include "InteractionLayer/msgCommandManagerInterface.h"

// An endpoint: a source of requests that takes back their replies.
class InteractionInterface {
 public:
  virtual ~InteractionInterface() = default;
  virtual void attach(MsgCommandManagerInterface* manager) = 0;
  // Called on the interaction thread with a finished reply record; size counts
  // from offset 0 of the record. The record is gone once this returns.
  virtual int sendResponseMsg(unsigned char* msg, int size) = 0;
};

#endif
