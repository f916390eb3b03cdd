#include "simOptions.h"

#include <fstream>
#include <random>

#include "aisgAppLayer/commManager/aisgFrame.h"

namespace {
// More ALDs than a bus has addresses only make a scan endless.
constexpr unsigned long kMaxAlds = aisg::kLastAddress;
}  // namespace

void SimOptions::printHelp(FILE* out) {
  fputs(
      "usage: aldsim [--link PATH | --port TTY] [--pace] [--seed N] [--random N] [--file FILE]\n"
      "              [--always-linked] [--at SECONDS:COMMAND ...] [ALD ...]\n"
      "Simulates a bus of antenna line devices (HDLC secondaries) for the primary station.\n"
      "\n"
      "  --link PATH   create a pty pair and make PATH a symlink to the slave\n"
      "                (without --link/--port the pty slave path is printed on the ready line)\n"
      "  --port TTY    use an existing tty instead of a pty\n"
      "  --pace        pace output at 9600 baud (about 1.04 ms per byte)\n"
      "  --seed N      seed of --random and of badFcs (default 1)\n"
      "  --random N    add N ALDs with random 19-byte UIDs (after all others)\n"
      "  --file FILE   ALDs one per line, same syntax as below; lines starting with # are ignored\n"
      "  --always-linked  ALDs answer polls and I-frames also without a link (by default an\n"
      "                ALD without a link answers them with DM, as a real one does)\n"
      "  --at SECONDS:COMMAND  run a command (below) SECONDS after start, e.g. --at '12:power 2 3';\n"
      "                may repeat; a command the bus would refuse stops the start\n"
      "  -h, --help    this text\n"
      "\n"
      "ALD: comma-separated key=value fields, all optional but uid:\n"
      "  uid=0xHEX | uid=TEXT  the UID, hex bytes in order or ASCII, up to 19 bytes\n"
      "  type=N                device type (default 0x01)\n"
      "  vendor=XY | 0xHHHH    vendor code (default SI)\n"
      "  subs=N                number of sub-units (default 1)\n"
      "  tilt=T                initial tilt in degrees of every sub-unit (default 0)\n"
      "  silentFrom=N          no answer from the Nth frame addressed to or accepted by the ALD\n"
      "  silentAt=A-B          silent from A to B seconds after start (may repeat)\n"
      "  badFcs=P              P percent of the replies carry a corrupt FCS\n"
      "  split=MS              replies go out in two halves MS milliseconds apart\n"
      "  noVendor=1            scan replies leave out the vendor code\n"
      "  delay=MS              replies go out MS milliseconds late\n"
      "  wrongAddr=A           replies carry address A instead of the ALD's own\n"
      "  alarm=CODE            tilt procedures answer with this result code\n"
      "\n"
      "Each ALD is an HDLC secondary: it starts with no address and no link; SNRM -> UA\n"
      "(link up, numbers 0), DISC -> UA (link down); without a link RR and I-frames get DM;\n"
      "it takes part in the reset, the probes (while it has no address) and the address assignment.\n"
      "\n"
      "Commands on standard input or in --at (N counts ALDs from 1 in order of definition,\n"
      "plugged ones after them); each event prints '# ' and the command:\n"
      "  power N SECONDS      silent for SECONDS, then back with no address and no link\n"
      "  drop N               link lost (RR and I-frames get DM), address kept\n"
      "  unplug N             silent for good\n"
      "  plug ALD             a new ALD (syntax below), no address, no link\n"
      "  garble N KIND COUNT  the next COUNT replies of KIND (xid, ua, rr, dm, i, any, or assign:\n"
      "                       the XID that answers an address assignment) carry a wrong FCS\n"
      "  delay N MS           the next reply goes out MS ms late\n"
      "  address N A          ALD N on address A (1 to 254), link state kept\n"
      "  noise COUNT          COUNT random bytes (never a flag) on the bus at once\n"
      "  quiet N, wake N      silent until woken; alarm N CODE: tilt procedures answer CODE\n"
      "  list                 '# N ADDRESS|- up|down UIDHEX' per ALD\n"
      "ALDs on one address answer together, and their replies collide.\n"
      "Output: 'ready SLAVEPATH', then one line per frame,\n"
      "'HH:MM:SS.mmm RX|TX 7E .. 7E' ('TX COLLISION' when several ALDs answered at once),\n"
      "and informational lines starting with '# '.\n",
      out);
}

int SimOptions::readFile(const std::string& path, S_SimOptions& options, std::string& error) {
  std::ifstream in(path);
  if (!in) {
    error = "cannot read " + path;
    return -1;
  }
  std::string line;
  while (std::getline(in, line)) {
    size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos || line[first] == '#') continue;
    size_t last = line.find_last_not_of(" \t\r");
    S_AldConfig config;
    if (AldDescription::parse(line.substr(first, last - first + 1), config, error) != 0) return -1;
    options.alds.push_back(config);
  }
  return 0;
}

void SimOptions::addRandom(S_SimOptions& options) {
  // The engine's output is fixed by the standard, so a seed names the same bus everywhere.
  std::mt19937 engine(options.seed);
  for (unsigned int i = 0; i < options.randomCount; ++i) {
    S_AldConfig config;
    for (size_t b = 0; b < AldDescription::kMaxUidLength; ++b) config.uid.push_back(static_cast<uint8_t>(engine() & 0xFF));
    options.alds.push_back(config);
  }
}

int SimOptions::parse(int argc, char** argv, S_SimOptions& options, std::string& error) {
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      options.help = true;
      return 0;
    }
    if (arg == "--pace" || arg == "--always-linked") {
      (arg == "--pace" ? options.pace : options.alwaysLinked) = true;
      continue;
    }
    bool takesValue = arg == "--link" || arg == "--port" || arg == "--seed" || arg == "--random" || arg == "--file" ||
                      arg == "--at";
    if (takesValue) {
      if (i + 1 >= argc) {
        error = arg + " needs a value";
        return -1;
      }
      std::string value = argv[++i];
      unsigned long number = 0;
      if (arg == "--link") {
        options.link = value;
      } else if (arg == "--port") {
        options.port = value;
      } else if (arg == "--file") {
        if (readFile(value, options, error) != 0) return -1;
      } else if (arg == "--at") {
        options.events.emplace_back();
        if (SimSchedule::parse(value, options.events.back(), error) != 0) return -1;
      } else if (AldDescription::parseUnsigned(value, arg == "--seed" ? 0xFFFFFFFFul : kMaxAlds, number) != 0) {
        error = "bad number '" + value + "' for " + arg;
        return -1;
      } else {
        (arg == "--seed" ? options.seed : options.randomCount) = static_cast<unsigned int>(number);
      }
      continue;
    }
    if (arg.rfind("-", 0) == 0) {
      error = "unknown option " + arg;
      return -1;
    }
    S_AldConfig config;
    if (AldDescription::parse(arg, config, error) != 0) return -1;
    options.alds.push_back(config);
  }
  if (!options.link.empty() && !options.port.empty()) {
    error = "--link and --port exclude each other";
    return -1;
  }
  addRandom(options);
  if (options.alds.size() > kMaxAlds) {
    error = "more than 254 ALDs";
    return -1;
  }
  return SimSchedule::check(options.events, AldBus(options.alds, options.seed, options.alwaysLinked), error);
}
