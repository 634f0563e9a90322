// Slot descriptions on the emulated bus: each case is a small machine whose
// IIO topology entries the emulator derives from its root ports, and a
// table of functions with their device paths and the two slot fields the
// rules give them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/packed_value.h"
#include "pci_resources/pci_res_info.h"
#include "tests/unit/pci_bus_fixture.h"

namespace {

constexpr UINT64 kInternalDevice = QOR_SLOT_DESC_INTERNAL_DEVICE;
constexpr UINT64 kInternalBridge = QOR_SLOT_DESC_INTERNAL_BRIDGE;
constexpr UINT64 kOnboardDevice = QOR_SLOT_DESC_ONBOARD_DEVICE;
constexpr UINT64 kOnboardSwitch = QOR_SLOT_DESC_ONBOARD_SWITCH;
constexpr UINT64 kBridgeNotUsp = QOR_SLOT_DESC_BRIDGE_NOT_USP;
constexpr UINT64 kBridgeBehindPch = QOR_SLOT_DESC_BRIDGE_BEHIND_PCH;
constexpr UINT64 kNoSlot = QOR_SLOT_DESC_SLOT_NOT_IMPLEMENTED;
constexpr UINT64 kEndpoint = QOR_SLOT_DESC_ENDPOINT;

struct Expect {
  const char *Bdf;   // "BB:DD.F"
  const char *Path;  // the function's device path, for the reader
  UINT64 SlotDesc;
  UINT64 SubDevSlotDesc;
};

class SlotDescriptions : public PciBusOnEmulator {
 protected:
  // The record QorAddPciResToList would hand over: location and presets.
  PCI_RES_INFO Evaluate(const std::string &Bdf) {
    unsigned Bus = 0, Device = 0, Function = 0;
    EXPECT_EQ(std::sscanf(Bdf.c_str(), "%x:%x.%x", &Bus, &Device, &Function), 3);
    EFI_HANDLE Handle = HandleAt(0, Bus, Device, Function);
    EXPECT_NE(Handle, nullptr) << Bdf;
    PCI_RES_INFO Record = {};
    Record.Bus = Bus;
    Record.Device = Device;
    Record.Function = Function;
    if (Handle == nullptr) return Record;
    bool Bridge = (Read8(PciIoOf(Handle), 0x0E) & 0x7F) == 1;
    Record.HeaderType = Bridge ? 1 : 0;
    Record.SlotDesc = Bridge ? kBridgeNotUsp : kInternalDevice;
    Record.SubDevSlotDesc = Bridge ? kNoSlot : kEndpoint;
    QorUpdateSlotDesc(Handle, &Record);
    return Record;
  }
  void Check(const std::vector<Expect> &Rows) {
    for (const Expect &Row : Rows) {
      PCI_RES_INFO R = Evaluate(Row.Bdf);
      EXPECT_EQ(Val(R.SlotDesc), Row.SlotDesc) << Row.Bdf << " " << Row.Path;
      EXPECT_EQ(Val(R.SubDevSlotDesc), Row.SubDevSlotDesc) << Row.Bdf << " " << Row.Path;
    }
  }
};

const char *kEndpointJson = R"({"vendorId": "0x1AB4", "deviceId": "0x0001"})";

std::string Port(int Device, const std::string &Members, const std::string &Below = "") {
  return R"({"device": )" + std::to_string(Device) + R"(, "type": "rootPort", "vendorId": "0x8086")" + Members +
         R"(, "devices": [)" + Below + "]}";
}
std::string Switch(const std::string &Downstream) {
  return R"({"type": "upstreamPort", "vendorId": "0x10B5", "deviceId": "0x9797", "devices": [)" + Downstream + "]}";
}
std::string Dsp(int Device, const std::string &Members, const std::string &Below = "") {
  return R"({"device": )" + std::to_string(Device) + R"(, "type": "downstreamPort", "vendorId": "0x10B5")" + Members +
         R"(, "devices": [)" + Below + "]}";
}

}  // namespace

