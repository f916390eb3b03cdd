#ifndef PK_TOOLS_PKNETCONF_ALD_COMMUNICATION_H
#define PK_TOOLS_PKNETCONF_ALD_COMMUNICATION_H

#include <libyang/libyang.h>
#include <nc_server.h>

class AldQueueClient;

// Serves one o-ran-ald:ald-communication: its frame goes to the AISG service
// and the service's reply becomes the output. A port-id other than the served
// one is refused with invalid-value, and nothing reaches the queue.
nc_server_reply* serveAldCommunication(const lyd_node* rpc, AldQueueClient* client);

#endif
