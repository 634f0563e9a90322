// The resource walk on the emulated bus: how each BAR is classified and
// sized with decoding off, what a bridge's windows give, and what the walk
// leaves behind. Each case opens with the registers it sets up.
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "tests/unit/packed_value.h"
#include "pci_resources/pci_res_info.h"
#include "platform/memory_lib.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

using qor::emu::PciAccessRecord;

class PciResourceWalk : public PciBusOnEmulator {
 protected:
  void StartTraced(const std::string &Pci, const std::string &Extra = "") {
    StartPci(Pci, Extra);
    Plat->Pci().TraceAccesses(true);
  }
  // Runs the walk and keeps its records.
  void Collect() {
    QorResetPciResLists();
    QorCollectPCIRes();
    Records.assign(gQorPciResList, gQorPciResList + gQorPciResCount);
    QorFreePool(gQorPciResList);
    QorResetPciResLists();
  }
  std::vector<PCI_RES_INFO> RecordsOf(UINT64 Bus, UINT64 Device, UINT64 Function = 0) const {
    std::vector<PCI_RES_INFO> Out;
    for (const PCI_RES_INFO &R : Records) {
      if (R.Bus == Bus && R.Device == Device && R.Function == Function) Out.push_back(R);
    }
    return Out;
  }
  const std::vector<PciAccessRecord> &Trace(uint8_t Bus, uint8_t Device, uint8_t Function = 0) {
    return Plat->Pci().Find({0, Bus, Device, Function})->Trace();
  }
  static std::vector<PciAccessRecord> Writes(const std::vector<PciAccessRecord> &Trace) {
    std::vector<PciAccessRecord> Out;
    for (const PciAccessRecord &A : Trace) {
      if (A.Write) Out.push_back(A);
    }
    return Out;
  }
  static bool Touched(const std::vector<PciAccessRecord> &Trace, uint32_t Offset) {
    for (const PciAccessRecord &A : Trace) {
      if (Offset >= A.Offset && Offset < A.Offset + A.Size * (A.Count == 0 ? 1 : A.Count)) return true;
    }
    return false;
  }

  std::vector<PCI_RES_INFO> Records;
};

// A PCI Express endpoint at 00:02.0 from raw bytes: Command 0x0146, the
// capability list holding only the PCI Express capability at 0x40, BarBytes
// from 0x10, Sizes the size of each BAR register.
std::string RawEndpoint(const std::string &BarBytes, const std::string &Sizes, const std::string &More = "") {
  return R"({"hostBridges": [{"buses": [0, 3]}], "functions": [{"bdf": "00:02.0", "vendorId": "0x1AB4", "deviceId": "0x0042",
    "classCode": "0x028000", "patches": [{"offset": 4, "bytes": "46 01 10 00"}, {"offset": 52, "bytes": "40"},
    {"offset": 64, "bytes": "10 00 02 00"}, {"offset": 16, "bytes": ")" +
         BarBytes + R"("}], "barSizes": )" + Sizes + More + "}]}";
}

}  // namespace

namespace qor::emu {
bool operator==(const PciAccessRecord &A, const PciAccessRecord &B) {
  return A.Write == B.Write && A.Size == B.Size && A.Offset == B.Offset && A.Count == B.Count && A.Value == B.Value;
}
std::ostream &operator<<(std::ostream &Out, const PciAccessRecord &A) {
  return Out << (A.Write ? "write" : "read") << std::dec << A.Size * 8 << "@0x" << std::hex << A.Offset << " x" << std::dec
             << A.Count << " = 0x" << std::hex << A.Value;
}
}  // namespace qor::emu

