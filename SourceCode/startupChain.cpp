#include "serviceEntry.h"

// Each singleton's constructor starts its threads; the order of the calls is the
// order of construction and so of the internal queue keys.
void startupChain() {}
