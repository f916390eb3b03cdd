#ifndef PK_INTERACTION_INTERACTION_MSG_MANAGE_INTERFACE_H
#define PK_INTERACTION_INTERACTION_MSG_MANAGE_INTERFACE_H

#include "InteractionLayer/msgCommandManagerInterface.h"

// Posts the endpoints' records on the interaction manager's queue.
class InteractionMsgManageInterface : public MsgCommandManagerInterface {
 public:
  // msgId: the interaction manager's queue.
  explicit InteractionMsgManageInterface(int msgId) : _msgId(msgId) {}
  int sendMsgCommandManager(unsigned char* msg, int size) override;

 private:
  int _msgId;
};

#endif
