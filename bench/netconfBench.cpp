// The NETCONF road: ald-communication round trips from Debian's ncclient through
// pknetconf and the queues, each followed by an empty RPC of the same client,
// so that the client's own cost per call can be taken off.
#include <sstream>
#include <string>
#include <vector>

#include "benchParts.h"
#include "benchSupport.h"

namespace bench {

int runNetconfExchanges(int count) {
  Child sim, service, client;
  if (!startPacedSimulator(sim, {"uid=BENCH01"}) || !startService(service, kPort, {})) {
    report("error", "netconf: simulator or service did not start");
    return 1;
  }
  if (!client.start({"/usr/bin/python3", PK_SOURCE_DIR "/bench/netconfRoad.py", std::to_string(count), "BENCH01",
                     binPath("pknetconf")}) ||
      !client.waitFor("done", 600000)) {
    std::string output = client.output();
    report("error", "netconf: " + output.substr(output.rfind('\n', output.size() - 2) + 1));
    return 1;
  }
  std::vector<double> calls, empties, servers;
  std::istringstream lines(client.output());
  for (std::string line; std::getline(lines, line);) {
    double call = 0, empty = 0;
    if (sscanf(line.c_str(), "pair %lf %lf", &call, &empty) != 2) continue;
    calls.push_back(call);
    empties.push_back(empty);
    servers.push_back(call - empty);
  }
  report("netconf.n", std::to_string(calls.size()));
  report("netconf.median", fixed(percentile(calls, 0.5), 2));
  report("netconf.p99", fixed(percentile(calls, 0.99), 2));
  report("netconf.emptyMedian", fixed(percentile(empties, 0.5), 2));
  report("netconf.emptyP99", fixed(percentile(empties, 0.99), 2));
  report("netconf.serverMedian", fixed(percentile(servers, 0.5), 2));
  report("netconf.serverP99", fixed(percentile(servers, 0.99), 2));
  return 0;
}

}  // namespace bench