// Command 0x0146 (memory, parity, SERR#); BAR0 mem32 4K at 0x90000000.
// Expected writes, in order: Command 0x0140 (decode off), BAR0 all ones,
// BAR0 restored, Command 0x0147 (I/O, memory and bus master on).
TEST_F(PciResourceWalk, SizesABarWithDecodingOffThenRestoresItAndSwitchesDecodingOn) {
  StartTraced(RawEndpoint("00 00 00 90", R"(["4K"])"));
  Collect();
  std::vector<PciAccessRecord> W = Writes(Trace(0, 2));
  ASSERT_EQ(W.size(), 4u);
  EXPECT_EQ(W[0], (PciAccessRecord{true, 2, 0x04, 1, 0x0140}));
  EXPECT_EQ(W[1], (PciAccessRecord{true, 4, 0x10, 1, 0xFFFFFFFF}));
  EXPECT_EQ(W[2], (PciAccessRecord{true, 4, 0x10, 1, 0x90000000}));
  EXPECT_EQ(W[3], (PciAccessRecord{true, 2, 0x04, 1, 0x0147}));
  // Between the all-ones write and the restore, the size mask is read.
  const auto &T = Trace(0, 2);
  size_t Ones = 0;
  while (!(T[Ones] == W[1])) Ones++;
  EXPECT_EQ(T[Ones + 1], (PciAccessRecord{false, 4, 0x10, 1, 0xFFFFF000}));
  EXPECT_EQ(T[Ones + 2], W[2]);

  ASSERT_EQ(RecordsOf(0, 2).size(), 1u);
  PCI_RES_INFO R = RecordsOf(0, 2)[0];
  EXPECT_EQ(Val(R.StartAddress), 0x90000000u);
  EXPECT_EQ(Val(R.EndAddress), 0x90000FFFu);
  EXPECT_EQ(Val(R.ResourceType), QOR_RES_TYPE_MMIO);
  EXPECT_EQ(Val(R.ConsumedBySelf), 1);
  EXPECT_EQ(Val(R.VendorID), 0x1AB4);
  EXPECT_EQ(Val(R.DeviceID), 0x0042);
  EXPECT_EQ(Val(R.ClassCode), 0x028000u);
  EXPECT_EQ(Val(R.HeaderType), 0);
}

// Low nibble  BAR   meaning                              sized?
// 0xA         0x10  prefetchable below 1 MiB             no (kept asymmetry)
// 0x2         0x14  below 1 MiB, not prefetchable        yes, 1K at 0xD0000
// 0x6         0x18  reserved type                        no
// 0x8         0x1C  32-bit prefetchable, 64K             yes
// 0x1         0x20  I/O, 256 bytes at 0x4000             yes
// 0x4         0x24  64-bit, upper half at 0x28, 8G       yes, at 0x38_0000_0000
TEST_F(PciResourceWalk, ClassifiesEachBarByItsLowBitsAndSizesA64BitBarInTheLastSlot) {
  StartTraced(RawEndpoint("0A 00 0E 00 02 00 0D 00 06 00 0E 00 08 00 0F 90 01 40 00 00 04 00 00 00 38 00 00 00",
                          R"(["64K", "1K", "64K", "64K", 256, "8G"])"));
  Collect();
  std::vector<PCI_RES_INFO> R = RecordsOf(0, 2);
  ASSERT_EQ(R.size(), 4u);
  EXPECT_EQ(Val(R[0].StartAddress), 0xD0000u);
  EXPECT_EQ(Val(R[0].EndAddress), 0xD03FFu);
  EXPECT_EQ(Val(R[1].StartAddress), 0x900F0000u);
  EXPECT_EQ(Val(R[1].EndAddress), 0x900FFFFFu);
  EXPECT_EQ(Val(R[2].StartAddress), 0x4000u);
  EXPECT_EQ(Val(R[2].EndAddress), 0x40FFu);
  EXPECT_EQ(Val(R[2].ResourceType), QOR_RES_TYPE_IO);
  EXPECT_EQ(Val(R[3].StartAddress), 0x3800000000ull);
  EXPECT_EQ(Val(R[3].EndAddress), 0x39FFFFFFFFull);
  EXPECT_EQ(Val(R[3].ResourceType), QOR_RES_TYPE_MMIO);
  std::vector<PciAccessRecord> W = Writes(Trace(0, 2));
  for (const PciAccessRecord &A : W) {
    EXPECT_NE(Val(A.Offset), 0x10u) << "0xA is not sized: " << A;
    EXPECT_NE(Val(A.Offset), 0x18u) << "0x6 is not sized: " << A;
  }
  // The 64-bit BAR is sized as one qword, and the loop ends with it.
  EXPECT_TRUE(std::find(W.begin(), W.end(), PciAccessRecord{true, 8, 0x24, 1, ~0ULL}) != W.end());
  EXPECT_FALSE(Touched(Trace(0, 2), 0x2C));
}

