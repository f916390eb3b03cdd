#ifndef PK_TOOLS_PKNETCONF_HOST_KEY_H
#define PK_TOOLS_PKNETCONF_HOST_KEY_H

#include <string>

// Makes sure the private host key at path can be used: when no file is there,
// makes an ECDSA P-256 key and writes it, readable by the owner only. 0, or -1
// with the reason in *error (a file that cannot be read or is no private key,
// or a key that cannot be written).
int ensureHostKey(const std::string& path, std::string* error);

#endif
