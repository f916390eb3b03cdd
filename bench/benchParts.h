#ifndef PK_BENCH_BENCH_PARTS_H
#define PK_BENCH_BENCH_PARTS_H

// The measurements. Each one but the codec's runs inside its own sandbox and
// reports its figures as "@key value" lines on standard output; 0 on success.

#include <map>
#include <string>

namespace bench {

// M-Plane requests through the command and response queues, service without -c.
int runMplaneExchanges(int count);
// ald-communication RPCs from ncclient through pknetconf, service without -c; needs a network of its own.
int runNetconfExchanges(int count);
// Console commands on the service's terminal, service with -c.
int runConsoleExchanges(int count);
// Console commands on the service's terminal, service with -c and a discovery every
// `periodSeconds`: those that met a discovery probe apart from the others.
int runDiscoveryExchanges(int count, int periodSeconds);
// One scan of a bus of `alds` ALDs with random 19-byte UIDs, driven through the library.
int runScan(int alds);
// Time between successive polls of the same ALD, service with -c.
int runPollCycle(int alds, int cycles);
// CPU time and memory of the service in one state: "relay", "console4" or "noport".
int runIdle(const std::string& state, int seconds);

// Codec throughput in MB/s by benchmark name; runs in the calling process.
std::map<std::string, double> runCodec();

}  // namespace bench

#endif