// 0x10  64-bit 4K at 0x91000000   (0x14 its upper half)
// 0x18  64-bit 4K at 0x91001000   (0x1C)
// 0x20  64-bit 4K at 0x91002000   (0x24)
// 0x28  01 50 00 00: an I/O BAR to a walk that counts registers, not BARs
TEST_F(PciResourceWalk, EachSixtyFourBitBarTakesTwoSlotsSoTheWalkStopsAtTheSixth) {
  StartTraced(RawEndpoint("04 00 00 91 00 00 00 00 04 10 00 91 00 00 00 00 04 20 00 91 00 00 00 00 01 50 00 00",
                          R"(["4K", 0, "4K", 0, "4K", 0])"));
  Collect();
  ASSERT_EQ(RecordsOf(0, 2).size(), 3u);
  EXPECT_EQ(Val(RecordsOf(0, 2)[2].StartAddress), 0x91002000u);
  EXPECT_FALSE(Touched(Trace(0, 2), 0x28)) << "three 64-bit BARs fill all six registers";
}

// I/O BAR   decoder  size  base    reads back after all ones   reported
// 0x10      16-bit   16    0x3000  0x0000FFF1                  0x3000..0x300F
// 0x14      32-bit   32    0x2000  0xFFFFFFE1                  0x2000..0x201F
// 0x18      32-bit   4     0x5004  0xFFFFFFFD                  0x5000..0x5003 (low nibble cleared)
// 0x1C      32-bit   4     0       (not sized: unassigned)     none
TEST_F(PciResourceWalk, IoBarsOf16BitDecodersGetTheirUpperHalfAndLoseTheirLowNibble) {
  StartTraced(R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 2, "vendorId": "0x1AB4", "bars": [
      {"type": "io16", "size": 16, "base": "0x3000"}, {"type": "io", "size": 32, "base": "0x2000"},
      {"type": "io", "size": 4, "base": "0x5004"}, {"type": "io", "size": 4, "base": 0}]}]}]})");
  Collect();
  std::vector<PCI_RES_INFO> R = RecordsOf(0, 2);
  ASSERT_EQ(R.size(), 3u);
  EXPECT_EQ(Val(R[0].StartAddress), 0x3000u);
  EXPECT_EQ(Val(R[0].EndAddress), 0x300Fu);
  EXPECT_EQ(Val(R[1].StartAddress), 0x2000u);
  EXPECT_EQ(Val(R[1].EndAddress), 0x201Fu);
  EXPECT_EQ(Val(R[2].StartAddress), 0x5000u);
  EXPECT_EQ(Val(R[2].EndAddress), 0x5003u);
  for (const PCI_RES_INFO &Io : R) EXPECT_EQ(Val(Io.ResourceType), QOR_RES_TYPE_IO);
  for (const PciAccessRecord &A : Writes(Trace(0, 2))) EXPECT_NE(Val(A.Offset), 0x1Cu) << A;
}

// Bridge 00:01.0, windows (config offset: bytes):
//   0x1C I/O base/limit       21 31   32-bit, 0x2000..0x3FFF
//   0x30 I/O upper 16 bits    01 00 01 00  -> 0x12000..0x13FFF
//   0x20 memory base/limit    00 90 F0 90  -> 0x90000000..0x90FFFFFF
//   0x24 prefetchable         11 00 F1 0F  64-bit, 0x00100000..0x0FFFFFFF
//   0x28/0x2C upper 32 bits   38 00 00 00 / 38 00 00 00
TEST_F(PciResourceWalk, ABridgeReportsItsThreeWindowsWithTheirUpperHalves) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x1AB4",
      "patches": [{"offset": "0x1C", "bytes": "21 31"}, {"offset": "0x20", "bytes": "00 90 F0 90 11 00 F1 0F 38 00 00 00 38 00 00 00 01 00 01 00"}]}]}]})");
  Collect();
  std::vector<PCI_RES_INFO> R = RecordsOf(0, 1);
  ASSERT_EQ(R.size(), 3u);
  EXPECT_EQ(Val(R[0].StartAddress), 0x12000u);
  EXPECT_EQ(Val(R[0].EndAddress), 0x13FFFu);
  EXPECT_EQ(Val(R[0].ResourceType), QOR_RES_TYPE_IO);
  EXPECT_EQ(Val(R[1].StartAddress), 0x90000000u);
  EXPECT_EQ(Val(R[1].EndAddress), 0x90FFFFFFu);
  EXPECT_EQ(Val(R[2].StartAddress), 0x3800100000ull);
  EXPECT_EQ(Val(R[2].EndAddress), 0x380FFFFFFFull);
  for (const PCI_RES_INFO &W : R) {
    EXPECT_EQ(Val(W.ConsumedBySelf), 0);
    EXPECT_EQ(Val(W.HeaderType), 1);
  }
}