// Bus 0x00: 00:00.0 an integrated endpoint, 00:01.0 a root port with
// slot 7, 00:02.0 one without a slot. Nothing here needs the IIO table.
TEST_F(SlotDescriptions, OnTheRootBusFunctionsAreInternal) {
  StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [{"device": 0, "type": "rcEndpoint", "vendorId": "0x8086"}, )" +
           Port(1, R"(, "slot": 7, "iio": {"listed": false})") + ", " + Port(2, R"(, "iio": {"listed": false})") +
           "]}]}");
  Check({{"00:00.0", "PcieRoot(0x0)/Pci(0x0,0x0)", kInternalDevice, kEndpoint},
         {"00:01.0", "PcieRoot(0x0)/Pci(0x1,0x0)", kInternalBridge, 7},
         {"00:02.0", "PcieRoot(0x0)/Pci(0x2,0x0)", kInternalBridge, kNoSlot}});
}

// Root port 00:1c.0 (PCH, "kind": "pch", slot 3) with an endpoint at 01:00.0;
// root port 00:1d.0 (PCH, no slot) with a PCIe-to-PCI bridge 02:00.0 and a
// conventional endpoint 03:00.0 behind it, and an endpoint 02:01.0.
TEST_F(SlotDescriptions, BehindAPchRootPortTheSlotComesFromTheFunctionOneLevelUp) {
  StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [)" +
           Port(28, R"(, "slot": 3, "iio": {"kind": "pch"})", kEndpointJson) + ", " +
           Port(29, R"(, "iio": {"kind": "pch"})",
                R"({"type": "pcieToPciBridge", "vendorId": "0x1A03", "devices": [{"pcie": false, "vendorId": "0x1A03"}]},
                   {"device": 1, "vendorId": "0x1AB4"})") +
           "]}]}");
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1C,0x0)/Pci(0x0,0x0)", 3, kEndpoint},
         {"02:00.0", "PcieRoot(0x0)/Pci(0x1D,0x0)/Pci(0x0,0x0)", kBridgeBehindPch, kNoSlot},
         {"03:00.0", "PcieRoot(0x0)/Pci(0x1D,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", kOnboardDevice, kEndpoint},
         {"02:01.0", "PcieRoot(0x0)/Pci(0x1D,0x0)/Pci(0x1,0x0)", kOnboardDevice, kEndpoint}});
}

// Kind 3 (slot 8) with a switch below that is not walked; kind 3 without a
// slot (0xFF); kind 0 with no switch (slot 11).
TEST_F(SlotDescriptions, WithoutASwitchWalkTheRootPortsSlotOrOnboard) {
  StartPci(R"({"hostBridges": [{"buses": [0, 20], "devices": [)" +
           Port(1, R"(, "slot": 8, "iio": {"kind": 3})", Switch(Dsp(0, "", kEndpointJson))) + ", " +
           Port(2, R"(, "iio": {"kind": 3})", kEndpointJson) + ", " + Port(3, R"(, "slot": 11)", kEndpointJson) +
           "]}]}");
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", 8, kNoSlot},
         {"02:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", 8, kNoSlot},
         {"03:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", 8, kEndpoint},
         {"04:00.0", "PcieRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)", kOnboardDevice, kEndpoint},
         {"05:00.0", "PcieRoot(0x0)/Pci(0x3,0x0)/Pci(0x0,0x0)", 11, kEndpoint}});
}

// Root port 00:01.0 slot 6 with one switch (level byte 0x05: two nodes):
// the upstream port 01:00.0 at depth 3, downstream ports 02:00.0 (slot 9)
// and 02:01.0 (no slot) at depth 4, endpoints at depth 5.
TEST_F(SlotDescriptions, OneSwitchLevelUpstreamDownstreamAndEndpoints) {
  StartPci(R"({"hostBridges": [{"buses": [0, 20], "devices": [)" +
           Port(1, R"(, "slot": 6)", Switch(Dsp(0, R"(, "slot": 9)", kEndpointJson) + ", " + Dsp(1, "", kEndpointJson))) +
           "]}]}");
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", 6, kNoSlot},
         {"02:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", 6, 9},
         {"03:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", 9, kEndpoint},
         {"02:01.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x1,0x0)", 6, kNoSlot},
         // The slot register of the downstream port above reads 0: kept.
         {"04:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", 0, kEndpoint}});
  EXPECT_NE(Log().find("QorUpdateSlotDesc  Is switch DSP SubDevSlotDesc: 0x9.\n"), std::string::npos);
  EXPECT_NE(Log().find("QorRasUpdateSlotDesc      shouldn't come here, slot number that read from register is 0 \n"),
            std::string::npos);
}

