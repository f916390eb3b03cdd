#ifndef PK_INTERACTION_COMMAND_LINE_OBJ_H
#define PK_INTERACTION_COMMAND_LINE_OBJ_H

#include <pthread.h>

#include "InteractionLayer/InteractionObj/CommandLine/command.h"
#include "InteractionLayer/interactionInterface.h"
#include "InteractionLayer/interactionMsg.h"
#include "InteractionLayer/msgCommandManagerInterface.h"
#include "utility/startGate.h"
#include "utility/thread.h"
#include "utility/threadLock.h"

// The console endpoint: reads command lines on standard input, posts their
// frames, and prints the replies.
class CommandLineObj : public InteractionInterface {
 public:
  static constexpr unsigned int kLineBufferSize = 500;
  static constexpr unsigned int kMaxLineLength = 498;

  // Its thread reads no line before startGate opens.
  explicit CommandLineObj(StartGate& startGate);
  ~CommandLineObj() override;
  CommandLineObj(const CommandLineObj&) = delete;
  CommandLineObj& operator=(const CommandLineObj&) = delete;

  void attach(MsgCommandManagerInterface* manager) override;
  // Runs on the interaction thread; the record tells its own length.
  int sendResponseMsg(unsigned char* msg, int length) override;

  int sendCommandMsg(S_InteractionMsg* msg, unsigned int length);
  void createThread();
  void deleteThread();

  static void* commandLineThread(void* object);

 private:
  // One accepted line, split, turned into a frame and posted.
  void handleLine(char* line);
  void setCommand(Command* command);
  Command* getCommand();

  StartGate& _startGate;
  Thread _thread;
  // Guards _pCommand, which the console thread writes and the interaction thread reads.
  ThreadLock _lock;
  unsigned char* _pMsgBuffer;
  MsgCommandManagerInterface* _pMsgCommandManager;
  Command* _pCommand;
};

#endif
