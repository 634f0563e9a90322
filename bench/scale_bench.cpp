// How a boot's cost grows with the machine: boots of generated boards of 64
// to 1,024 PCI functions (4 sockets, 64 DIMMs, 1,000 memory descriptors;
// tools/board_generator.h). Per size: time per boot, configuration reads and
// writes per function, pool peak and allocations, and time_ratio, the time
// of this size over the time of half this size (2.0 is linear growth).
// docs/benchmarks.md has the measured numbers and what they say.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <map>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "tools/board_generator.h"

namespace {

qor::tool::BoardShape ShapeOf(int64_t Functions) { return {static_cast<uint32_t>(Functions), 4, 64, 1000}; }

// Boots Board once per iteration and returns the last boot. Measured holds
// the seconds per boot of each size run so far (the benchmark's argument);
// time_ratio is this size's time over that of half this size.
qor::emu::BootResult BootRepeatedly(benchmark::State &State, const qor::emu::Board &Board,
                                    std::map<int64_t, double> *Measured) {
  qor::emu::BootResult Last;
  auto Start = std::chrono::steady_clock::now();
  for (auto _ : State) {
    Last = qor::emu::RunBoot(Board);
    benchmark::DoNotOptimize(Last.Uploads.size());
  }
  double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count() /
                   static_cast<double>(State.iterations());
  const int64_t Size = State.range(0);
  (*Measured)[Size] = Seconds;
  auto Half = Measured->find(Size / 2);
  if (Half != Measured->end()) State.counters["time_ratio"] = Seconds / Half->second;
  return Last;
}

void BM_BootGeneratedBoard(benchmark::State &State) {
  const int64_t Functions = State.range(0);
  qor::emu::Board Board = qor::emu::ParseBoard(qor::tool::GenerateBoard(ShapeOf(Functions)));
  static std::map<int64_t, double> Measured;
  qor::emu::BootResult Last = BootRepeatedly(State, Board, &Measured);
  double N = static_cast<double>(Functions);
  State.counters["reads_per_function"] = static_cast<double>(Last.PciConfigReads) / N;
  State.counters["writes_per_function"] = static_cast<double>(Last.PciConfigWrites) / N;
  State.counters["pool_peak_bytes"] = static_cast<double>(Last.Pool.PeakBytesHeld);
  State.counters["allocations"] = static_cast<double>(Last.Pool.Allocations);
  State.counters["bytes_allocated"] = static_cast<double>(Last.Pool.BytesAllocated);
  const qor::emu::Upload *Document = Last.FindUpload("push_BiosBeforeBoot.json");
  State.counters["document_bytes"] = Document == nullptr ? 0.0 : static_cast<double>(Document->Bytes.size());
}
BENCHMARK(BM_BootGeneratedBoard)->RangeMultiplier(2)->Range(64, 1024)->Unit(benchmark::kMillisecond);

// The memory map alone: boots of a 64-function board with 250 to 4,000
// memory descriptors (the MemoryMap section holds about 3,500).
void BM_BootGeneratedMemoryMap(benchmark::State &State) {
  const int64_t Descriptors = State.range(0);
  qor::emu::Board Board =
      qor::emu::ParseBoard(qor::tool::GenerateBoard({64, 4, 64, static_cast<uint32_t>(Descriptors)}));
  static std::map<int64_t, double> Measured;
  qor::emu::BootResult Last = BootRepeatedly(State, Board, &Measured);
  State.counters["bytes_allocated"] = static_cast<double>(Last.Pool.BytesAllocated);
}
BENCHMARK(BM_BootGeneratedMemoryMap)->Arg(250)->Arg(500)->Arg(1000)->Arg(2000)->Arg(4000)->Unit(benchmark::kMillisecond);

// Reading a generated board: parsing, building configuration spaces,
// assigning BARs and windows (once per board, not per boot).
void BM_LoadGeneratedBoard(benchmark::State &State) {
  std::string Text = qor::tool::GenerateBoard(ShapeOf(State.range(0)));
  for (auto _ : State) benchmark::DoNotOptimize(qor::emu::ParseBoard(Text).Pci.Functions.size());
}
BENCHMARK(BM_LoadGeneratedBoard)->RangeMultiplier(2)->Range(64, 1024)->Unit(benchmark::kMillisecond);

}  // namespace
