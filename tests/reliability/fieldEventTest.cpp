// Field events end to end, one scene each: the service against simulated ALDs that go
// away, answer from another address, collide, split or garble their replies, or a
// configuration and a port that make no sense. Each scene is a row: the bus, the service's
// options, and a script of steps (see ServiceBench::play).
#include "serviceBench.h"

namespace {

// Deterministic bytes of any value, line feeds included.
std::string garbage(size_t length, unsigned int seed) {
  std::string bytes;
  for (size_t i = 0; i < length; ++i) bytes += static_cast<char>((seed = seed * 1103515245u + 12345u) >> 16);
  return bytes;
}

const e2e::S_Scene kScenes[] = {
    // Away for a few seconds: five failed polls make the ALD ADDRESSED, and the first assignment goes out
    // in the same pass; awake, it takes the second, its link is set up anew and it is polled on, with no rescan. Away for long: after
    // five failed assignments one pass meets the LOST ALD, the next cycle scans, and so does every cycle
    // while the bus is empty; back, the scan finds it and the polls go on.
    {"AnAldAwayIsAddressedAgainOrFoundByTheRescan", "uid=0x41", "-c", "",
     "bus TX 7E 01 11 | sim quiet 1 | sent poll1 poll1 poll1 poll1 poll1 assign | sim wake 1 | sent assign snrm1 poll1 | "
     "bus TX 7E 01 11 | sim quiet 1 | "
     "sent poll1 poll1 poll1 poll1 poll1 assign assign assign assign assign reset probe reset | "
     "run pkstatus | reply run step     : 1 (device scan) | sim wake 1 | bus TX 7E 01 11 | run pkstatus | "
     "reply run step     : 3 (alds poll)"},
    // Answers from another address: the scan's assignment is answered (an assignment goes to all stations,
    // so any address may answer it) but every SNRM fails with a trace, so the ALD is never polled; each
    // failed SNRM after an assignment counts as a failed one, and after five the ALD is LOST and rescanned.
    {"AnAldAnsweringFromAnotherAddressGoesRoundTheRecoveryRoad", "uid=0x41,wrongAddr=9", "-c", "",
     "says Reply addr[9] is not target addr[1]! | bus RX 7E 01 93 | "
     "sent assign snrm1 assign snrm1 assign snrm1 assign snrm1 assign snrm1 reset probe other assign snrm1"},
    // Seven ALDs answer the first probe at once; one can never be addressed (its answers lack the vendor
    // code) and collides at every scan. The six others end with an address each.
    {"CollidingAldsAreAllFoundAndAddressed", "uid=B1 uid=D2 uid=F3 uid=H4 uid=J5 uid=L6 uid=N7,noVendor=1", "-c", "",
     "bus TX COLLISION | bus RX 7E 06 11 | type aisg getDevNums | says ALD nums = 6 \n | type mret_v2 getSubNums 6 | "
     "says subUint nums = 1"},
    // A reply with a bad FCS fails its check. A reply in two halves 40 ms apart makes two messages that
    // fail to decode for a missing flag, the second after its exchange has ended: it is forgotten before
    // the next request goes out, which gets its own reply. Each is counted, and the counts go out with the
    // next good reply. (Assignments through mplanectl.)
    {"GarbledRepliesFailAndAreCounted", "uid=ARET1 uid=BRET2,split=40 uid=CRET3,badFcs=100", "", "",
     "run mplanectl FF BF 81F00A01054352455433 020103 | reply errorInfo: receive hdlc data decode failed. | "
     "says serialport msg decode failed -- ret=-1! | run mplanectl FF BF 81F00A01054252455432 020102 | "
     "reply errorInfo: receive hdlc data decode failed. | says serialport msg decode failed -- ret=-3! | "
     "says serialport msg decode failed -- ret=-3! | run mplanectl FF BF 81F00A01054152455431 020101 | "
     "reply address: 01\ncontrol: BF\ninfo: 81 F0 0A 01 05 41 52 45 54 31 | "
     "reply crcErrorCount: 1\nwithoutStopFlagCount: 2\n"},
    // A configuration of garbage leaves every default, whose port is missing; a port that never falls
    // silent. The service runs on in each case, without spinning, and answers the pipe.
    {"AConfigurationOfGarbageLeavesEveryDefault", "", "-c -l 3",
     garbage(3000, 3) + "\n" + std::string(10000, 'k') + " " + std::string(10000, 'v') + "\n" + garbage(5000, 5),
     "says ]Version = defalut\n | says ]PortName = /dev/ttyPS1\n | says ]CommandMsgKey = 0x00400004\n | "
     "says ]ResponseMsgKey = 0x00400005\n | says ]ShareMemKey = 0x00400009\n | says Config file version : defalut\n | "
     "says ERROR: open /dev/ttyPS1 failed! | says RS485 dev not init yet! | idle | run pkstatus | "
     "reply alive        : yes | run mplanectl --timeout 6000 01 11 | reply result: 0 (failure)\nerrorInfo: "},
    {"APortThatNeverFallsSilentDoesNotMakeTheServiceSpin", "", "", "PortName /dev/zero\n",
     "says ERROR: Set terminal attribute failed! | says serialport msg decode failed -- ret=-2! | idle | "
     "run pkstatus | reply alive        : yes | run mplanectl --timeout 6000 01 11 | "
     "reply result: 0 (failure)\nerrorInfo: "},
};

class FieldEventTest : public e2e::ServiceBench, public testing::WithParamInterface<e2e::S_Scene> {};

TEST_P(FieldEventTest, Plays) {
  start(GetParam());
  play(GetParam().script);
}

INSTANTIATE_TEST_SUITE_P(Scenes, FieldEventTest, testing::ValuesIn(kScenes),
                         [](const testing::TestParamInfo<e2e::S_Scene>& scene) { return scene.param.name; });

}  // namespace
