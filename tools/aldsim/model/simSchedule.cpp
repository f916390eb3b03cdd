#include "simSchedule.h"

#include <algorithm>
#include <sstream>

namespace {
// About 115 days: the run's clock in milliseconds holds it with room to spare.
constexpr double kMaxSeconds = 1e7;
}  // namespace

int SimSchedule::parse(const std::string& text, S_SimEvent& event, std::string& error) {
  const size_t colon = text.find(':');
  if (colon == std::string::npos || AldDescription::parseDecimal(text.substr(0, colon), event.seconds) != 0 ||
      event.seconds < 0 || event.seconds > kMaxSeconds || text.find_first_not_of(' ', colon + 1) == std::string::npos) {
    error = "bad --at '" + text + "' (SECONDS:COMMAND, SECONDS 0 to 10000000)";
    return -1;
  }
  event.command = text.substr(colon + 1);
  return 0;
}

int SimSchedule::check(std::vector<S_SimEvent>& events, AldBus bus, std::string& error) {
  // Stable, so that commands for the same moment keep their order: plug, then power of the new ALD.
  std::stable_sort(events.begin(), events.end(),
                   [](const S_SimEvent& a, const S_SimEvent& b) { return a.seconds < b.seconds; });
  for (const S_SimEvent& event : events) {
    std::vector<std::string> lines;
    if (bus.command(event.command, lines, event.seconds) != 0) {
      std::ostringstream text;
      text << "bad --at '" << event.seconds << ":" << event.command << "': " << (lines.empty() ? "" : lines.back());
      error = text.str();
      return -1;
    }
  }
  return 0;
}
