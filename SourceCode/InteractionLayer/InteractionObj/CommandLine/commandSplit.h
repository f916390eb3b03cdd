#ifndef PK_INTERACTION_COMMAND_SPLIT_H
#define PK_INTERACTION_COMMAND_SPLIT_H

// The words of one console line; they point into the line, which the split cut.
struct S_CommmandSplit_t {
  int argc;
  char* argv[10];
};

class CommandSplit {
 public:
  static constexpr int kMaxWords = 10;

  // Cuts line in place at single blanks; runs of blanks count as one.
  static void split(S_CommmandSplit_t* out, char* line);
};

#endif
