// BARs a board leaves without a base get one as a bus driver assigns it,
// and the bridges' windows then follow them. Each case reads the registers
// the board's functions end up with and decodes them by the PCI-to-PCI
// bridge register layout.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/pci/bar_registers.h"

namespace {

using qor::emu::BarRegister;
using qor::emu::Board;
using qor::emu::PciFunctionDef;

constexpr uint64_t kMemoryPoolFirst = 0x90000000, kMemoryPoolLast = 0xFBFFFFFF;
constexpr uint64_t kPrefetchablePoolFirst = 0x20000000000;

Board PciBoard(const std::string &HostBridges) {
  return qor::emu::ParseBoard(R"({"pci": {"hostBridges": [)" + HostBridges + "]}}");
}

const PciFunctionDef &At(const Board &B, uint8_t Bus, uint8_t Device, uint8_t Function = 0) {
  for (const PciFunctionDef &F : B.Pci.Functions) {
    if (F.Bus == Bus && F.Device == Device && F.Function == Function) return F;
  }
  throw std::runtime_error("no function there");
}

uint64_t Le(const PciFunctionDef &F, size_t Offset, int Bytes) {
  uint64_t Value = 0;
  for (int I = Bytes - 1; I >= 0; I--) Value = Value << 8 | F.Config[Offset + I];
  return Value;
}

struct Window {
  uint64_t First = 1, Last = 0;
  bool Open() const { return First <= Last; }
  bool Holds(uint64_t Base, uint64_t Size) const { return Open() && Base >= First && Base + Size - 1 <= Last; }
  bool Overlaps(const Window &O) const { return Open() && O.Open() && First <= O.Last && O.First <= Last; }
};

Window IoWindow(const PciFunctionDef &F) {
  if ((F.Config[0x1C] & 0xF0) > (F.Config[0x1D] & 0xF0)) return {};
  return {(F.Config[0x1C] & 0xF0u) << 8 | Le(F, 0x30, 2) << 16, (F.Config[0x1D] & 0xF0u) << 8 | 0xFFF | Le(F, 0x32, 2) << 16};
}
Window MemoryWindow(const PciFunctionDef &F) {
  return {(Le(F, 0x20, 2) & 0xFFF0) << 16, (Le(F, 0x22, 2) & 0xFFF0) << 16 | 0xFFFFF};
}
Window PrefetchableWindow(const PciFunctionDef &F) {
  return {(Le(F, 0x24, 2) & 0xFFF0) << 16 | Le(F, 0x28, 4) << 32, (Le(F, 0x26, 2) & 0xFFF0) << 16 | 0xFFFFF | Le(F, 0x2C, 4) << 32};
}
// The window of a bridge that forwards a BAR of this kind.
Window WindowFor(const PciFunctionDef &Bridge, const BarRegister &Bar) {
  if (Bar.Io) return IoWindow(Bridge);
  return Bar.Prefetchable && Bar.Wide ? PrefetchableWindow(Bridge) : MemoryWindow(Bridge);
}

// Register | type                 | size | pool
// 0x10     | mem32                | 4K   | memory, below 4 GiB
// 0x14     | mem32, prefetchable  | 1M   | memory, below 4 GiB
// 0x18     | mem64                | 16K  | memory, below 4 GiB (the memory window decodes 32 bits)
// 0x20     | mem64, prefetchable  | 1G   | 64-bit prefetchable, from 2 TiB
// 0x10 .1  | io                   | 32   | I/O, 0x1000-0xFFFF
// 0x14 .1  | io16                 | 8    | I/O
TEST(BarAssignment, EveryBarWithoutABaseGetsOneAlignedToItsSizeInItsPoolAndInsideItsPortsWindow) {
  Board B = PciBoard(R"({"buses": [0, 3], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [
      {"vendorId": "0x1AB4", "bars": [{"size": "4K"}, {"size": "1M", "prefetchable": true}, {"type": "mem64", "size": "16K"},
                                     {"type": "mem64", "size": "1G", "prefetchable": true}]},
      {"function": 1, "vendorId": "0x1AB4", "bars": [{"type": "io", "size": 32}, {"type": "io16", "size": 8}]}]}]})");
  const PciFunctionDef &Port = At(B, 0, 1);
  int Seen = 0;
  for (const PciFunctionDef *F : {&At(B, 1, 0, 0), &At(B, 1, 0, 1)}) {
    for (const BarRegister &Bar : qor::emu::BarsOf(*F)) {
      SCOPED_TRACE(testing::Message() << "function " << int(F->Function) << " BAR " << Bar.Index);
      Seen++;
      EXPECT_NE(Bar.Base, 0u);
      EXPECT_EQ(Bar.Base % Bar.Size, 0u) << std::hex << Bar.Base;
      if (Bar.Io) {
        EXPECT_GE(Bar.Base, 0x1000u);
        EXPECT_LE(Bar.Base + Bar.Size - 1, 0xFFFFu);
      } else if (Bar.Prefetchable && Bar.Wide) {
        EXPECT_GE(Bar.Base, kPrefetchablePoolFirst);
      } else {
        EXPECT_GE(Bar.Base, kMemoryPoolFirst);
        EXPECT_LE(Bar.Base + Bar.Size - 1, kMemoryPoolLast);
      }
      EXPECT_TRUE(WindowFor(Port, Bar).Holds(Bar.Base, Bar.Size)) << std::hex << Bar.Base;
    }
  }
  EXPECT_EQ(Seen, 6);
}

