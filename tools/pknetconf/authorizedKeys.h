#ifndef PK_TOOLS_PKNETCONF_AUTHORIZED_KEYS_H
#define PK_TOOLS_PKNETCONF_AUTHORIZED_KEYS_H

#include <libssh/libssh.h>

#include <string>
#include <vector>

// The public keys that may log in, all bound to one user name. Any key type
// that libssh reads is accepted (RSA, ECDSA, Ed25519).
class AuthorizedKeys {
 public:
  AuthorizedKeys() = default;
  ~AuthorizedKeys();
  AuthorizedKeys(const AuthorizedKeys&) = delete;
  AuthorizedKeys& operator=(const AuthorizedKeys&) = delete;

  // Reads an OpenSSH authorized-keys file: TYPE BASE64 [COMMENT] per line, lines
  // starting with # and blank lines ignored. 0, or -1 with the reason in *error:
  // the file cannot be read, a line is no key, or it holds none.
  int load(const std::string& path, const std::string& user, std::string* error);

  // True when user is the configured one and key is in the file.
  bool accepts(const char* user, const ssh_key key) const;

 private:
  std::string _user;
  std::vector<ssh_key> _keys;
};

#endif
