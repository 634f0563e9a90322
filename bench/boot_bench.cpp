// Benchmarks of whole emulated boots and of the upload's json work. Counters
// report what a boot costs the firmware (allocations, peak pool use, calls).
#include <benchmark/benchmark.h>

#include <string>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/platform.h"

namespace {

void BM_BootBuiltInBoard(benchmark::State &State) {
  qor::emu::Board Board = qor::emu::BuiltInBoard();
  qor::emu::BootResult Last;
  for (auto _ : State) {
    Last = qor::emu::RunBoot(Board);
    benchmark::DoNotOptimize(Last.Uploads.size());
  }
  uint64_t Calls = 0;
  for (const auto &Entry : Last.ServiceCalls) Calls += Entry.second;
  State.counters["allocations"] = static_cast<double>(Last.Pool.Allocations);
  State.counters["peak_pool_bytes"] = static_cast<double>(Last.Pool.PeakBytesHeld);
  State.counters["service_calls"] = static_cast<double>(Calls);
  State.counters["cpu_accesses"] = static_cast<double>(Last.CpuAccesses);
  const qor::emu::Upload *Document = Last.FindUpload("push_BiosBeforeBoot.json");
  State.counters["document_bytes"] = Document == nullptr ? 0.0 : static_cast<double>(Document->Bytes.size());
}
BENCHMARK(BM_BootBuiltInBoard)->Unit(benchmark::kMillisecond);

// Pretty printing a document of N sections of filler text, as the upload does.
void BM_JsonPrettyPrint(benchmark::State &State) {
  std::string Text = "{";
  for (int64_t I = 0; I < State.range(0); I++) {
    Text += "\"Section" + std::to_string(I) + "\":{\"InfoList\":[";
    for (int J = 0; J < 64; J++) Text += "{\"Index\":" + std::to_string(J) + ",\"Name\":\"value\"},";
    Text.back() = ']';
    Text += "},";
  }
  Text.back() = '}';
  std::string Output(Text.size() * 4 + 1, '\0');
  for (auto _ : State) {
    benchmark::DoNotOptimize(qor::emu::JsonPrettyPrintText(Text.c_str(), Output.size(), Output.data()));
  }
  State.SetBytesProcessed(static_cast<int64_t>(State.iterations()) * static_cast<int64_t>(Text.size()));
}
BENCHMARK(BM_JsonPrettyPrint)->Arg(14)->Arg(140);

}  // namespace

BENCHMARK_MAIN();