// The prefetchable window decodes 64 bits and forwards only the 64-bit
// prefetchable BAR; the 32-bit prefetchable one goes through the memory
// window, so the prefetchable window never reaches below 4 GiB.
TEST(BarAssignment, A32BitPrefetchableBarIsForwardedByTheMemoryWindow) {
  Board B = PciBoard(R"({"buses": [0, 3], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [
      {"vendorId": "0x1AB4", "bars": [{"size": "1M", "prefetchable": true}, {"type": "mem64", "size": "1G", "prefetchable": true}]}]}]})");
  std::vector<BarRegister> Bars = qor::emu::BarsOf(At(B, 1, 0));
  ASSERT_EQ(Bars.size(), 2u);
  const PciFunctionDef &Port = At(B, 0, 1);
  EXPECT_TRUE(MemoryWindow(Port).Holds(Bars[0].Base, Bars[0].Size));
  Window Prefetchable = PrefetchableWindow(Port);
  EXPECT_EQ(Prefetchable.First, Bars[1].Base);
  EXPECT_EQ(Prefetchable.Last, Bars[1].Base + Bars[1].Size - 1);
}

// Root port 1: an endpoint (1M, 256M prefetchable). Root port 2: a switch
// whose two downstream ports lead to a 16K BAR and a 1G prefetchable BAR;
// the switch's upstream port has a 64K BAR of its own.
TEST(BarAssignment, SiblingWindowsNeverOverlapAndEachHoldsEverythingBelowIt) {
  Board B = PciBoard(R"({"buses": [0, 9], "devices": [
      {"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [
        {"vendorId": "0x1AB4", "bars": [{"size": "1M"}, {"type": "mem64", "size": "256M", "prefetchable": true}]}]},
      {"device": 2, "type": "rootPort", "vendorId": "0x8086", "devices": [
        {"type": "upstreamPort", "vendorId": "0x10B5", "bars": [{"size": "64K"}], "devices": [
          {"device": 0, "type": "downstreamPort", "vendorId": "0x10B5", "devices": [{"vendorId": "0x1AB4", "bars": [{"size": "16K"}]}]},
          {"device": 1, "type": "downstreamPort", "vendorId": "0x10B5", "devices": [
            {"vendorId": "0x1AB4", "bars": [{"type": "mem64", "size": "1G", "prefetchable": true}]}]}]}]}]})");
  // Buses depth first: port 1 -> 1; port 2 -> 2, switch -> 3, its ports -> 4 and 5.
  const PciFunctionDef &Port1 = At(B, 0, 1), &Port2 = At(B, 0, 2), &Upstream = At(B, 2, 0);
  const PciFunctionDef &Down0 = At(B, 3, 0), &Down1 = At(B, 3, 1);
  EXPECT_FALSE(MemoryWindow(Port1).Overlaps(MemoryWindow(Port2)));
  EXPECT_FALSE(PrefetchableWindow(Port1).Overlaps(PrefetchableWindow(Port2)));
  EXPECT_FALSE(MemoryWindow(Down0).Overlaps(MemoryWindow(Down1)));
  struct Path {
    const PciFunctionDef *Function;
    std::vector<const PciFunctionDef *> Above;
  } Paths[] = {{&At(B, 1, 0), {&Port1}},
               {&Upstream, {&Port2}},
               {&At(B, 4, 0), {&Down0, &Upstream, &Port2}},
               {&At(B, 5, 0), {&Down1, &Upstream, &Port2}}};
  for (const Path &P : Paths) {
    for (const BarRegister &Bar : qor::emu::BarsOf(*P.Function)) {
      EXPECT_EQ(Bar.Base % Bar.Size, 0u);
      for (const PciFunctionDef *Bridge : P.Above) {
        EXPECT_TRUE(WindowFor(*Bridge, Bar).Holds(Bar.Base, Bar.Size))
            << std::hex << Bar.Base << " not behind the bridge at " << int(Bridge->Bus) << ":" << int(Bridge->Device);
      }
    }
  }
  // The upstream port's own BAR is forwarded by the root port, not by the
  // switch's own window.
  BarRegister Own = qor::emu::BarsOf(Upstream).at(0);
  EXPECT_FALSE(MemoryWindow(Upstream).Holds(Own.Base, Own.Size));
}

