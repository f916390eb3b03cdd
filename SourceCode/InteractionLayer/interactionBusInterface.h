#ifndef PK_INTERACTION_INTERACTION_BUS_INTERFACE_H
#define PK_INTERACTION_INTERACTION_BUS_INTERFACE_H

struct S_HdlcPacket;

// The bus as the two message services see it: one exchange in either form, with
// the results of the communication manager, and the counters a success reply
// carries. In service it is the communication manager; a test or a fuzz target
// puts in a bus that answers at once.
class InteractionBusInterface {
 public:
  virtual ~InteractionBusInterface() = default;
  // 0 reply, -1 reply from another address, -2 no reply in time, -3 undecodable reply.
  virtual int sendCmdAndWaitResponse(S_HdlcPacket* packet, unsigned int time) = 0;
  // 0 reply (the raw bytes replace data), anything else no reply in time.
  virtual int sendCmdAndWaitResponse(unsigned char* data, int* length, unsigned int time) = 0;
  virtual unsigned int getCrcErrorCount() = 0;
  virtual unsigned int getWithoutStopFlagCount() = 0;
  virtual unsigned int getReceivedOctetsCount() = 0;
};

#endif
