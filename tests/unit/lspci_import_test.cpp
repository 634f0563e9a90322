// A machine from a dump: host bridges from the root buses, the tree from the
// bridges' bus registers, BAR sizes from the bases. Each case sets up only
// the registers named in its table.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "emulator/pci/lspci_import.h"

namespace {

using qor::emu::DumpedFunction;
using qor::emu::ImportedMachine;
using qor::emu::ImportLspciMachine;
using qor::emu::LspciImportError;

struct Register {
  size_t Offset;
  uint32_t Value;
  size_t Width;
};

DumpedFunction Function(uint16_t Segment, uint8_t Bus, uint8_t Device, uint8_t Function,
                        std::vector<Register> Registers = {}) {
  DumpedFunction F{{Segment, Bus, Device, Function}, std::vector<uint8_t>(256, 0)};
  F.Config[0x00] = 0x86, F.Config[0x01] = 0x80;
  for (const Register &R : Registers) {
    for (size_t I = 0; I < R.Width; I++) F.Config[R.Offset + I] = static_cast<uint8_t>(R.Value >> (8 * I));
  }
  return F;
}

// A PCI-to-PCI bridge: header type 1, secondary and subordinate bus.
DumpedFunction Bridge(uint16_t Segment, uint8_t Bus, uint8_t Device, uint8_t Secondary, uint8_t Subordinate,
                      std::vector<Register> More = {}) {
  More.push_back({0x0E, 0x01, 1});
  More.push_back({0x19, Secondary, 1});
  More.push_back({0x1A, Subordinate, 1});
  return Function(Segment, Bus, Device, 0, More);
}

const qor::emu::ImportedFunction &At(const ImportedMachine &M, const std::string &Location) {
  for (const auto &F : M.Functions) {
    if (F.Dumped.Location.Text() == Location) return F;
  }
  throw std::runtime_error("no function " + Location);
}

std::string ParentOf(const ImportedMachine &M, const std::string &Location) {
  int Parent = At(M, Location).Parent;
  return Parent < 0 ? "root" : M.Functions[static_cast<size_t>(Parent)].Dumped.Location.Text();
}

std::string Refusal(const std::vector<DumpedFunction> &Functions) {
  try {
    ImportLspciMachine(Functions);
  } catch (const LspciImportError &Error) {
    return Error.what();
  }
  return "";
}

TEST(LspciImport, RootBusesBecomeHostBridgesAndBridgesNestTheirSecondaryBuses) {
  // | function       | type   | secondary | subordinate |
  // | 0000:00:01.0   | bridge | 01        | 03          |
  // | 0000:01:00.0   | bridge | 02        | 03          |
  // | 0000:02:00.0   | endpoint                         |
  // | 0000:80:00.0   | endpoint (bus 80: nobody's secondary) |
  // | 0001:00:00.0   | endpoint (another segment)       |
  ImportedMachine M = ImportLspciMachine({Function(1, 0x00, 0, 0), Function(0, 0x80, 0, 0), Function(0, 0x02, 0, 0),
                                          Bridge(0, 0x01, 0, 0x02, 0x03), Bridge(0, 0x00, 1, 0x01, 0x03),
                                          Function(0, 0x00, 0, 0)});
  ASSERT_EQ(M.HostBridges.size(), 3u);
  EXPECT_EQ(M.HostBridges[0].Segment, 0);
  EXPECT_EQ(M.HostBridges[0].Uid, 0u);
  EXPECT_EQ(M.HostBridges[0].BusBase, 0x00);
  EXPECT_EQ(M.HostBridges[0].BusLimit, 0x03) << "the subordinate bus of the tree, not just the buses in use";
  EXPECT_EQ(M.HostBridges[1].Uid, 1u);
  EXPECT_EQ(M.HostBridges[1].BusBase, 0x80);
  EXPECT_EQ(M.HostBridges[1].BusLimit, 0x80);
  EXPECT_EQ(M.HostBridges[2].Segment, 1);
  EXPECT_EQ(M.HostBridges[2].Uid, 2u);

  EXPECT_EQ(ParentOf(M, "0000:02:00.0"), "0000:01:00.0");
  EXPECT_EQ(ParentOf(M, "0000:01:00.0"), "0000:00:01.0");
  EXPECT_EQ(ParentOf(M, "0000:00:01.0"), "root");
  EXPECT_EQ(ParentOf(M, "0000:80:00.0"), "root");
  EXPECT_EQ(At(M, "0000:02:00.0").HostBridge, 0u);
  EXPECT_EQ(At(M, "0000:80:00.0").HostBridge, 1u);
  EXPECT_EQ(At(M, "0001:00:00.0").HostBridge, 2u);
  // Functions come out in order of location.
  EXPECT_EQ(M.Functions.front().Dumped.Location.Text(), "0000:00:00.0");
  EXPECT_EQ(M.Functions.back().Dumped.Location.Text(), "0001:00:00.0");
}

TEST(LspciImport, UnconfiguredBridgesLeadNowhereAndTheirBusesAreRoots) {
  // | 00:01.0 | bridge | secondary 00 subordinate 00 (never configured) |
  // | 00:02.0 | bridge | secondary 05 subordinate 04 (subordinate below) |
  // | 03:00.0 | bridge | secondary 03 (its own bus)                     |
  // | 05:00.0 | endpoint                                                 |
  ImportedMachine M = ImportLspciMachine({Bridge(0, 0x00, 1, 0x00, 0x00), Bridge(0, 0x00, 2, 0x05, 0x04),
                                          Bridge(0, 0x03, 0, 0x03, 0x03), Function(0, 0x05, 0, 0)});
  EXPECT_EQ(ParentOf(M, "0000:00:01.0"), "root");
  EXPECT_EQ(ParentOf(M, "0000:03:00.0"), "root");
  EXPECT_EQ(ParentOf(M, "0000:05:00.0"), "root");
  ASSERT_EQ(M.HostBridges.size(), 3u);
  EXPECT_EQ(M.HostBridges[0].BusLimit, 0x00) << "the unconfigured bridges' bus registers do not count";
  EXPECT_EQ(M.HostBridges[1].BusBase, 0x03);
  EXPECT_EQ(M.HostBridges[2].BusBase, 0x05);
}

TEST(LspciImport, RefusesDumpsThatCannotBeOneMachine) {
  EXPECT_NE(Refusal({}), "");
  std::string Message = Refusal({Bridge(0, 0x00, 1, 0x02, 0x02), Bridge(0, 0x00, 3, 0x02, 0x02)});
  EXPECT_EQ(Message, "bus 0000:02 is the secondary bus of both 0000:00:01.0 and 0000:00:03.0");
  // Root bus 00's tree reaches bus 04, past root bus 03.
  Message = Refusal({Bridge(0, 0x00, 1, 0x01, 0x04), Bridge(0, 0x01, 0, 0x04, 0x04), Function(0, 0x04, 0, 0),
                     Function(0, 0x03, 0, 0)});
  EXPECT_EQ(Message, "function 0000:04:00.0 lies behind root bus 0000:00 but past the next root bus 0000:03");
  // The same bus numbers in two segments are two machines' worth of buses.
  EXPECT_EQ(Refusal({Bridge(0, 0x00, 1, 0x02, 0x02), Bridge(1, 0x00, 1, 0x02, 0x02)}), "");
}

// | function | BAR     | register           | base        | why the size                          |
// | 00:1f.2  | 0 (I/O) | 0x00009C01         | 9c00        | aligned to 1K, I/O at most 256        |
// |          | 1 (I/O) | 0x00009881         | 9880        | aligned to 128                        |
// |          | 2+3     | 0x0000000C, 0x1    | 1_0000_0000 | 64-bit, aligned to 4G, nothing above  |
// |          | 4       | 0                  | -           | unassigned                            |
// |          | 5       | 0xF9EFC000         | f9efc000    | aligned to 16K, next base 4K above    |
// | 00:1f.3  | 0       | 0xF9EFD000         | f9efd000    | aligned to 4K, next base 4K above     |
// |          | 1       | 0xF9EFE006         | -           | reserved memory type 3                |
TEST(LspciImportBars, SizeIsTheBaseAlignmentBoundedByIoLimitAndTheNextBase) {
  ImportedMachine M = ImportLspciMachine(
      {Function(0, 0, 0x1f, 2,
                {{0x10, 0x9C01, 4}, {0x14, 0x9881, 4}, {0x18, 0x0C, 4}, {0x1C, 0x1, 4}, {0x24, 0xF9EFC000, 4}}),
       Function(0, 0, 0x1f, 3, {{0x10, 0xF9EFD000, 4}, {0x14, 0xF9EFE006, 4}}),
       Function(0, 0, 0x1f, 4, {{0x10, 0xF9EFE000, 4}})});
  EXPECT_EQ(At(M, "0000:00:1f.2").BarSizes, (std::array<uint64_t, 6>{256, 128, 0x100000000, 0, 0, 0x1000}));
  EXPECT_EQ(At(M, "0000:00:1f.3").BarSizes, (std::array<uint64_t, 6>{0x1000, 0, 0, 0, 0, 0}));
  EXPECT_EQ(At(M, "0000:00:1f.4").BarSizes[0], 0x2000u) << "aligned to 8K, nothing above";
}

// | function | register                  | meaning                                  |
// | 00:07.0  | 0x20/0x22 = FA00/FBC0     | memory window fa000000-fbcfffff          |
// |          | 0x24/0x26 = CE01/DFF1     | 64-bit prefetchable ce000000-dfffffff    |
// | 06:00.0  | BAR0 0xFA000000           | aligned to 32M, the window holds 29M: 16M |
// |          | BAR1+2 0xD000000C, 0      | aligned to 256M, window ends there: 256M |
// |          | BAR3+4 0xCE00000C, 0      | aligned to 32M, BAR1 32M above: 32M      |
// | 06:00.1  | BAR0 0xFBCFC000           | aligned to 16K, window ends 16K above    |
TEST(LspciImportBars, BarsEndInsideTheWindowOfTheBridgeAbove) {
  ImportedMachine M = ImportLspciMachine(
      {Bridge(0, 0, 7, 6, 6, {{0x20, 0xFA00, 2}, {0x22, 0xFBC0, 2}, {0x24, 0xCE01, 2}, {0x26, 0xDFF1, 2}}),
       Function(0, 6, 0, 0, {{0x10, 0xFA000000, 4}, {0x14, 0xD000000C, 4}, {0x1C, 0xCE00000C, 4}}),
       Function(0, 6, 0, 1, {{0x10, 0xFBCFC000, 4}})});
  EXPECT_EQ(At(M, "0000:06:00.0").BarSizes, (std::array<uint64_t, 6>{0x1000000, 0x10000000, 0, 0x2000000, 0, 0}));
  EXPECT_EQ(At(M, "0000:06:00.1").BarSizes[0], 0x4000u);
  // The bridge's own BARs (0x10, 0x14) are zero: absent.
  EXPECT_EQ(At(M, "0000:00:07.0").BarSizes, (std::array<uint64_t, 6>{}));
}

TEST(LspciImportBars, CollidingBasesGetTheSmallestSizeAndAllOnesFunctionsNone) {
  // Two memory BARs at one base, two I/O BARs at one base; a function that
  // reads all ones (vendor ffff) has no BARs though its registers are set.
  DumpedFunction Gone{{0, 0, 3, 0}, std::vector<uint8_t>(256, 0xFF)};
  Gone.Config[0x0E] = 0;
  ImportedMachine M = ImportLspciMachine(
      {Function(0, 0, 1, 0, {{0x10, 0xE0000000, 4}, {0x14, 0xE0000000, 4}, {0x18, 0x1001, 4}, {0x1C, 0x1001, 4}}),
       Function(0, 0, 2, 0, {{0x10, 0xE0000010, 4}}), Gone});
  EXPECT_EQ(At(M, "0000:00:01.0").BarSizes, (std::array<uint64_t, 6>{16, 16, 4, 4, 0, 0}));
  EXPECT_EQ(At(M, "0000:00:03.0").BarSizes, (std::array<uint64_t, 6>{}));
}

}  // namespace