// bridge  0x1C   0x20-0x23    0x24-0x27    0x28 / 0x2C  windows
// 00:01   00 F0  00 91 00 90  00 00 F1 0F  -            I/O base 0, memory base above its limit,
//                                                        prefetchable base 0: none
// 00:02   F0 00  F0 FF 00 00  11 00 11 00  2 / 1        only prefetchable: the base/limit test
//                                                        reads the low halves, the upper ones
//                                                        are taken as they are
// 00:03   -      -            01 00 01 00  0 / 0        a base holding only its 64-bit type bit
//                                                        is non-zero: 0..0xFFFFF
TEST_F(PciResourceWalk, WindowsNeedANonZeroBaseNotAboveTheLimitInTheirLowHalves) {
  StartPci(R"({"hostBridges": [{"buses": [0, 5], "devices": [
      {"device": 1, "type": "rootPort", "vendorId": "0x1AB4",
       "patches": [{"offset": "0x1C", "bytes": "00 F0"}, {"offset": "0x20", "bytes": "00 91 00 90 00 00 F1 0F"}]},
      {"device": 2, "type": "rootPort", "vendorId": "0x1AB4",
       "patches": [{"offset": "0x1C", "bytes": "F0 00"}, {"offset": "0x20", "bytes": "F0 FF 00 00 11 00 11 00 02 00 00 00 01 00 00 00"}]},
      {"device": 3, "type": "rootPort", "vendorId": "0x1AB4",
       "patches": [{"offset": "0x24", "bytes": "01 00 01 00 00 00 00 00 00 00 00 00"}]}]}]})");
  Collect();
  EXPECT_TRUE(RecordsOf(0, 1).empty());
  std::vector<PCI_RES_INFO> R = RecordsOf(0, 2);
  ASSERT_EQ(R.size(), 1u);
  EXPECT_EQ(Val(R[0].StartAddress), 0x200100000ull);
  EXPECT_EQ(Val(R[0].EndAddress), 0x1001FFFFFull);
  R = RecordsOf(0, 3);
  ASSERT_EQ(R.size(), 1u);
  EXPECT_EQ(Val(R[0].StartAddress), 0u);
  EXPECT_EQ(Val(R[0].EndAddress), 0xFFFFFu);
}

// A function whose vendor reads 0xFFFF, a CardBus bridge (header type 2),
// and a function whose Command write fails: no records, and the last two
// have no BAR touched; the failed one is never switched back on.
TEST_F(PciResourceWalk, SkipsAbsentAndForeignHeadersAndFunctionsWhoseDecodeCannotBeSwitchedOff) {
  StartTraced(R"({"hostBridges": [{"buses": [0, 3]}], "functions": [
      {"bdf": "00:02.0", "vendorId": "0x1AB4", "patches": [{"offset": 16, "bytes": "00 00 00 90"}], "barSizes": ["4K"], "faults": {"allOnes": true}},
      {"bdf": "00:03.0", "vendorId": "0x1AB4", "headerType": 2, "patches": [{"offset": 16, "bytes": "00 00 00 90"}], "barSizes": ["4K"]},
      {"bdf": "00:04.0", "vendorId": "0x1AB4", "patches": [{"offset": 16, "bytes": "00 00 00 90"}], "barSizes": ["4K"], "faults": {"writeFails": [4]}}]})");
  Collect();
  EXPECT_TRUE(RecordsOf(0, 2).empty());
  EXPECT_TRUE(RecordsOf(0, 3).empty());
  EXPECT_TRUE(RecordsOf(0, 4).empty());
  EXPECT_TRUE(Writes(Trace(0, 3)).empty());
  std::vector<PciAccessRecord> W = Writes(Trace(0, 4));
  ASSERT_EQ(W.size(), 1u) << "only the failed decode-off";
  EXPECT_EQ(Val(W[0].Offset), 0x04u);
  EXPECT_FALSE(Touched(Trace(0, 4), 0x10));
}

