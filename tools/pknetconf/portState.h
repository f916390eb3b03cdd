#ifndef PK_TOOLS_PKNETCONF_PORT_STATE_H
#define PK_TOOLS_PKNETCONF_PORT_STATE_H

#include <libyang/libyang.h>

#include <cstdint>
#include <string>

// The port-id of the service's one RS-485 port, the only ALD port there is.
constexpr uint8_t kServedPortId = 0;

// The state data of o-ran-ald-port: the one port, named portName, with
// kServedPortId. A new tree in *tree, which the caller frees; 0 or -1.
int buildPortState(const ly_ctx* ctx, const std::string& portName, lyd_node** tree);

#endif
