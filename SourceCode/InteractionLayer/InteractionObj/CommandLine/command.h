#ifndef PK_INTERACTION_COMMAND_H
#define PK_INTERACTION_COMMAND_H

// A sub-command: builds a complete frame from the words behind its own word.
// 0 when a frame is ready in frame, anything else when nothing is to be sent.
typedef int (*CommandHandler)(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);

// One row of a command table; the last row is all nulls.
struct S_CommandInfo {
  const char* cmdName;
  CommandHandler cmdHandler;
  const char* cmdDescription;
  const char* cmdUsage;
};

// The base of a console command group.
class Command {
 public:
  explicit Command(const S_CommandInfo* table) : _pCmdTable(table) {}
  virtual ~Command() = default;
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // argv[0] is the sub-command word. 0 when a frame is ready.
  virtual int execut(int argc, char** argv, unsigned char* frame, unsigned int* frameLength);
  // Interprets a reply frame and prints the answer.
  virtual int responseAnalyse(unsigned char* frame, unsigned int frameLength) = 0;
  virtual int showHelp();

 protected:
  const S_CommandInfo* _pCmdTable;
};

#endif
