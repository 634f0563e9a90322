#include "emulator/pci/bridge_windows.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "emulator/board_json.h"
#include "emulator/pci/bar_registers.h"
#include "emulator/pci/board_pci.h"

namespace qor::emu {

namespace {

constexpr uint64_t kIoGranule = 0x1000;
constexpr uint64_t kMemoryGranule = 0x100000;
constexpr uint64_t k4G = uint64_t{1} << 32;

struct Range {
  uint64_t First = UINT64_MAX;
  uint64_t Last = 0;
  bool Empty() const { return First > Last; }
  void Add(uint64_t Base, uint64_t Size) {
    First = std::min(First, Base);
    Last = std::max(Last, Base + Size - 1);
  }
};

void Put(std::vector<uint8_t> *Config, size_t Offset, uint64_t Value, int Bytes) {
  for (int I = 0; I < Bytes; I++) (*Config)[Offset + I] = static_cast<uint8_t>(Value >> (8 * I));
}

void WriteIo(std::vector<uint8_t> *Config, uint64_t First, uint64_t Last) {
  Put(Config, 0x1C, ((First >> 8) & 0xF0) | 0x01, 1);  // 32-bit I/O decoder
  Put(Config, 0x1D, ((Last >> 8) & 0xF0) | 0x01, 1);
  Put(Config, 0x30, First >> 16, 2);
  Put(Config, 0x32, Last >> 16, 2);
}
void WriteMemory(std::vector<uint8_t> *Config, uint64_t First, uint64_t Last) {
  Put(Config, 0x20, (First >> 16) & 0xFFF0, 2);
  Put(Config, 0x22, (Last >> 16) & 0xFFF0, 2);
}
void WritePrefetchable(std::vector<uint8_t> *Config, uint64_t First, uint64_t Last) {
  Put(Config, 0x24, ((First >> 16) & 0xFFF0) | 0x01, 2);  // 64-bit decoder
  Put(Config, 0x26, ((Last >> 16) & 0xFFF0) | 0x01, 2);
  Put(Config, 0x28, First >> 32, 4);
  Put(Config, 0x2C, Last >> 32, 4);
}

// [first, last] of a window, aligned to its granule and inside Top.
std::pair<uint64_t, uint64_t> ParseRange(const JsonField &Field, uint64_t Granule, uint64_t Top) {
  auto Ends = Field.Elements();
  if (Ends.size() != 2) Field.Fail("[first address, last address]");
  uint64_t First = Ends[0].Uint(Top), Last = Ends[1].Uint(Top);
  if (First % Granule != 0 || (Last + 1) % Granule != 0 || Last < First) {
    Field.Fail("a range from a multiple of " + std::to_string(Granule) + " to one byte below another");
  }
  return {First, Last};
}

}  // namespace

bool ParseBridgeWindows(const JsonField &Windows, std::vector<uint8_t> *Config) {
  if (Windows.IsString()) {
    std::string Mode = Windows.String();
    if (Mode != "auto" && Mode != "closed") Windows.Fail("\"auto\", \"closed\" or the ranges");
    return Mode == "auto";
  }
  Windows.AllowOnly({"io", "memory", "prefetchable"});
  if (auto Io = Windows.Optional("io")) {
    auto [First, Last] = ParseRange(*Io, kIoGranule, 0xFFFFFFFF);
    WriteIo(Config, First, Last);
  }
  if (auto Memory = Windows.Optional("memory")) {
    auto [First, Last] = ParseRange(*Memory, kMemoryGranule, 0xFFFFFFFF);
    WriteMemory(Config, First, Last);
  }
  if (auto Prefetchable = Windows.Optional("prefetchable")) {
    auto [First, Last] = ParseRange(*Prefetchable, kMemoryGranule, UINT64_MAX);
    WritePrefetchable(Config, First, Last);
  }
  return false;
}

void AssignBridgeWindows(const std::set<PciLocation> &Derived, std::vector<PciFunctionDef> *Functions) {
  std::vector<size_t> Auto;
  for (size_t I = 0; I < Functions->size(); I++) {
    if (Derived.count((*Functions)[I].Location()) != 0) Auto.push_back(I);
  }
  // The BARs of each bus, so a bridge reads only the buses below it.
  std::map<std::pair<uint16_t, unsigned>, std::vector<BarRegister>> BarsOnBus;
  for (const PciFunctionDef &F : *Functions) {
    std::vector<BarRegister> &On = BarsOnBus[{F.Segment, F.Bus}];
    for (const BarRegister &Bar : BarsOf(F)) On.push_back(Bar);
  }
  for (size_t Index : Auto) {
    PciFunctionDef &Bridge = (*Functions)[Index];
    uint8_t Secondary = Bridge.Config[0x19], Subordinate = Bridge.Config[0x1A];
    Range Io, Memory, Prefetchable;
    auto First = BarsOnBus.lower_bound({Bridge.Segment, Secondary});
    auto Last = BarsOnBus.upper_bound({Bridge.Segment, Subordinate});
    for (auto It = First; Secondary <= Subordinate && It != Last; ++It) {
      for (const BarRegister &Bar : It->second) {
        if (Bar.Base == 0) continue;
        if (Bar.Io) {
          Io.Add(Bar.Base, Bar.Size);
        } else if (Bar.Prefetchable && Bar.Wide) {
          Prefetchable.Add(Bar.Base, Bar.Size);
        } else if (Bar.Base + Bar.Size <= k4G) {  // the memory window decodes 32 bits only
          Memory.Add(Bar.Base, Bar.Size);
        }
      }
    }
    auto Down = [](uint64_t Value, uint64_t Granule) { return Value & ~(Granule - 1); };
    auto Up = [](uint64_t Value, uint64_t Granule) { return Value | (Granule - 1); };
    if (!Io.Empty()) WriteIo(&Bridge.Config, Down(Io.First, kIoGranule), Up(Io.Last, kIoGranule));
    if (!Memory.Empty()) WriteMemory(&Bridge.Config, Down(Memory.First, kMemoryGranule), Up(Memory.Last, kMemoryGranule));
    if (!Prefetchable.Empty()) {
      WritePrefetchable(&Bridge.Config, Down(Prefetchable.First, kMemoryGranule), Up(Prefetchable.Last, kMemoryGranule));
    }
  }
}

}  // namespace qor::emu
