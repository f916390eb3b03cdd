// The console against arbitrary input: a line is split into the same words that
// an independent reading of it finds; the command group its first word names
// turns the other words into a frame that fits the wire and decodes again, or
// into nothing; and the group reads any reply frame without reading outside it.
//
// Input: the console line up to the first line feed (as the console reads it,
// at most 498 characters), then the bytes of a reply frame.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "InteractionLayer/InteractionObj/CommandLine/commandFactory.h"
#include "InteractionLayer/InteractionObj/CommandLine/commandLineObj.h"
#include "InteractionLayer/InteractionObj/CommandLine/commandSplit.h"
#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "utility/debugTrace.h"

namespace {

// The words of the line as the console means them: runs of blanks between words,
// the line ending at its first zero byte, at most kMaxWords of them.
std::vector<std::string> referenceWords(const char* line) {
  std::vector<std::string> words;
  std::string current;
  for (const char* c = line;; ++c) {
    if (*c == ' ' || *c == '\0') {
      if (!current.empty() && words.size() < static_cast<size_t>(CommandSplit::kMaxWords)) words.push_back(current);
      current.clear();
      if (*c == '\0') return words;
    } else {
      current += *c;
    }
  }
}

void checkSplit(const S_CommmandSplit_t& split, const std::vector<std::string>& expected, const char* line,
                size_t lineSize) {
  if (split.argc != static_cast<int>(expected.size())) abort();
  for (int i = 0; i < split.argc; ++i) {
    // Every word lies in the line, after the one before it, and is the expected one.
    if (split.argv[i] < line || split.argv[i] >= line + lineSize) abort();
    if (i > 0 && split.argv[i] <= split.argv[i - 1]) abort();
    if (expected[i] != split.argv[i]) abort();
  }
}

// A frame that a command built is one whole I-frame with the poll bit, for the wire.
void checkFrame(unsigned char* frame, unsigned int length) {
  if (length > hdlc::kMaxFrame) abort();
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  if (hdlc::decodeFrame(frame, length, packet, hdlc::kStructured) != hdlc::HDLC_OK) abort();
  if (!hdlc::isIFrame(packet.control) || packet.pollFinal != 1) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  gLogLevel = 0;
  const uint8_t* end = static_cast<const uint8_t*>(memchr(data, '\n', size));
  size_t lineLength = end != nullptr ? static_cast<size_t>(end - data) : size;
  if (lineLength > CommandLineObj::kMaxLineLength) return 0;  // the console throws such a line away
  const uint8_t* reply = end != nullptr ? end + 1 : data + size;
  size_t replyLength = static_cast<size_t>(data + size - reply);

  // Exact-size copies, so that a read past either is caught.
  std::unique_ptr<char[]> line(new char[lineLength + 1]);
  memcpy(line.get(), data, lineLength);
  line[lineLength] = '\0';
  std::vector<std::string> expected = referenceWords(line.get());

  S_CommmandSplit_t split;
  memset(&split, 0, sizeof(split));
  CommandSplit::split(&split, line.get());
  checkSplit(split, expected, line.get(), lineLength + 1);
  if (split.argc == 0) return 0;

  Command* command = CommandFactory::creatCommandObj(split.argv[0]);
  if (command == nullptr) return 0;
  std::unique_ptr<unsigned char[]> frame(new unsigned char[hdlc::kMaxFrame]);
  unsigned int frameLength = 0;
  if (command->execut(split.argc - 1, &split.argv[1], frame.get(), &frameLength) == 0) {
    checkFrame(frame.get(), frameLength);
  }

  std::unique_ptr<unsigned char[]> answer(new unsigned char[replyLength]);
  if (replyLength > 0) memcpy(answer.get(), reply, replyLength);
  command->responseAnalyse(answer.get(), static_cast<unsigned int>(replyLength));
  return 0;
}
