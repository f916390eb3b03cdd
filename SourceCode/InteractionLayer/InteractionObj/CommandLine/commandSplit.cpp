#include "InteractionLayer/InteractionObj/CommandLine/commandSplit.h"

#include <cstring>

void CommandSplit::split(S_CommmandSplit_t* out, char* line) {
  // The reentrant form: no hidden state that another thread's strtok could disturb.
  char* rest = nullptr;
  char* word = strtok_r(line, " ", &rest);
  if (word == nullptr) {
    out->argc = 0;
    return;
  }
  out->argv[0] = word;
  out->argc = 1;
  while (out->argc < kMaxWords && (word = strtok_r(nullptr, " ", &rest)) != nullptr) {
    out->argv[out->argc++] = word;
  }
}
