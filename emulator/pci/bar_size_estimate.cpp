#include "emulator/pci/bar_size_estimate.h"

#include <algorithm>
#include <cstdint>

namespace qor::emu {

namespace {

constexpr uint64_t kMaxIoBar = 256;
constexpr uint64_t kMinIoBar = 4;
constexpr uint64_t kMinMemoryBar = 16;

struct Bar {
  size_t Function;
  size_t Index;
  bool Io;
  uint64_t Base;
};

struct Window {
  uint64_t Base = 1;
  uint64_t Limit = 0;  // Base > Limit: the bridge forwards nothing
  bool Holds(uint64_t Address) const { return Base <= Limit && Address >= Base && Address <= Limit; }
};

uint32_t Dword(const std::vector<uint8_t> &Config, size_t At) {
  return static_cast<uint32_t>(Config[At] | (Config[At + 1] << 8) | (Config[At + 2] << 16)) |
         (static_cast<uint32_t>(Config[At + 3]) << 24);
}

uint16_t Word(const std::vector<uint8_t> &Config, size_t At) {
  return static_cast<uint16_t>(Config[At] | (Config[At + 1] << 8));
}

size_t BarCount(const std::vector<uint8_t> &Config) {
  if (Word(Config, 0x00) == 0xFFFF) return 0;
  switch (Config[0x0E] & 0x7F) {
    case 0: return 6;
    case 1: return 2;
    case 2: return 1;
    default: return 0;
  }
}

std::vector<Bar> AssignedBars(const std::vector<ImportedFunction> &Functions) {
  std::vector<Bar> Bars;
  for (size_t F = 0; F < Functions.size(); F++) {
    const std::vector<uint8_t> &Config = Functions[F].Dumped.Config;
    size_t Count = BarCount(Config);
    for (size_t I = 0; I < Count; I++) {
      uint32_t Low = Dword(Config, 0x10 + 4 * I);
      Bar B{F, I, (Low & 1) != 0, 0};
      if (B.Io) {
        B.Base = Low & ~uint32_t{3};
      } else {
        uint32_t Type = (Low >> 1) & 3;
        if (Type == 3) continue;  // reserved
        B.Base = Low & ~uint32_t{0xF};
        if (Type == 2 && I + 1 < Count) B.Base |= uint64_t{Dword(Config, 0x10 + 4 * (++I))} << 32;
      }
      if (B.Base != 0) Bars.push_back(B);
    }
  }
  return Bars;
}

// The windows a PCI-to-PCI bridge forwards: I/O, memory, prefetchable.
std::vector<Window> WindowsOf(const std::vector<uint8_t> &Config) {
  if ((Config[0x0E] & 0x7F) != 1) return {};
  Window Io, Memory, Prefetchable;
  Io.Base = uint64_t{Config[0x1C] & 0xF0u} << 8;
  Io.Limit = (uint64_t{Config[0x1D] & 0xF0u} << 8) | 0xFFF;
  if ((Config[0x1C] & 0x0F) == 1) {
    Io.Base |= uint64_t{Word(Config, 0x30)} << 16;
    Io.Limit |= uint64_t{Word(Config, 0x32)} << 16;
  }
  Memory.Base = uint64_t{Word(Config, 0x20) & 0xFFF0u} << 16;
  Memory.Limit = (uint64_t{Word(Config, 0x22) & 0xFFF0u} << 16) | 0xFFFFF;
  Prefetchable.Base = uint64_t{Word(Config, 0x24) & 0xFFF0u} << 16;
  Prefetchable.Limit = (uint64_t{Word(Config, 0x26) & 0xFFF0u} << 16) | 0xFFFFF;
  if ((Config[0x24] & 0x0F) == 1) {
    Prefetchable.Base |= uint64_t{Dword(Config, 0x28)} << 32;
    Prefetchable.Limit |= uint64_t{Dword(Config, 0x2C)} << 32;
  }
  return {Io, Memory, Prefetchable};
}

uint64_t SizeOf(const Bar &B, const std::vector<Window> &ParentWindows, const std::vector<uint64_t> &SameSpaceBases) {
  uint64_t Smallest = B.Io ? kMinIoBar : kMinMemoryBar;
  auto [First, Next] = std::equal_range(SameSpaceBases.begin(), SameSpaceBases.end(), B.Base);
  if (Next - First > 1) return Smallest;
  uint64_t Size = B.Base & (~B.Base + 1);
  if (B.Io) Size = std::min(Size, kMaxIoBar);
  for (size_t W = 0; W < ParentWindows.size(); W++) {
    bool SameSpace = (W == 0) == B.Io;
    if (!SameSpace || !ParentWindows[W].Holds(B.Base)) continue;
    while (Size > 1 && Size - 1 > ParentWindows[W].Limit - B.Base) Size >>= 1;
  }
  if (Next != SameSpaceBases.end()) {
    while (Size > 1 && Size > *Next - B.Base) Size >>= 1;
  }
  return std::max(Size, Smallest);
}

}  // namespace

void EstimateBarSizes(std::vector<ImportedFunction> *Functions) {
  std::vector<Bar> Bars = AssignedBars(*Functions);
  std::vector<uint64_t> IoBases, MemoryBases;
  for (const Bar &B : Bars) (B.Io ? IoBases : MemoryBases).push_back(B.Base);
  std::sort(IoBases.begin(), IoBases.end());
  std::sort(MemoryBases.begin(), MemoryBases.end());
  for (ImportedFunction &F : *Functions) F.BarSizes.fill(0);
  for (const Bar &B : Bars) {
    ImportedFunction &F = (*Functions)[B.Function];
    std::vector<Window> ParentWindows;
    if (F.Parent >= 0) ParentWindows = WindowsOf((*Functions)[static_cast<size_t>(F.Parent)].Dumped.Config);
    F.BarSizes[B.Index] = SizeOf(B, ParentWindows, B.Io ? IoBases : MemoryBases);
  }
}

}  // namespace qor::emu
