#include "serviceEntry.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "common/configFile.h"
#include "utility/debugTrace.h"

unsigned char commandObjEnable = 0;
unsigned char selfCtrlEnable = 0;

namespace {

const char* const kVersionFile = "/tmp/aisgVersion";
constexpr int kRecordSize = 255;

}  // namespace

int parseOptions(int argc, char** argv) {
  int option;
  while ((option = getopt(argc, argv, "l:ch")) != -1) {
    switch (option) {
      case 'h':
        puts("help list:");
        puts("-h : show help.");
        puts("-c : enable commandline mode.");
        puts("-l [1]: setting log level,0-off 1-error , 2-warn , 3-info , 4-debug , 5-verbose.");
        return 0;
      case 'c':
        commandObjEnable = 1;
        selfCtrlEnable = 1;
        break;
      case 'l':
        gLogLevel = static_cast<int>(strtol(optarg, nullptr, 10));
        break;
      default:
        fprintf(stderr, "Illegal argument \"%c\"\n", option);
        return 1;
    }
  }
  return -1;
}

void displayVersion() {
  std::ofstream out(kVersionFile, std::ios::out | std::ios::binary | std::ios::trunc);
  if (out.fail()) {
    puts("[AISG] /tmp/aisgVersion: fout Error!");
    out.close();
    return;
  }
  char buffer[256];
  auto record = [&](const char* format, auto... args) {
    memset(buffer, 0, sizeof(buffer));
    snprintf(buffer, kRecordSize, format, args...);
    printf("%s", buffer);
    // Each record is the line filled up with zero bytes to 255, whatever its length.
    out.write(buffer, kRecordSize);
  };
  record("%s\n", "/*******************pylonkeeper version*******************/");
  record("\t  Release Version : %s\n", "pylonkeeper_V1003");
  record("\t  Release Date    : %s\n", "20220804");
  record("\t  Creat Time      : %s, %s\n", __DATE__, __TIME__);
  record("\tConfig file version : %s\n", ConfigFile::getInstance()->_version.c_str());
  record("%s\n", "/*******************************************************/");
  out.close();
}
