#ifndef PK_TOOLS_PKNETCONF_CONNECTED_SOCKETS_H
#define PK_TOOLS_PKNETCONF_CONNECTED_SOCKETS_H

#include <vector>

// The descriptors of this process's sockets that are connected, that is
// sockets but no listening ones. In pknetconf only the NETCONF engine opens
// sockets, so these are its sessions' ones.
std::vector<int> connectedSockets();

#endif
