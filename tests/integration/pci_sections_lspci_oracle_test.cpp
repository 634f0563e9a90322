// lspci as the oracle of the PcieTopology and PcieResource sections: each
// machine (the built-in board, generated ones, the reference big board and
// imported dumps of real ones) is booted,
// its configuration space as the driver first saw it (lspci.txt) is decoded
// by `lspci -F`, and the sections must agree with that decode:
//   - every function lspci lists is a node, under the bridge lspci shows
//     above it (-PP), with the identity and bus numbers lspci decodes;
//   - a capability block is reported exactly when lspci finds the
//     capability (extended ones only for PCI Express functions, and only
//     when the block the driver reads fits the space), and every register
//     reported equals the raw bytes at lspci's offset plus the register's;
//   - every bridge window lspci decodes as open is a resource of that bridge
//     with the same bounds, and no other window is; the driver's two
//     documented differences are applied: a window needs a non-zero base
//     register, and the prefetchable base/limit test reads only the low
//     16-bit registers (a 64-bit window across a 4 GiB boundary is dropped);
//   - every BAR lspci shows at a non-zero address starts a resource of its
//     function (an I/O base with its low nibble cleared, as the driver does).
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <stdlib.h>

#include <array>
#include <cctype>
#include <cstdlib>
#include <tuple>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "tests/integration/boot_helpers.h"
#include "tests/integration/lspci_decode.h"
#include "tests/integration/lspci_tool.h"
#include "tools/board_generator.h"

