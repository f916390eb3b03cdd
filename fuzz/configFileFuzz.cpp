// The configuration parser against arbitrary files: binary garbage and lines of
// any length never overrun its buffers.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "common/configFile.h"
#include "utility/debugTrace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::string path = "/tmp/pk-config-fuzz-" + std::to_string(getpid());
  gLogLevel = 0;
  FILE* file = fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  fwrite(data, 1, size, file);
  fclose(file);
  ConfigFile config(path.c_str());
  (void)config;
  return 0;
}