TEST(BarAssignment, BasesTheBoardGivesAreKeptAndNeverOverlapped) {
  Board B = PciBoard(R"({"buses": [0, 3], "devices": [
      {"device": 1, "type": "rootPort", "vendorId": "0x8086", "devices": [{"vendorId": "0x1AB4", "bars": [{"size": "1M"}]}]},
      {"device": 2, "type": "rootPort", "vendorId": "0x8086", "devices": [
        {"vendorId": "0x1AB4", "bars": [{"size": "256M", "base": "0x90000000"}, {"size": "4K", "base": 0}]}]}]})");
  BarRegister Given = qor::emu::BarsOf(At(B, 2, 0)).at(0);
  EXPECT_EQ(Given.Base, 0x90000000u);
  EXPECT_EQ(qor::emu::BarsOf(At(B, 2, 0)).at(1).Base, 0u) << "a base of 0 stays unassigned";
  BarRegister Assigned = qor::emu::BarsOf(At(B, 1, 0)).at(0);
  EXPECT_TRUE(Assigned.Base + Assigned.Size <= Given.Base || Assigned.Base >= Given.Base + Given.Size)
      << std::hex << Assigned.Base;
  EXPECT_FALSE(MemoryWindow(At(B, 0, 1)).Overlaps(MemoryWindow(At(B, 0, 2))));
}

// Sixteen ports each need a 4 KiB I/O window; 0x1000-0xFFFF holds fifteen.
TEST(BarAssignment, WhatDoesNotFitItsPoolStaysUnassignedAndTheRestIsPlaced) {
  std::string Ports;
  for (int Device = 1; Device <= 16; Device++) {
    Ports += (Device > 1 ? "," : "") + std::string(R"({"device": )") + std::to_string(Device) +
             R"(, "type": "rootPort", "vendorId": "0x8086", "devices": [{"vendorId": "0x1AB4", "bars": [{"type": "io", "size": 16}]}]})";
  }
  Board B = PciBoard(R"({"buses": [0, 20], "devices": [)" + Ports + "]}");
  int Placed = 0;
  for (int Device = 1; Device <= 16; Device++) {
    const PciFunctionDef &Port = At(B, 0, static_cast<uint8_t>(Device));
    BarRegister Bar = qor::emu::BarsOf(At(B, Port.Config[0x19], 0)).at(0);
    if (Bar.Base == 0) {
      EXPECT_FALSE(IoWindow(Port).Open()) << "port " << Device;
      continue;
    }
    Placed++;
    EXPECT_TRUE(IoWindow(Port).Holds(Bar.Base, Bar.Size)) << "port " << Device;
  }
  EXPECT_EQ(Placed, 15);
}

TEST(BarAssignment, BarsBehindABridgeWhoseWindowsTheBoardSetsGetNoBase) {
  Board B = PciBoard(R"({"buses": [0, 3], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x8086",
      "windows": "closed", "bars": [{"size": "4K"}], "devices": [{"vendorId": "0x1AB4", "bars": [{"size": "1M"}]}]}]})");
  EXPECT_EQ(qor::emu::BarsOf(At(B, 1, 0)).at(0).Base, 0u);
  EXPECT_NE(qor::emu::BarsOf(At(B, 0, 1)).at(0).Base, 0u) << "the port's own BAR sits on the root bus";
  EXPECT_FALSE(MemoryWindow(At(B, 0, 1)).Open());
}

}  // namespace
