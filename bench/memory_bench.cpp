// The driver's memory library against the C library on the same buffers.
// A boot clears about 35.5 MB of pool (fourteen section buffers, the
// assembly buffer and the pretty-print buffer) and copies the document
// around, so these two operations set the floor of a boot.
//
// Each iteration times the driver's routine and the C library's on the same
// buffer, alternating which goes first, so both see the same machine load;
// the counters give the mean time of each and their ratio. Times are the
// thread's CPU time, so a shared machine's preemptions stay out of them.
#include <benchmark/benchmark.h>

#include <time.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/base_lib.h"

namespace {

constexpr size_t kBootClearedBytes = 35500000;  // 35.5 MB

double ThreadSeconds() {
  timespec Now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &Now);
  return static_cast<double>(Now.tv_sec) + static_cast<double>(Now.tv_nsec) * 1e-9;
}

template <typename Operation>
double Seconds(Operation &&Run) {
  const double Start = ThreadSeconds();
  Run();
  benchmark::ClobberMemory();
  return ThreadSeconds() - Start;
}

// Runs both operations once per iteration and reports their mean times (ms)
// and Library / C library.
template <typename Library, typename CLibrary>
void TimeSideBySide(benchmark::State &State, Library &&RunLibrary, CLibrary &&RunCLibrary, size_t Bytes) {
  double LibrarySeconds = 0;
  double CLibrarySeconds = 0;
  bool LibraryFirst = true;
  for (auto _ : State) {
    if (LibraryFirst) {
      LibrarySeconds += Seconds(RunLibrary);
      CLibrarySeconds += Seconds(RunCLibrary);
    } else {
      CLibrarySeconds += Seconds(RunCLibrary);
      LibrarySeconds += Seconds(RunLibrary);
    }
    LibraryFirst = !LibraryFirst;
  }
  const double Iterations = static_cast<double>(State.iterations());
  State.counters["qor_ms"] = LibrarySeconds * 1e3 / Iterations;
  State.counters["libc_ms"] = CLibrarySeconds * 1e3 / Iterations;
  State.counters["ratio"] = CLibrarySeconds > 0 ? LibrarySeconds / CLibrarySeconds : 0;
  State.SetBytesProcessed(static_cast<int64_t>(State.iterations()) * static_cast<int64_t>(2 * Bytes));
}

// Buffers are written once before timing so page faults stay out of it.
std::vector<unsigned char> TouchedBuffer(size_t Bytes) { return std::vector<unsigned char>(Bytes, 0x5A); }

// Arg: the offset of the destination from a 64-byte boundary.
void BM_ZeroMemVersusMemset(benchmark::State &State) {
  const size_t Offset = static_cast<size_t>(State.range(0));
  std::vector<unsigned char> Buffer = TouchedBuffer(kBootClearedBytes + 64);
  unsigned char *Target = Buffer.data() + Offset;
  TimeSideBySide(
      State, [&] { QorZeroMem(Target, kBootClearedBytes); },
      [&] { std::memset(Target, 0, kBootClearedBytes); }, kBootClearedBytes);
}
BENCHMARK(BM_ZeroMemVersusMemset)->Arg(0)->Arg(3)->Unit(benchmark::kMillisecond);

// Args: destination and source offsets from a 64-byte boundary.
void BM_CopyMemVersusMemcpy(benchmark::State &State) {
  const size_t DestinationOffset = static_cast<size_t>(State.range(0));
  const size_t SourceOffset = static_cast<size_t>(State.range(1));
  std::vector<unsigned char> To = TouchedBuffer(kBootClearedBytes + 64);
  std::vector<unsigned char> From = TouchedBuffer(kBootClearedBytes + 64);
  unsigned char *Destination = To.data() + DestinationOffset;
  const unsigned char *Source = From.data() + SourceOffset;
  TimeSideBySide(
      State, [&] { QorCopyMem(Destination, Source, kBootClearedBytes); },
      [&] { std::memcpy(Destination, Source, kBootClearedBytes); }, kBootClearedBytes);
}
BENCHMARK(BM_CopyMemVersusMemcpy)->Args({0, 0})->Args({3, 0})->Args({0, 5})->Unit(benchmark::kMillisecond);

// A copy one byte up within one buffer: the backward direction, beside
// memmove.
void BM_OverlappingCopyMemVersusMemmove(benchmark::State &State) {
  std::vector<unsigned char> Buffer = TouchedBuffer(kBootClearedBytes + 64);
  unsigned char *Source = Buffer.data();
  TimeSideBySide(
      State, [&] { QorCopyMem(Source + 1, Source, kBootClearedBytes); },
      [&] { std::memmove(Source + 1, Source, kBootClearedBytes); }, kBootClearedBytes);
}
BENCHMARK(BM_OverlappingCopyMemVersusMemmove)->Unit(benchmark::kMillisecond);

// Small buffers: the structure clears and copies a boot makes by the
// thousand. Arg: the length.
void BM_SmallCopyMemVersusMemcpy(benchmark::State &State) {
  const size_t Length = static_cast<size_t>(State.range(0));
  unsigned char To[512];
  unsigned char From[512];
  std::memset(From, 0x5A, sizeof(From));
  constexpr int kRepeats = 4096;  // enough work per timing for the clock
  TimeSideBySide(
      State,
      [&] {
        for (int I = 0; I < kRepeats; I++) {
          benchmark::DoNotOptimize(QorCopyMem(To, From, Length));
        }
      },
      [&] {
        for (int I = 0; I < kRepeats; I++) {
          benchmark::DoNotOptimize(std::memcpy(To, From, Length));
          benchmark::ClobberMemory();
        }
      },
      Length * kRepeats);
}
BENCHMARK(BM_SmallCopyMemVersusMemcpy)->Arg(8)->Arg(40)->Arg(300)->Unit(benchmark::kMicrosecond);

}  // namespace