// Three switches in a chain below root port 00:01.0 (slot 4); levels
// 0x05 0x05 0x05. Depths: root port 2, USP1 3, DSP1 4, USP2 5, DSP2 6,
// USP3 7, DSP3 8, endpoint 9.
//   DSP1  02:00.0 slot 10   DSP2  04:00.0 slot 12   DSP3  06:00.0 slot 15
TEST_F(SlotDescriptions, DeeperSwitchLevelsTakeTheSlotOfTheDownstreamPortAboveThem) {
  StartPci(R"({"hostBridges": [{"buses": [0, 30], "devices": [)" +
           Port(1, R"(, "slot": 4)",
                Switch(Dsp(0, R"(, "slot": 10)",
                           Switch(Dsp(0, R"(, "slot": 12)", Switch(Dsp(0, R"(, "slot": 15)", kEndpointJson))))))) +
           "]}]}");
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", 4, kNoSlot},
         {"02:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", 4, 10},
         {"03:00.0", ".../USP2 at depth 5: slot read from DSP1", 10, kNoSlot},
         {"04:00.0", ".../DSP2 at depth 6", 10, 12},
         {"05:00.0", ".../USP3 at depth 7", 12, kNoSlot},
         {"06:00.0", ".../DSP3 at depth 8", 12, 15},
         {"07:00.0", ".../endpoint at depth 9: past the last level", 15, kEndpoint}});
  EXPECT_NE(Log().find("QorRasUpdateSlotDesc  Is switch DSP SubDevSlotDesc: 0xf.\n"), std::string::npos);
  EXPECT_NE(Log().find("QorRasUpdateSlotDesc        SlotDesc: 0xf.\n"), std::string::npos);
}

// Root port 00:01.0 without a slot (entry slot 0xFF) and a switch whose
// downstream port 02:00.0 says slot 255: an onboard switch everywhere.
TEST_F(SlotDescriptions, AnOnboardSwitchIsNamedSo) {
  StartPci(R"({"hostBridges": [{"buses": [0, 20], "devices": [)" +
           Port(1, "", Switch(Dsp(0, R"(, "slot": 255)", kEndpointJson))) + "]}]}");
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", kOnboardSwitch, kNoSlot},
         {"02:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", kOnboardSwitch, 255},
         {"03:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)/Pci(0x0,0x0)", kOnboardSwitch, kEndpoint}});
}

// Root ports left out of the IIO table: 00:01.0 slot 251 (an M.2 socket),
// 00:02.0 slot 5; each with an endpoint, 00:02.0 also with a switch.
TEST_F(SlotDescriptions, WithoutAnIioEntryOnlyM2SocketsGiveASlotAndOnlyWhenThePlatformSaysSo) {
  const std::string Pci = R"({"hostBridges": [{"buses": [0, 20], "devices": [)" +
                          Port(1, R"(, "slot": 251, "iio": {"listed": false})", kEndpointJson) + ", " +
                          Port(2, R"(, "slot": 5, "iio": {"listed": false})", Switch("")) + "]}]}";
  auto Onboard = [](int Value) {
    return R"("pcd": {"dynamicEx": [{"tokenSpace": "B3474EE8-7682-4CD3-8A9F-4B95E35A257D", "token": 6, "value": )" +
           std::to_string(Value) + "}]}";
  };
  StartPci(Pci, Onboard(0));
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", kOnboardDevice, kEndpoint},
         {"02:00.0", "PcieRoot(0x0)/Pci(0x2,0x0)/Pci(0x0,0x0)", kBridgeNotUsp, kNoSlot}});
  EXPECT_NE(Log().find("QorRasUpdateSlotDesc: Failed to GetIioTopologyItem. Should never come here! \n"),
            std::string::npos);
  for (int Bits : {2, 4}) {
    StartPci(Pci, Onboard(Bits));
    Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", 0xFB, kEndpoint}});
  }
  StartPci(R"({"hostBridges": [{"buses": [0, 20], "devices": [)" +
               Port(1, R"(, "slot": 5, "iio": {"listed": false})", kEndpointJson) + "]}]}",
           Onboard(6));
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", kOnboardDevice, kEndpoint}});
}

