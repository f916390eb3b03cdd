// Field events end to end, one scene each: the service against simulated ALDs that go
// away, answer from another address, collide, split or garble their replies, or a
// configuration and a port that make no sense. Each scene is a row: the bus, the service's
// options, and a script of steps (see ServiceBench::play).
#include "serviceBench.h"

namespace {

// The steps n times over, joined, with # standing for the round (1 to n).
std::string rounds(int n, const std::string& steps) {
  std::string script;
  for (int i = 1; i <= n; ++i) {
    std::string round = steps;
    for (size_t at; (at = round.find('#')) != std::string::npos;) round.replace(at, 1, std::to_string(i));
    script += (i > 1 ? " | " : "") + round;
  }
  return script;
}

const std::string kThree = "uid=0x41 uid=0x42 uid=0x44";

const e2e::S_Scene kScenes[] = {
    // DM: ALD 2 (address 1: the search finds 0x42 first) loses its link but keeps its address; within 4 s,
    // sooner than five failed polls could take, it gets an SNRM, and its next poll is answered: RUNNING
    // again, with no re-assignment and no reset.
    {"ADroppedLinkIsSetUpAgain", kThree, "-c", "",
     "bus TX 7E 03 11 | sim drop 2 | within 4 | bus TX 7E 01 1F | bus RX 7E 01 93 | bus TX 7E 01 11 | never F0 02 07"},
    // Garbled assignment: the reply to the scan's first assignment (ALD 2, 0x42) fails its FCS. Its address
    // counts as taken, so the three ALDs end on three addresses, each linked and polled within 30 s.
    {"AGarbledAssignmentUsesUpItsAddress", kThree, "-c", "",
     "sim garble 2 assign 1 | within 30 | bus RX 7E 01 93 | bus RX 7E 02 93 | bus RX 7E 03 93 | bus TX 7E 01 11 | "
     "bus TX 7E 02 11 | bus TX 7E 03 11 | type aisg getDevNums | says ALD nums = 3 \n"},
    // Noise: 16 random bytes on the bus once a second for 60 s while an M-Plane peer sends a request after
    // each: every reply carries its own request's tag, and every ALD is polled again at the end within 30 s.
    {"SLOW_NoiseSendsNoReplyToTheWrongRequest", kThree, "-c", "",
     "bus TX 7E 03 11 | " + rounds(60, "sim noise 16 | run mplanectl --reserved # 01 11 | reply reserved: #\n | wait 1") +
         " | within 30 | bus TX 7E 01 11 | bus TX 7E 02 11 | bus TX 7E 03 11"},
    // Power cycle: ALD 2 (address 1) away 3 s, back without address or link: answering polls within 30 s, a console
    // getTilt to it succeeds, and the others are never reset or re-addressed.
    {"APowerCycledAldIsPolledAgain", kThree, "-c", "",
     "bus TX 7E 03 11 | sim power 2 3 | within 30 | bus RX 7E 01 93 | bus TX 7E 01 11 | type mret_v2 getTilt 1 1 | "
     "says tilt = | never F0 02 07 | never 01 41 02 01 | never 01 44 02 01"},
    // Hot-plug with discovery every 5 s: the new ALD is linked within 20 s at the lowest free address (3),
    // with no reset; with discovery off, ten polls after the scan and no probe among them.
    {"APluggedAldIsFoundByTheDiscovery", "uid=0x41 uid=0x42", "-c", "PortName /tmp/ttyALD\nDiscoveryPeriod 5\n",
     "bus TX 7E 02 11 | sim plug uid=0x44 | within 20 | bus RX 7E 03 93 | bus TX 7E 03 11 | bus TX 7E 01 11 | "
     "bus TX 7E 02 11 | never F0 02 07"},
    // Two plugged at once whose UIDs part only in their second byte: the search takes a step per cycle,
    // so the life counter moves while it runs, and both are linked at the next free addresses.
    {"TwoAldsPluggedAtOnceAreFoundWhileTheCyclesGoOn", "uid=0x41", "-c", "PortName /tmp/ttyALD\nDiscoveryPeriod 2\n",
     "bus TX 7E 01 11 | sim plug uid=0x4401 | sim plug uid=0x4402 | bus TX COLLISION | run pkstatus --alive 4 | "
     "reply alive        : yes | within 60 | bus RX 7E 02 93 | bus RX 7E 03 93 | bus TX 7E 02 11 | bus TX 7E 03 11"},
    {"WithoutDiscoveryNoProbeFollowsTheScan", "uid=0x41", "-c", "PortName /tmp/ttyALD\nDiscoveryPeriod 0\n",
     "bus TX 7E 01 11 | sim plug uid=0x44 | sent poll1 poll1 poll1 poll1 poll1 poll1 poll1 poll1 poll1 poll1"},
    // Unplug: ALD 2 gone for good is LOST after five polls and five assignments; the rescan within 40 s
    // renumbers from 1, and the two others answer polls again.
    {"SLOW_AnUnpluggedAldIsLostAndTheOthersRescanned", kThree, "-c", "",
     "bus TX 7E 03 11 | sim unplug 2 | within 40 | bus RX 7E FF BF 81 F0 02 07 | bus TX 7E 01 11 | "
     "bus TX 7E 02 11"},
    // Two ALDs forced onto address 2: their replies collide until they are apart again, within 60 s.
    {"SLOW_TwoAldsOnOneAddressAreParted", kThree, "-c", "",
     "bus TX 7E 03 11 | sim address 3 2 | bus TX COLLISION | within 60 | bus RX 7E 03 93 | bus TX 7E 03 11 | "
     "bus TX 7E 02 11"},
    // Late M-Plane reply: the UA to an SNRM 1.2 s late; that request times out, and each of the next 20
    // gets its own reply (its tag and an RR, not the late UA).
    {"ALateReplyAnswersNoLaterRequest", "uid=ARET1", "", "",
     "run mplanectl FF BF 81F00A01054152455431 020101 | reply result: 1 | sim delay 1 1200 | "
     "run mplanectl --reserved 99 01 93 | reply time out | " +
         rounds(20, "run mplanectl --reserved # 01 11 | reply reserved: #\n | reply control: 11")},
    // Foreign messages: 64 bytes of type 1 on each internal queue; the run machine's and the tick queue's
    // receives drop theirs with the level-2 trace, polls go on within 5 s and the life counter moves.
    {"ForeignMessagesOnTheInternalQueuesAreDropped", "uid=0x41", "-c -l 2", "",
     "bus TX 7E 01 11 | queue 600000 | queue 600001 | queue 600002 | queue 600003 | "
     "says dropped a message longer than | says dropped a message longer than | within 5 | bus RX 7E 01 11 | "
     "run pkstatus --alive 3 | reply alive        : yes"},

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
    // The status block lies under the key of the configuration, for the service and for pkstatus.
    {"AnAldAnsweringFromAnotherAddressGoesRoundTheRecoveryRoad", "uid=0x41,wrongAddr=9", "-c",
     "PortName /tmp/ttyALD\nShareMemKey 0x5a5a01\n",
     "says Reply addr[9] is not target addr[1]! | bus RX 7E 01 93 | "
     "sent assign snrm1 assign snrm1 assign snrm1 assign snrm1 assign snrm1 reset probe other assign snrm1 | "
     "run pkstatus | reply alive        : yes\nexit 0 | "
     "run pkstatus --verbose | reply exit 4 | run pkstatus --alive | reply exit 4"},
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
     e2e::garbage(3000, 3) + "\n" + std::string(10000, 'k') + " " + std::string(10000, 'v') + "\n" + e2e::garbage(5000, 5),
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