TEST_F(PciResourceWalk, AFailedRestoreIsLoggedWithTheLocationAndAddsNothing) {
  StartPci(RawEndpoint("00 00 00 90 00 00 10 90", R"(["4K", "4K"])", R"(, "faults": {"writeFails": [16]})"));
  Collect();
  std::vector<PCI_RES_INFO> R = RecordsOf(0, 2);
  ASSERT_EQ(R.size(), 1u) << "BAR1 is still sized";
  EXPECT_EQ(Val(R[0].StartAddress), 0x90100000u);
  EXPECT_NE(Log().find("QorCollectPciRes: Write 32bit base addres back fail, status: Device Error \n"
                       "            S: 0x0   B: 0x0 D: 0x2 F:0x0  BarOffset: 0x10 \n"),
            std::string::npos);
}

TEST_F(PciResourceWalk, AfterTheWalkEveryBarHoldsItsValueAndCommandDecodes) {
  StartPci(R"({"hostBridges": [{"buses": [0, 3], "devices": [
      {"device": 1, "type": "rootPort", "vendorId": "0x1AB4", "bars": [{"type": "mem64", "size": "1M", "base": "0x3800000000"}],
       "devices": [{"vendorId": "0x1AB4", "bars": [{"size": "4K", "base": "0x90000000"}, {"type": "io16", "size": 16, "base": "0x1000"},
                                                   {"type": "mem64", "size": "16M", "prefetchable": true, "base": "0x4000000000"}]}]}]}]})");
  std::vector<std::vector<uint8_t>> Before;
  for (EFI_HANDLE Handle : PciHandles()) {
    EFI_PCI_IO_PROTOCOL *P = PciIoOf(Handle);
    std::vector<uint8_t> Bars(0x28 - 0x10);
    ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthUint8, 0x10, Bars.size(), Bars.data()), EFI_SUCCESS);
    Before.push_back(Bars);
  }
  Collect();
  EXPECT_EQ(Records.size(), 7u) << "four BARs and the root port's three windows";
  size_t I = 0;
  for (EFI_HANDLE Handle : PciHandles()) {
    EFI_PCI_IO_PROTOCOL *P = PciIoOf(Handle);
    std::vector<uint8_t> Bars(0x28 - 0x10);
    ASSERT_EQ(P->Pci.Read(P, EfiPciIoWidthUint8, 0x10, Bars.size(), Bars.data()), EFI_SUCCESS);
    EXPECT_EQ(Bars, Before[I++]) << Location(P);
    EXPECT_EQ(Read16(P, 0x04) & 0x7, 0x7) << Location(P);
  }
}

// A bridge with a BAR and a memory window: the slot of its second record
// is copied from the first, so its capability list is walked once.
TEST_F(PciResourceWalk, ASecondRangeOfAFunctionCopiesItsSlotFieldsWithoutReadingThemAgain) {
  StartTraced(R"({"hostBridges": [{"buses": [0, 3], "devices": [{"device": 1, "type": "rootPort", "vendorId": "0x1AB4", "slot": 7,
      "bars": [{"size": "4K", "base": "0x90000000"}], "patches": [{"offset": "0x20", "bytes": "10 90 10 90"}]}]}]})");
  Collect();
  std::vector<PCI_RES_INFO> R = RecordsOf(0, 1);
  ASSERT_EQ(R.size(), 2u);
  EXPECT_EQ(Val(R[0].SlotDesc), QOR_SLOT_DESC_INTERNAL_BRIDGE);
  EXPECT_EQ(Val(R[0].SubDevSlotDesc), 7u);
  EXPECT_EQ(Val(R[1].SlotDesc), Val(R[0].SlotDesc));
  EXPECT_EQ(Val(R[1].SubDevSlotDesc), Val(R[0].SubDevSlotDesc));
  size_t PointerReads = 0;
  for (const PciAccessRecord &A : Trace(0, 1)) PointerReads += !A.Write && A.Offset == 0x34 && A.Size == 1 ? 1 : 0;
  EXPECT_EQ(PointerReads, 1u);
}