namespace {

using Decoded = qortest::LspciFunction;
using Window = qortest::LspciWindow;
using Region = qortest::LspciRegion;

std::map<std::string, Decoded> Decode(const std::string &File) { return qortest::DecodeLspci(File); }

uint64_t Raw(const std::vector<uint8_t> &Bytes, uint32_t Offset, int Width) {
  return qortest::RawBytes(Bytes, Offset, Width);
}

std::string Hex(uint64_t Value) {
  char Text[24];
  std::snprintf(Text, sizeof(Text), "0x%llx", static_cast<unsigned long long>(Value));
  return Text;
}

std::string Text(const rapidjson::Value &Object, const char *Key) {
  return Object.HasMember(Key) ? Object[Key].GetString() : "(absent)";
}

uint64_t Number(const rapidjson::Value &Object, const char *Key) {
  return std::stoull(Object[Key].GetString(), nullptr, 16);
}

std::string KeyOfNode(const rapidjson::Value &Node) {
  char Key[24];
  std::snprintf(Key, sizeof(Key), "%04llx:%02llx:%02llx.%llx", (unsigned long long)Number(Node, "Segment"),
                (unsigned long long)Number(Node, "Bus"), (unsigned long long)Number(Node, "Device"),
                (unsigned long long)Number(Node, "Function"));
  return Key;
}

// A register the node reports: present exactly when Expected has a value.
void ExpectRegister(const rapidjson::Value &Node, const char *Key, std::optional<uint64_t> Expected) {
  if (Expected) {
    EXPECT_EQ(Text(Node, Key), Hex(*Expected)) << Key;
  } else {
    EXPECT_FALSE(Node.HasMember(Key)) << Key << " = " << Text(Node, Key);
  }
}

// A capability block of Size bytes at lspci's offset, when the driver can
// read it whole from a space of the function's size.
std::optional<uint32_t> Block(const Decoded &F, const char *Name, uint32_t Size, bool Extended) {
  auto It = F.Caps.find(Name);
  if (It == F.Caps.end()) return std::nullopt;
  if (Extended && F.Caps.count("Express") == 0) return std::nullopt;
  if (It->second + Size > F.Bytes.size()) return std::nullopt;
  return It->second;
}

void CheckNode(const rapidjson::Value &Node, const std::string &Parent, std::map<std::string, Decoded> &Lspci,
               std::set<std::string> *Seen) {
  std::string Key = KeyOfNode(Node);
  SCOPED_TRACE(Key);
  Seen->insert(Key);
  ASSERT_TRUE(Lspci.count(Key)) << "lspci does not list it";
  const Decoded &F = Lspci[Key];
  const std::vector<uint8_t> &B = F.Bytes;
  EXPECT_EQ(Parent, F.Parent) << "the bridge above";
  EXPECT_EQ(Text(Node, "VendorID"), Hex(Raw(B, 0, 2)));
  EXPECT_EQ(Text(Node, "DeviceID"), Hex(Raw(B, 2, 2)));
  EXPECT_EQ(Text(Node, "RevisionID"), Hex(Raw(B, 8, 1)));
  EXPECT_EQ(Text(Node, "ClassCode"), Hex(Raw(B, 9, 3)));
  bool Bridge = (B[0x0E] & 1) != 0;
  EXPECT_EQ(Text(Node, "DeviceType"), Bridge ? "Bridge" : "EndPoint");
  if (Bridge && (B[0x0E] & 0x7F) == 1) {
    ASSERT_TRUE(F.Buses.has_value());
    EXPECT_EQ(Text(Node, "Primary Bus Number"), Hex((*F.Buses)[0]));
    EXPECT_EQ(Text(Node, "Secondary Bus Number"), Hex((*F.Buses)[1]));
    EXPECT_EQ(Text(Node, "Subordinate Bus Number"), Hex((*F.Buses)[2]));
  } else if (!Bridge) {
    EXPECT_EQ(Text(Node, "Subsystem VendorID"), Hex(Raw(B, 0x2C, 2)));
    EXPECT_EQ(Text(Node, "Subsystem DeviceID"), Hex(Raw(B, 0x2E, 2)));
  }
  bool Express = F.Caps.count("Express") != 0;
  EXPECT_EQ(Text(Node, "PCI or PCIe"), Express ? "PCIe" : "PCI");

  std::optional<uint32_t> Pm = Block(F, "Power Management", 8, false);
  ExpectRegister(Node, "Power Management Capability Register", Pm ? std::optional(Raw(B, *Pm + 2, 2)) : std::nullopt);
  ExpectRegister(Node, "Power Management Control and Status Register",
                 Pm ? std::optional(Raw(B, *Pm + 4, 2)) : std::nullopt);
  std::optional<uint32_t> E = Block(F, "Express", 60, false);
  auto If = [&](std::optional<uint32_t> At, uint32_t Offset, int Width, bool Shown = true) -> std::optional<uint64_t> {
    if (!At || !Shown) return std::nullopt;
    return Raw(B, *At + Offset, Width);
  };
  ExpectRegister(Node, "PCIe Capability Register", If(E, 2, 2));
  ExpectRegister(Node, "Device Capability Register", If(E, 4, 4));
  ExpectRegister(Node, "Link Capability Register", If(E, 0x0C, 4, E && Raw(B, *E + 0x0C, 4) != 0));
  ExpectRegister(Node, "Slot Capability Register", If(E, 0x14, 4, E && (Raw(B, *E + 2, 2) & 0x100) != 0));
  ExpectRegister(Node, "Device Capability 2 Register", If(E, 0x24, 4, E && Raw(B, *E + 0x24, 4) != 0));
  ExpectRegister(Node, "Link Capability 2 Register", If(E, 0x2C, 4, E && Raw(B, *E + 0x2C, 4) != 0));

  std::optional<uint32_t> Lane = Block(F, "Secondary PCI Express", 16, true);
  ExpectRegister(Node, "Lane Error Status Register", If(Lane, 8, 4));
  std::optional<uint32_t> Aer = Block(F, "Advanced Error Reporting", 72, true);
  ExpectRegister(Node, "Uncorrectable Error Mask Register", If(Aer, 0x08, 4));
  ExpectRegister(Node, "Uncorrectable Error Severity Register", If(Aer, 0x0C, 4));
  ExpectRegister(Node, "Correctable Error Mask Register", If(Aer, 0x14, 4));
  std::optional<uint32_t> Serial = Block(F, "Device Serial Number", 12, true);
  ExpectRegister(Node, "Device Serial Number Register", If(Serial, 4, 8));
  std::optional<uint32_t> Dpc = Block(F, "Downstream Port Containment", 68, true);
  ExpectRegister(Node, "DPC Capability Register", If(Dpc, 4, 2));
  ExpectRegister(Node, "DPC Control Register", If(Dpc, 6, 2));
  ExpectRegister(Node, "RP PIO Mask Register", If(Dpc, 0x10, 4));
  ExpectRegister(Node, "RP PIO Severity Register", If(Dpc, 0x14, 4));
  ExpectRegister(Node, "RP PIO SysError Register", If(Dpc, 0x18, 4));
  ExpectRegister(Node, "RP PIO Exception Register", If(Dpc, 0x1C, 4));
  std::optional<uint32_t> Acs = Block(F, "Access Control Services", 9, true);
  ExpectRegister(Node, "PCIe ACS Capabilities Register", If(Acs, 4, 2));
  ExpectRegister(Node, "PCIe ACS Control Register", If(Acs, 6, 2));

  if (Node.HasMember("ChildDevice")) {
    EXPECT_EQ(Text(Node, "ChildDeviceCount"), std::to_string(Node["ChildDevice"].Size()));
    for (const auto &Child : Node["ChildDevice"].GetArray()) CheckNode(Child, Key, Lspci, Seen);
  }
}

// Windows as the driver reports them, from lspci's decode and the raw
// registers (the documented differences).
std::set<std::tuple<std::string, bool, uint64_t, uint64_t>> ExpectedWindows(std::map<std::string, Decoded> &Lspci) {
  std::set<std::tuple<std::string, bool, uint64_t, uint64_t>> Out;
  for (auto &[Key, F] : Lspci) {
    for (const Window &W : qortest::DriverReportedWindows(F)) Out.insert({Key, W.Io, W.First, W.Last});
  }
  return Out;
}

std::string MakeTempDir() {
  std::string Pattern = (std::filesystem::temp_directory_path() / "qor-oracle-XXXXXX").string();
  return mkdtemp(Pattern.data()) != nullptr ? Pattern : "";
}

class PciSectionsOracle : public testing::TestWithParam<const char *> {};

TEST_P(PciSectionsOracle, TopologyAndResourcesAgreeWithLspci) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  std::string Name = GetParam();
  std::string Overlay = Name == std::string("builtin")     ? "{}"
                        : Name == std::string("generated") ? qor::tool::GenerateBoard({96, 3, 24, 16})
                        : Name == std::string("reference")
                            ? qortest::ReadTextFile(QOR_SOURCE_DIR "/boards/examples/generated-4s-512.json")
                                                           : R"({"pci": {"import": ")" + qortest::kPciDumps + Name + R"("}})";
  qor::emu::Board Board = qor::emu::ParseBoard(Overlay);
  qor::emu::BootResult Result = qor::emu::RunBoot(Board);
  rapidjson::Document Doc = qortest::OnlyDocument(Result);
  ASSERT_TRUE(Doc.IsObject());
  std::string Directory = MakeTempDir();
  ASSERT_FALSE(Directory.empty());
  qortest::WriteTextFile(Directory + "/lspci.txt", Result.LspciDump);
  std::map<std::string, Decoded> Lspci = Decode(Directory + "/lspci.txt");
  std::filesystem::remove_all(Directory);
  ASSERT_FALSE(Lspci.empty());
  // Only functions a host bridge's root bus leads to have PCI I/O handles
  // (the board's PCH sits at 00:1f.0 even where no root bus 0 reaches it).
  std::set<std::string> RootBuses;
  for (const qor::emu::PciHostBridge &Host : Board.Pci.HostBridges) {
    char Bus[16];
    std::snprintf(Bus, sizeof(Bus), "%04x:%02x", Host.Segment, Host.FirstBus);
    RootBuses.insert(Bus);
  }
  for (auto It = Lspci.begin(); It != Lspci.end();) {
    std::string Top = It->first;
    while (!Lspci[Top].Parent.empty()) Top = Lspci[Top].Parent;
    It = RootBuses.count(Top.substr(0, 7)) != 0 ? std::next(It) : Lspci.erase(It);
  }

  const rapidjson::Value &Topology = Doc["PcieTopology"];
  ASSERT_TRUE(Topology.IsObject()) << "the section is filled";
  EXPECT_EQ(Topology["Count"].GetUint64(), Lspci.size());
  std::set<std::string> Seen;
  for (const auto &Node : Topology["PciTree"].GetArray()) CheckNode(Node, "", Lspci, &Seen);
  EXPECT_EQ(Seen.size(), Lspci.size()) << "every function lspci lists is a node";

  const rapidjson::Value &Resources = Doc["PcieResource"]["PCIMemIoResources"];
  std::set<std::tuple<std::string, bool, uint64_t, uint64_t>> Windows;
  std::map<std::string, std::set<uint64_t>> Starts;
  for (const auto &R : Resources.GetArray()) {
    const rapidjson::Value &D = R["ResourceDetail"];
    char Key[24];
    std::snprintf(Key, sizeof(Key), "%04llx:%02llx:%02llx.%llx", (unsigned long long)Number(D, "SegmentNumber"),
                  (unsigned long long)Number(D, "BusNumber"), (unsigned long long)Number(D, "DeviceNumber"),
                  (unsigned long long)Number(D, "FunctionNumber"));
    if (Text(D, "Description") == "This resource is consumed by devices that behind the bridge.") {
      Windows.insert({Key, Text(D, "ResourceType") == "IO", Number(R, "StartAddress"), Number(R, "EndAddress")});
    } else {
      Starts[Key].insert(Number(R, "StartAddress"));
    }
  }
  EXPECT_EQ(Windows, ExpectedWindows(Lspci));
  for (const auto &[Key, F] : Lspci) {
    bool Conventional = F.Bytes.size() <= 256;
    for (const Region &Bar : F.Regions) {
      if (Bar.Address == 0) continue;
      // Which register: lspci prints regions in order; find it by value.
      uint32_t Offset = 0;
      for (uint32_t At = 0x10; At < 0x28; At += 4) {
        uint32_t Low = static_cast<uint32_t>(Raw(F.Bytes, At, 4));
        if ((Bar.Io ? (Low & ~3u) : (Low & ~0xFu)) == (Bar.Address & 0xFFFFFFFF) && Low != 0) {
          Offset = At;
          break;
        }
      }
      if (Offset == 0) continue;
      uint32_t Low = static_cast<uint32_t>(Raw(F.Bytes, Offset, 4));
      bool Wide = !Bar.Io && (Low & 0x6) == 0x4;
      if (!Bar.Io && ((Low & 0xF) == 0x6 || (Low & 0xF) == 0xA || (Low & 0xF) == 0xE)) continue;  // never sized
      if (Wide && Conventional && Offset % 8 != 0) continue;  // a misaligned qword of a conventional function
      uint64_t Start = Bar.Address & ~uint64_t{0xF};
      EXPECT_EQ(Starts[Key].count(Start), 1u) << Key << " BAR at " << std::hex << Offset << " starts " << Start;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Machines, PciSectionsOracle,
                         testing::Values("builtin", "generated", "reference", "tree-asus-p6t6", "broken-ecaps", "cap-aer-ecrc-label",
                                         "cap-aer-hdr", "cap-aer-log", "cap-aer-root", "cap-dpc",
                                         "cap-exp-aspm-latencies", "cap-exp-dev2", "cap-exp-lnkcap2",
                                         "cap-exp-rev-slot"),
                         [](const testing::TestParamInfo<const char *> &Info) {
                           std::string Name = Info.param;
                           for (char &C : Name) C = std::isalnum(static_cast<unsigned char>(C)) ? C : '_';
                           return Name;
                         });

}  // namespace
