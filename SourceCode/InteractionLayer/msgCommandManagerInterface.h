#ifndef PK_INTERACTION_MSG_COMMAND_MANAGER_INTERFACE_H
#define PK_INTERACTION_MSG_COMMAND_MANAGER_INTERFACE_H

// The way up from an endpoint to the interaction manager.
class MsgCommandManagerInterface {
 public:
  virtual ~MsgCommandManagerInterface() = default;
  // Posts a record; size is its queue text size. The result of the queue send.
  virtual int sendMsgCommandManager(unsigned char* msg, int size) = 0;
};

#endif
