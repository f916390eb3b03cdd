#ifndef PK_TOOLS_PKNETCONF_STATE_FILTER_H
#define PK_TOOLS_PKNETCONF_STATE_FILTER_H

#include <libyang/libyang.h>

#include <string>

// The part of the state data that the filter of a get selects: the filter node
// of ietf-netconf's get (type subtree, the default, or xpath), or null for all
// of it. *selected gets a new tree (null when nothing is selected), which the
// caller frees. 0, or -1 with the reason in *error.
int selectState(const lyd_node* state, const lyd_node* filter, lyd_node** selected, std::string* error);

#endif
