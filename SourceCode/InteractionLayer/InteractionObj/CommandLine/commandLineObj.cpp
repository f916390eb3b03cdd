#include "InteractionLayer/InteractionObj/CommandLine/commandLineObj.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "InteractionLayer/InteractionObj/CommandLine/commandFactory.h"
#include "InteractionLayer/InteractionObj/CommandLine/commandSplit.h"
#include "systemServerLayer/msgAlloc/msgQueue.h"
#include "utility/debugTrace.h"
#include "utility/threadLoop.h"

namespace {

enum E_LineRead { E_LINE_READ, E_LINE_TOO_LONG, E_LINE_INPUT_END };

// The console's output shares a terminal with the other thread's lines, and a
// prompt has no line end: each piece goes out at once.
void print(const char* text) {
  fputs(text, stdout);
  fflush(stdout);
}

// Reads one line of at most kMaxLineLength characters without its line feed.
// A longer line is read to its end and reported, its text thrown away.
E_LineRead readLine(char* line) {
  unsigned int count = 0;
  bool tooLong = false;
  int c;
  while ((c = getchar()) != EOF && c != '\n') {
    if (count < CommandLineObj::kMaxLineLength) {
      line[count++] = static_cast<char>(c);
    } else {
      tooLong = true;
    }
  }
  line[count] = '\0';
  if (tooLong) return E_LINE_TOO_LONG;
  if (c == EOF && count == 0) return E_LINE_INPUT_END;
  return E_LINE_READ;
}

}  // namespace

CommandLineObj::CommandLineObj(StartGate& startGate)
    : _startGate(startGate),
      _thread("commandLineThread"),
      _pMsgBuffer(nullptr),
      _pMsgCommandManager(nullptr),
      _pCommand(nullptr) {
  _pMsgBuffer = new unsigned char[interaction::kMsgSize]();
  createThread();
}

CommandLineObj::~CommandLineObj() {
  deleteThread();
  delete[] _pMsgBuffer;
}

void CommandLineObj::attach(MsgCommandManagerInterface* manager) { _pMsgCommandManager = manager; }

void CommandLineObj::setCommand(Command* command) {
  ThreadLockGuard guard(_lock);
  _pCommand = command;
}

Command* CommandLineObj::getCommand() {
  ThreadLockGuard guard(_lock);
  return _pCommand;
}

int CommandLineObj::sendResponseMsg(unsigned char* msg, int length) {
  (void)length;
  S_InteractionMsg* reply = reinterpret_cast<S_InteractionMsg*>(msg);
  if (reply->result == 0) {
    printf("ErrorInfo: %.*s\n=> ", static_cast<int>(interaction::kErrorInfoSize), reply->errorInfo);
    fflush(stdout);
    return 0;
  }
  // The command objects live as long as the process, so the one read here cannot go away.
  Command* command = getCommand();
  uint32_t dataLength = reply->dataLength;
  if (command != nullptr) command->responseAnalyse(reply->data, std::min(dataLength, interaction::kMaxDataLength));
  print("\n=> ");
  return 0;
}

int CommandLineObj::sendCommandMsg(S_InteractionMsg* msg, unsigned int length) {
  print("command msg send\n=> ");
  _pMsgCommandManager->sendMsgCommandManager(reinterpret_cast<unsigned char*>(msg), static_cast<int>(length));
  return 0;
}

void CommandLineObj::createThread() {
  _thread.start(commandLineThread, this, TRACE_SITE, "fail to create CommandLineObj thread\n", E_THREAD_ID_TRACED);
}

// Joined rather than detached: the thread works on this object and its buffer.
void CommandLineObj::deleteThread() { _thread.stop(); }

void CommandLineObj::handleLine(char* line) {
  TRACE(4, "input command = %s\n", line);
  S_CommmandSplit_t split;
  memset(&split, 0, sizeof(split));
  CommandSplit::split(&split, line);
  // A line of blanks only is an empty line.
  if (split.argc == 0) return;
  Command* command = CommandFactory::creatCommandObj(split.argv[0]);
  setCommand(command);
  if (command == nullptr) {
    print("command not support!\n");
    return;
  }
  S_InteractionMsg* msg = reinterpret_cast<S_InteractionMsg*>(_pMsgBuffer);
  unsigned int frameLength = 0;
  if (command->execut(split.argc - 1, &split.argv[1], msg->data, &frameLength) != 0) {
    fflush(stdout);
    return;
  }
  msg->dataLength = frameLength;
  setRecordType(_pMsgBuffer, E_INTERACTION_MSG_COMMAND_LINE);
  sendCommandMsg(msg, frameLength + interaction::kHeaderSize);
}

void* CommandLineObj::commandLineThread(void* object) {
  CommandLineObj* self = static_cast<CommandLineObj*>(object);
  TRACE(3, "commandLineThread start\n");
  // No line may be posted before the way up is attached and the bus is there.
  self->_startGate.wait();
  char line[kLineBufferSize];
  for (;;) {
    memset(line, 0, sizeof(line));
    print("=> ");
    E_LineRead read = cancelPoint([&] { return readLine(line); });
    // Nothing more will come.
    if (read == E_LINE_INPUT_END) parkForever();
    if (read == E_LINE_TOO_LONG) {
      TRACE(2, "input line longer than %u characters ignored\n", kMaxLineLength);
      continue;
    }
    if (line[0] == '\0') continue;
    self->handleLine(line);
  }
  return nullptr;
}
