// Debian's NETCONF client ncclient against pknetconf, beside the real service
// (without -c, as on a radio unit whose M-Plane drives the bus) on a simulated
// bus of four ALDs. The cases are the table in ncclient_cases.py; this program
// runs the service, the bus and the client, and gathers their output.
#include "serviceBench.h"

namespace {

class NcclientE2e : public e2e::ServiceBench {};

TEST_F(NcclientE2e, AldCommunicationFromDebiansNetconfClient) {
  const std::vector<std::string> alds = {"uid=RET-A1,type=0x11,subs=2,tilt=2.5", "uid=RET-B2,type=0x11,tilt=-1.5",
                                         "uid=RET-C3,type=0x11,tilt=7", "uid=RET-D4,type=0x11,subs=3"};
  start(alds, {});
  std::vector<std::string> argv = {"/usr/bin/python3", PK_SOURCE_DIR "/tests/tools/pknetconf/ncclient_cases.py",
                                   std::to_string(service.pid())};
  argv.insert(argv.end(), alds.begin(), alds.end());
  argv.push_back("--");
  for (const std::string& word : e2e::emulatorWords()) argv.push_back(word);
  argv.push_back(e2e::binPath("pknetconf"));
  e2e::Child client;
  ASSERT_TRUE(client.start(argv));
  EXPECT_TRUE(e2e::waitUntil([&] { return client.pump(10), !client.running(); }, 240000));
  std::string server = e2e::readFile("pknetconf.log");
  // A sanitizer's report in pknetconf makes its exit status, which the client checks, other than 0.
  EXPECT_EQ(client.waitExit(0), 0) << client.plainOutput() << "pknetconf:\n" << server;
}

}  // namespace