// A given table: entry 0 covers buses 1-3 but is not present, entry 1
// ends the table, entry 2 would cover them. The count says 3.
TEST_F(SlotDescriptions, TheTableLookupSkipsAbsentEntriesAndStopsAtItsEnd) {
  StartPci(R"({"hostBridges": [{"buses": [0, 9], "devices": [)" + Port(1, R"(, "slot": 8)", kEndpointJson) + "]}]}",
           R"("systemInformation": {"iioTopology": [
               {"port": 1, "present": false, "slot": 1, "kind": 3, "buses": [0, 3], "device": 1},
               {"portIndex": "0xFFFF", "buses": [0, 0]},
               {"port": 2, "slot": 2, "kind": 3, "buses": [0, 3], "device": 1}]})");
  EXPECT_EQ(GetIioTopologyItem(0, 1), nullptr);
  Check({{"01:00.0", "PcieRoot(0x0)/Pci(0x1,0x0)/Pci(0x0,0x0)", kOnboardDevice, kEndpoint}});
}

// The derived table: entries in enumeration order, each with its port
// index, slot, kind, bus range, location and switch levels. The three
// ranges all start at bus 0: 0-5, 0-6, 0-7.
TEST_F(SlotDescriptions, TheEmulatorDerivesOneEntryPerRootPort) {
  StartPci(R"({"hostBridges": [{"buses": [0, 20], "devices": [)" +
           Port(1, R"(, "slot": 300, "iio": {"socket": 1, "port": 3})",
                Switch(Dsp(0, "", Switch(Dsp(0, "", kEndpointJson))))) +
           ", " + Port(2, "", kEndpointJson) + ", " + Port(28, R"(, "iio": {"kind": "pch", "port": 20})") + "]}]}");
  ASSERT_EQ(Read8(PciIoAt(0, 0, 1, 0), 0x1A), 5) << "the subordinate bus the entry takes";
  const QOR_IIO_TOPOLOGY_ENTRY *Second = GetIioTopologyItem(0, 6);
  ASSERT_NE(Second, nullptr);
  EXPECT_EQ(Second->PortIndex, 0) << "the first free port of socket 0";
  EXPECT_EQ(Second->Device, 2);
  EXPECT_EQ(Second->Slot, 0xFF) << "no slot: onboard";
  EXPECT_EQ(Second->SwitchLevel[0], 0x00);
  EXPECT_EQ(GetIioTopologyItem(0, 0), GetIioTopologyItem(0, 5));
  const QOR_IIO_TOPOLOGY_ENTRY *Deep = GetIioTopologyItem(0, 5);
  ASSERT_NE(Deep, nullptr);
  EXPECT_EQ(Deep->PortIndex, 60);
  EXPECT_EQ(Deep->Slot, 300 & 0xFF);
  EXPECT_EQ(Deep->Bus, 0);
  EXPECT_EQ(Deep->LastBus, 5);
  EXPECT_EQ(Deep->SwitchLevel[0], 0x05);
  EXPECT_EQ(Deep->SwitchLevel[1], 0x05);
  EXPECT_EQ(Deep->SwitchLevel[2], 0x00);
  const QOR_IIO_TOPOLOGY_ENTRY *Pch = GetIioTopologyItem(0, 7);
  ASSERT_NE(Pch, nullptr);
  EXPECT_EQ(Pch->PortIndex, 20);
  EXPECT_EQ(Pch->PortKind, QOR_IIO_PORT_KIND_PCH);
  EXPECT_EQ(Pch->Device, 28);
}
