// Codec throughput: encode and decode of typical I-frames, beside plain
// byte-at-a-time loops over the same bytes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "aisgAppLayer/commManager/hdlcProtocol.h"
#include "benchParts.h"

namespace bench {

namespace {

// Data of the given length with the few flag and escape bytes of random data,
// but never so many that the frame outgrows 268 bytes once stuffed.
S_HdlcPacket typicalFrame(unsigned int dataLength) {
  S_HdlcPacket packet;
  memset(&packet, 0, sizeof(packet));
  packet.pollFinal = 1;
  packet.address = 1;
  packet.dataLength = static_cast<uint16_t>(dataLength);
  uint32_t seed = 12345;
  unsigned int escapes = 0;
  for (unsigned int i = 0; i < dataLength; ++i) {
    seed = seed * 1103515245u + 12345u;
    uint8_t byte = static_cast<uint8_t>(seed >> 16);
    bool special = byte == hdlc::kFlag || byte == hdlc::kEscape;
    // Room is kept for the two FCS bytes to need an escape as well.
    if (special && dataLength + 4 + ++escapes > hdlc::kMaxContent - 2) byte = 0x55;
    packet.data[i] = byte;
  }
  return packet;
}

void encodeFrame(benchmark::State& state) {
  S_HdlcPacket packet = typicalFrame(static_cast<unsigned int>(state.range(0)));
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  for (auto _ : state) {
    int result = HdlcProtocol::encode(&packet, buffer, &length, hdlc::kStructured);
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
  }
  if (HdlcProtocol::encode(&packet, buffer, &length, hdlc::kStructured) != 0) state.SkipWithError("encode failed");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void decodeFrame(benchmark::State& state) {
  S_HdlcPacket packet = typicalFrame(static_cast<unsigned int>(state.range(0)));
  unsigned char buffer[hdlc::kMaxFrame];
  unsigned int length = 0;
  HdlcProtocol::encode(&packet, buffer, &length, hdlc::kStructured);
  S_HdlcPacket decoded;
  for (auto _ : state) {
    int result = HdlcProtocol::decode(buffer, length, &decoded, hdlc::kStructured);
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
  }
  if (HdlcProtocol::decode(buffer, length, &decoded, hdlc::kStructured) != 0) state.SkipWithError("decode failed");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// Reference: a plain copy with the same stuffing test, over address, control, data and FCS.
void stuffingCopy(benchmark::State& state) {
  S_HdlcPacket packet = typicalFrame(static_cast<unsigned int>(state.range(0)));
  const unsigned char* source = &packet.address;
  const unsigned int count = static_cast<unsigned int>(state.range(0)) + 4;
  unsigned char target[2 * sizeof(packet)];
  for (auto _ : state) {
    unsigned int out = 0;
    for (unsigned int i = 0; i < count; ++i) {
      unsigned char byte = source[i];
      if (byte == hdlc::kFlag || byte == hdlc::kEscape) {
        target[out++] = hdlc::kEscape;
        byte ^= 0x20;
      }
      target[out++] = byte;
    }
    benchmark::DoNotOptimize(target);
    benchmark::DoNotOptimize(out);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// The FCS-16 lookup table, built from its polynomial rather than copied.
struct FcsTable {
  uint16_t entries[256];
  FcsTable() {
    for (unsigned int i = 0; i < 256; ++i) {
      uint16_t value = static_cast<uint16_t>(i);
      for (int bit = 0; bit < 8; ++bit) value = (value & 1) ? static_cast<uint16_t>((value >> 1) ^ 0x8408) : value >> 1;
      entries[i] = value;
    }
  }
};

// Reference: a plain table-driven FCS-16 loop over the same bytes.
void fcsLoop(benchmark::State& state) {
  static const FcsTable table;
  S_HdlcPacket packet = typicalFrame(static_cast<unsigned int>(state.range(0)));
  const unsigned char* source = &packet.address;
  const unsigned int count = static_cast<unsigned int>(state.range(0)) + 2;
  for (auto _ : state) {
    uint16_t fcs = 0xFFFF;
    for (unsigned int i = 0; i < count; ++i) fcs = static_cast<uint16_t>(table.entries[(fcs ^ source[i]) & 0xFF] ^ (fcs >> 8));
    benchmark::DoNotOptimize(fcs);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

BENCHMARK(encodeFrame)->Arg(100)->Arg(262);
BENCHMARK(decodeFrame)->Arg(100)->Arg(262);
BENCHMARK(stuffingCopy)->Arg(100)->Arg(262);
BENCHMARK(fcsLoop)->Arg(100)->Arg(262);

// Keeps the rate of every run for the table instead of printing it.
class RateCollector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      auto rate = run.counters.find("bytes_per_second");
      if (!run.error_occurred && rate != run.counters.end()) rates[run.benchmark_name()] = rate->second.value / 1e6;
    }
  }
  std::map<std::string, double> rates;
};

}  // namespace

std::map<std::string, double> runCodec() {
  // Short runs: the figures are far from mattering at 960 bytes per second on the wire.
  char name[] = "pkbench";
  char minTime[] = "--benchmark_min_time=0.2";
  char* argv[] = {name, minTime, nullptr};
  int argc = 2;
  benchmark::Initialize(&argc, argv);
  RateCollector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  return collector.rates;
}

}  // namespace bench
