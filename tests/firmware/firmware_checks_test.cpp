// Checks of the inventory boot of a rig run: what QorUploadDataDxe.efi sent
// from real firmware (OVMF under QEMU) against the machine QEMU was given
// (machine.json), the memory map the firmware handed the driver, zlib's
// CRC-32 and a real JSON library. Checks of sections whose filler is not
// built yet report "pending" (skipped), never pass silently.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <zlib.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <regex>
#include <string>
#include <vector>

#include "emulator/platform.h"
#include "tests/firmware/rig_run.h"
#include "uefi/rig/rig_platform_values.h"

namespace qor::rig {
namespace {

class Inventory : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (RunFolder().empty()) return;
    Boot = new BootFolder(RunFolder() + "/inventory/boot-1");
    Machine = new rapidjson::Document(ParseJson(ReadText(RunFolder() + "/machine.json"), "machine.json"));
    Sent = new std::vector<uint8_t>(Boot->Bytes("push_BiosBeforeBoot.json"));
    Document = new rapidjson::Document(ParseJson(std::string(Sent->begin(), Sent->end()), "push_BiosBeforeBoot.json"));
  }
  static void TearDownTestSuite() {
    delete Boot;
    delete Machine;
    delete Sent;
    delete Document;
  }
  void SetUp() override {
    if (RunFolder().empty()) GTEST_SKIP() << "no rig run to check: set QOR_RIG_OUT (scripts/firmware-test.sh does)";
    ASSERT_TRUE(Document->IsObject()) << "the inventory document was not captured";
  }
  const rapidjson::Value &Section(const char *Name) {
    static const rapidjson::Value kNull;
    const rapidjson::Value *Value = Member(*Document, Name);
    return Value != nullptr ? *Value : kNull;
  }
  uint64_t Setting(const char *Name) { return (*Machine)[Name].GetUint64(); }

  static BootFolder *Boot;
  static rapidjson::Document *Machine;
  static std::vector<uint8_t> *Sent;
  static rapidjson::Document *Document;
};
BootFolder *Inventory::Boot = nullptr;
rapidjson::Document *Inventory::Machine = nullptr;
std::vector<uint8_t> *Inventory::Sent = nullptr;
rapidjson::Document *Inventory::Document = nullptr;

TEST_F(Inventory, DocumentHoldsTheFourteenSectionsInRegistryOrder) {
  std::vector<std::string> Names;
  for (const auto &M : Document->GetObject()) Names.emplace_back(M.name.GetString());
  EXPECT_EQ(Names, kSections);
}

TEST_F(Inventory, EverySectionIsFilled) {
  // A complete set uploads on its own; the late trigger's forced upload then
  // finds it sent. A forced upload lists each section with its state.
  std::vector<std::string> Pending;
  for (size_t I = 0; I < kSections.size(); I++) {
    std::string Listed = "[" + std::to_string(I) + "] [" + kSections[I] + "] [0]\n";
    if (Boot->Log.find(Listed) == std::string::npos) continue;
    std::string Reason = PendingReason(Boot->Log, static_cast<int>(I));
    if (Reason.empty()) {
      ADD_FAILURE() << kSections[I] << " has a filler but was not filled";
    } else {
      Pending.push_back(Reason);
    }
  }
  if (Pending.empty()) {
    EXPECT_EQ(Boot->Log.find("Some data has not been filled, now force upload\n"), std::string::npos);
    EXPECT_NE(Boot->Log.find("Data has already been uploaded\n"), std::string::npos);
  } else {
    std::string Joined;
    for (const auto &Reason : Pending) Joined += (Joined.empty() ? "" : "; ") + Reason;
    GTEST_SKIP() << Joined;
  }
}

TEST_F(Inventory, DocumentIsSentOnceEndingInOneLineFeed) {
  EXPECT_EQ(Boot->Sends("push_BiosBeforeBoot.json"), 1u);
  ASSERT_FALSE(Sent->empty());
  EXPECT_EQ(Sent->back(), '\n');
  EXPECT_EQ(std::count(Sent->begin(), Sent->end(), '\0'), 0) << "the document is sent without a terminator";
}

TEST_F(Inventory, LoggedCrcAndSizeAreZlibsOverTheCapturedBytes) {
  std::smatch Match;
  std::regex Line("Upload bios info data: \\[size ([0-9]+)\\] \\[Crc32 0x([0-9A-F]{8})\\]\n");
  ASSERT_TRUE(std::regex_search(Boot->Log, Match, Line)) << "no upload line in debug.log";
  uLong Crc = crc32(crc32(0L, Z_NULL, 0), Sent->data(), static_cast<uInt>(Sent->size()));
  char Expected[16];
  std::snprintf(Expected, sizeof(Expected), "%08lX", Crc);
  EXPECT_EQ(Match[2].str(), Expected);
  EXPECT_EQ(std::stoull(Match[1].str()), Sent->size());
}

TEST_F(Inventory, JsonProtocolIndentsAsRapidJsonDoes) {
  // The guest's json protocol printed the document; RapidJSON's pretty
  // writer must leave that text exactly as it is.
  std::string Text(Sent->begin(), Sent->end() - 1);
  std::vector<char> Again(Text.size() * 2 + 64);
  ASSERT_EQ(emu::JsonPrettyPrintText(Text.c_str(), Again.size(), Again.data()), EFI_SUCCESS);
  EXPECT_EQ(std::string(Again.data()), Text);
}

TEST_F(Inventory, FlashDocumentIsSentOnceWithTheSpiIdentification) {
  EXPECT_EQ(Boot->Sends("push_FlashInfo.json"), 1u);
  std::vector<uint8_t> Flash = Boot->Bytes("push_FlashInfo.json");
  std::string Expected = "{\"Bios Rom Size\":\"32MB\",\"Flash ID\":" + std::to_string(QOR_RIG_FLASH_ID) + "}";
  EXPECT_EQ(std::string(Flash.begin(), Flash.end()), Expected);
}

TEST_F(Inventory, BiosVersionCarriesThePlatformTexts) {
  const rapidjson::Value &Bios = Section("BiosVersion");
  ASSERT_TRUE(Bios.IsObject());
  EXPECT_STREQ(Bios["Code"].GetString(), QOR_RIG_PCD_CODE_TEXT);
  EXPECT_STREQ(Bios["IntVer"].GetString(), QOR_RIG_PCD_INT_VERSION_TEXT);
  EXPECT_STREQ(Bios["ExtVer"].GetString(), QOR_RIG_PCD_EXT_VERSION_TEXT);  // customer 0: token 36
  EXPECT_STREQ(Bios["HideVer"].GetString(), QOR_RIG_PCD_HIDE_VERSION_TEXT);
  EXPECT_STREQ(Bios["BuildTime"].GetString(), "2025/07/26 03:58:47");
}

TEST_F(Inventory, CpuInfoFollowsTheSocketsQemuWasGiven) {
  const uint64_t Sockets = Setting("sockets");
  const rapidjson::Value &Cpu = Section("CpuInfo");
  ASSERT_TRUE(Cpu.IsObject());
  EXPECT_EQ(Cpu["MaxCpu"].GetUint64(), Sockets);
  const auto &List = Cpu["InfoList"];
  ASSERT_EQ(List.Size(), Sockets) << "one SMBIOS processor record per -smp socket";
  for (rapidjson::SizeType I = 0; I < List.Size(); I++) {
    EXPECT_EQ(List[I]["Index"].GetUint64(), I);
    EXPECT_EQ(List[I]["TotalCores"].GetUint64(), Setting("coresPerSocket"));
    char Ppin[24];
    std::snprintf(Ppin, sizeof(Ppin), "%016llX", static_cast<unsigned long long>(QOR_RIG_PPIN_BASE + I));
    EXPECT_STREQ(List[I]["PPIN"].GetString(), Ppin);
    EXPECT_EQ(List[I]["TDP"].GetUint64(), static_cast<uint64_t>(QOR_RIG_SOCKET_TDP));
  }
  const rapidjson::Value &Training = Section("DimmResultInfo");
  ASSERT_TRUE(Training.IsObject());
  EXPECT_EQ(Training["CpuBitMap"].GetUint64(), (1ull << Sockets) - 1);
  EXPECT_EQ(Training["SocketResult"].Size(), Sockets);
}

TEST_F(Inventory, DimmInfoPairsQemusMemoryDeviceWithTheFirstSlot) {
  // QEMU describes its RAM as one SMBIOS memory device per 16 GiB.
  const uint64_t MemoryMiB = Setting("memoryMiB");
  const uint64_t Devices = (MemoryMiB + 16383) / 16384;
  const rapidjson::Value &Dimms = Section("DimmInfo");
  ASSERT_TRUE(Dimms.IsObject());
  EXPECT_EQ(Dimms["MaxDimm"].GetUint64(), Setting("sockets") * 16);
  ASSERT_EQ(Dimms["InfoList"].Size(), Devices);
  const auto &First = Dimms["InfoList"][0];
  EXPECT_EQ(First["Socket"].GetUint64(), 0u);
  EXPECT_EQ(First["Channel"].GetUint64(), 0u);
  EXPECT_EQ(First["Dimm"].GetUint64(), 0u);
  EXPECT_EQ(First["DimmSize"].GetUint64(), Devices == 1 ? MemoryMiB : 16384u);
  EXPECT_STREQ(First["DimmTech"].GetString(), "RDIMM");
}

TEST_F(Inventory, OnBoardSataListsQemusDisk) {
  const rapidjson::Value &Sata = Section("OnBoardSataInfo");
  ASSERT_TRUE(Sata.IsObject());
  EXPECT_EQ(Sata["MaxSata"].GetUint64(), static_cast<uint64_t>(QOR_RIG_MAX_SATA));
  const auto &Expected = (*Machine)["sata"];
  ASSERT_EQ(Sata["SataList"].Size(), Expected.Size());
  for (rapidjson::SizeType I = 0; I < Expected.Size(); I++) {
    const auto &Drive = Sata["SataList"][I];
    std::string Port = std::to_string(Expected[I]["port"].GetUint());
    EXPECT_EQ(Drive["PhySlot"].GetString(), "SATA_" + Port);
    EXPECT_EQ(Drive["LogSlot"].GetUint(), Expected[I]["port"].GetUint());
    EXPECT_STREQ(Drive["Model"].GetString(), Expected[I]["model"].GetString());
    EXPECT_STREQ(Drive["SerialNumber"].GetString(), Expected[I]["serial"].GetString());
    EXPECT_STREQ(Drive["Type"].GetString(), Expected[I]["solidState"].GetBool() ? "SSD" : "HDD");
  }
}

// ---- the memory map: the firmware's own map, as it handed it to the driver

const char *const kListNames[15] = {"Reserved",          "LoaderCode",    "LoaderData",     "BootServiceCode",
                                    "BootServiceData",   "RuntimeCode",   "RuntimeData",    "Available",
                                    "UnusableMemory",    "ACPIReclaimMemory", "ACPIMemoryNVS", "MemoryMappedIO",
                                    "MemoryMappedIOPortSpace", "PalCode", "Persistent"};

TEST_F(Inventory, MemoryMapIsTheMapTheFirmwareGaveTheDriver) {
  std::vector<uint8_t> Snapshot = Boot->Bytes("memory-map.bin");
  ASSERT_GE(Snapshot.size(), 8u) << "the rig did not see the driver's GetMemoryMap";
  uint64_t Stride;
  std::memcpy(&Stride, Snapshot.data(), 8);
  ASSERT_GE(Stride, sizeof(EFI_MEMORY_DESCRIPTOR));

  // The section as the memory map rules make it from these descriptors.
  struct Entry {
    uint64_t Start, End, Pages, Attribute;
    const char *Type;
  };
  std::vector<Entry> Entries;
  uint64_t Pages[15] = {};
  uint64_t Total = 0;
  for (size_t Offset = 8; Offset + sizeof(EFI_MEMORY_DESCRIPTOR) <= Snapshot.size(); Offset += Stride) {
    EFI_MEMORY_DESCRIPTOR D;
    std::memcpy(&D, Snapshot.data() + Offset, sizeof(D));
    bool Counted = D.Type >= 15 || (D.Type != 0 && D.Type != 8 && D.Type != 11 && D.Type != 12);
    if (Counted) Total += D.NumberOfPages;
    if (D.Type >= 15) continue;
    Pages[D.Type] += D.NumberOfPages;
    Entries.push_back({D.PhysicalStart, D.PhysicalStart + D.NumberOfPages * 4096 - 1, D.NumberOfPages, D.Attribute,
                       kListNames[D.Type]});
  }

  const rapidjson::Value &Map = Section("MemoryMap");
  ASSERT_TRUE(Map.IsObject());
  EXPECT_EQ(Map["Count"].GetUint64(), Entries.size());
  const auto &List = Map["MemoryMap"];
  ASSERT_EQ(List.Size(), Entries.size());
  for (rapidjson::SizeType I = 0; I < List.Size(); I++) {
    SCOPED_TRACE("entry " + std::to_string(I));
    EXPECT_EQ(List[I]["StartAddress"].GetString(), HexText(Entries[I].Start));
    EXPECT_EQ(List[I]["EndAddress"].GetString(), HexText(Entries[I].End));
    EXPECT_STREQ(List[I]["Type"].GetString(), Entries[I].Type);
    EXPECT_EQ(List[I]["Pages"].GetString(), HexText(Entries[I].Pages));
    EXPECT_EQ(List[I]["Attritudes"].GetString(), HexText(Entries[I].Attribute));
  }
  const std::pair<const char *, int> kSummary[] = {
      {"Reserved", 0},          {"LoaderCode", 1},         {"LoaderData", 2},     {"BootServiceCode", 3},
      {"BootServiceData", 4},   {"RuntimeCode", 5},        {"RuntimeData", 6},    {"ACPIReclaimMemory", 9},
      {"ACPIMemoryNVS", 10},    {"MemoryMappedIO", 11},    {"MemoryMappedIOPort", 12}, {"PalCode", 13},
      {"Available", 7},         {"Persistent", 14},
  };
  const auto &Summary = Map["Summary"];
  std::vector<std::string> Keys;
  for (const auto &M : Summary.GetObject()) Keys.emplace_back(M.name.GetString());
  ASSERT_EQ(Keys.size(), 15u);
  for (size_t I = 0; I < 14; I++) {
    EXPECT_EQ(Keys[I], kSummary[I].first);
    EXPECT_EQ(Summary[kSummary[I].first].GetString(), HexText(Pages[kSummary[I].second] << 12)) << kSummary[I].first;
  }
  EXPECT_EQ(Keys[14], "TotalMemory");
  EXPECT_EQ(Summary["TotalMemory"].GetString(), HexText(Total << 12));

  // And that map is the machine's: the RAM QEMU was given, less what the
  // firmware keeps reserved (below 64 MiB of it).
  const uint64_t Ram = Setting("memoryMiB") << 20;
  EXPECT_LE(Total << 12, Ram);
  EXPECT_GE(Total << 12, Ram - (64ull << 20));
}

// ---- the PCIe sections: written now, real checks once their fillers exist

const rapidjson::Value *FindDevice(const rapidjson::Value &List, uint64_t Vendor, uint64_t Device, uint64_t Slot) {
  for (const auto &Item : List.GetArray()) {
    if (Item["VendorID"].GetUint64() == Vendor && Item["DeviceID"].GetUint64() == Device &&
        Item["Slot"].GetUint64() == Slot) {
      return &Item;
    }
  }
  return nullptr;
}

TEST_F(Inventory, PcieDeviceListsQemusDevicesWithTheirSlots) {
  std::string Pending = PendingReason(Boot->Log, kPcieDevice);
  if (!Pending.empty()) GTEST_SKIP() << Pending;
  const rapidjson::Value &Pcie = Section("PcieDevice");
  ASSERT_TRUE(Pcie.IsObject() && Pcie.HasMember("DeviceList"));
  const auto &List = Pcie["DeviceList"];
  EXPECT_EQ(Pcie["DeviceCout"].GetUint64(), List.Size());
  for (const auto &Expected : (*Machine)["devices"].GetArray()) {
    SCOPED_TRACE(Expected["id"].GetString());
    const rapidjson::Value *Device = FindDevice(List, Expected["vendorId"].GetUint64(), Expected["deviceId"].GetUint64(),
                                                Expected["slot"].GetUint64());
    ASSERT_NE(Device, nullptr) << "not listed with the slot number of the port above it";
    // The stack table's root port of the device's bus range; the socket by
    // the bus partition (128 buses per socket).
    EXPECT_EQ((*Device)["CPU"].GetUint64(), Expected["socket"].GetUint64());
    EXPECT_EQ((*Device)["CPUBus"].GetUint64(), Expected["rootPortBus"].GetUint64());
    EXPECT_EQ((*Device)["CPUDev"].GetUint64(), 0u);
    EXPECT_EQ((*Device)["CPUFunc"].GetUint64(), 0u);
    if (Expected.HasMember("nvme")) {
      // Model and serial number as QEMU's NVMe controller reports them
      // through the pass-thru protocol's Identify Controller.
      const rapidjson::Value *Nvme = Member(*Device, "NVMeInfo");
      ASSERT_NE(Nvme, nullptr);
      EXPECT_STREQ((*Nvme)["Desc"].GetString(), Expected["nvme"]["model"].GetString());
      EXPECT_STREQ((*Nvme)["SerialNumber"].GetString(), Expected["nvme"]["serial"].GetString());
      if (Expected["slot"].GetUint64() == 251) {
        EXPECT_STREQ((*Device)["PhySlot"].GetString(), QOR_RIG_M2_SLOT251_NAME);
        EXPECT_STREQ((*Device)["Model"].GetString(), Expected["nvme"]["model"].GetString());
      }
    }
    if (Expected.HasMember("mac")) {
      const rapidjson::Value *Nic = Member(*Device, "NicInfo");
      ASSERT_NE(Nic, nullptr);
      std::string Mac = Expected["mac"].GetString();
      std::replace(Mac.begin(), Mac.end(), ':', '-');
      for (char &C : Mac) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
      ASSERT_GE((*Nic)["PortInfo"].Size(), 1u);
      EXPECT_EQ((*Nic)["PortInfo"][0]["Mac"].GetString(), Mac);
    }
  }
}

// Every object of the tree, depth first.
void Flatten(const rapidjson::Value &Nodes, std::vector<const rapidjson::Value *> *Out) {
  for (const auto &Node : Nodes.GetArray()) {
    Out->push_back(&Node);
    if (Node.HasMember("ChildDevice")) Flatten(Node["ChildDevice"], Out);
  }
}

TEST_F(Inventory, PcieTopologyPlacesEveryFunctionUnderItsRootPort) {
  std::string Pending = PendingReason(Boot->Log, kPcieTopology);
  if (!Pending.empty()) GTEST_SKIP() << Pending;
  const rapidjson::Value &Topology = Section("PcieTopology");
  ASSERT_TRUE(Topology.IsObject() && Topology.HasMember("Count"));
  // "Count" is the number of PCI I/O handles, which the rig counted too.
  EXPECT_EQ(Topology["Count"].GetUint64(), Boot->Report["machine"]["pciFunctions"].GetUint64());
  std::vector<const rapidjson::Value *> Nodes;
  Flatten(Topology["PciTree"], &Nodes);
  EXPECT_EQ(Nodes.size(), Topology["Count"].GetUint64()) << "every function appears once in the tree";
  for (const auto &Port : (*Machine)["rootPorts"].GetArray()) {
    SCOPED_TRACE("root port on bus " + std::to_string(Port["bus"].GetUint()));
    const rapidjson::Value *Found = nullptr;
    for (const rapidjson::Value *Node : Nodes) {
      if ((*Node)["Bus"].GetString() == HexText(Port["bus"].GetUint()) && std::string((*Node)["Device"].GetString()) == "0x0") {
        Found = Node;
      }
    }
    ASSERT_NE(Found, nullptr);
    EXPECT_TRUE(Found->HasMember("RootPortIndex")) << "the IIO topology table names it as a root port";
    EXPECT_EQ((*Found)["Socket"].GetString(), HexText(Port["socket"].GetUint()));
    ASSERT_TRUE(Found->HasMember("Slot Capability Register"));
    EXPECT_EQ(std::stoull((*Found)["Slot Capability Register"].GetString(), nullptr, 16) >> 19, Port["slot"].GetUint());
    // Everything below a root port is its child, grandchild...
    if (Port["slot"].GetUint() != 6) EXPECT_TRUE(Found->HasMember("ChildDevice"));
  }
}

TEST_F(Inventory, PcieResourceDescribesTheSlotOfEachQemuDevice) {
  std::string Pending = PendingReason(Boot->Log, kPcieResource);
  if (!Pending.empty()) GTEST_SKIP() << Pending;
  const rapidjson::Value &Resource = Section("PcieResource");
  ASSERT_TRUE(Resource.IsObject() && Resource.HasMember("PCIMemIoResources"));
  // Slot descriptions of the endpoints, by their ids: the root port's slot
  // number from the IIO topology, or the downstream port's below a switch.
  std::map<std::string, std::set<std::string>> Seen, Expected;
  for (const auto &Device : (*Machine)["devices"].GetArray()) {
    std::string Ids = HexText(Device["vendorId"].GetUint64()) + ":" + HexText(Device["deviceId"].GetUint64());
    Expected[Ids].insert(HexText(Device["slot"].GetUint64()));
    Seen[Ids];
  }
  for (const auto &Range : Resource["PCIMemIoResources"].GetArray()) {
    const auto &Detail = Range["ResourceDetail"];
    std::string Ids = std::string(Detail["VendorID"].GetString()) + ":" + Detail["DeviceID"].GetString();
    if (Expected.count(Ids) == 0) continue;
    ASSERT_TRUE(Detail.HasMember("SlotDesc")) << Ids;
    Seen[Ids].insert(Detail["SlotDesc"].GetString());
    EXPECT_STREQ(Detail["SubDevSlotDesc"].GetString(), "NoSlot:This is endpoint device.");
  }
  EXPECT_EQ(Seen, Expected);
}

TEST_F(Inventory, PcieResourceShowsTheHostBridgesMmcfgWindow) {
  std::string Pending = PendingReason(Boot->Log, kPcieResource);
  if (!Pending.empty()) GTEST_SKIP() << Pending;
  const rapidjson::Value &Resource = Section("PcieResource");
  ASSERT_TRUE(Resource.IsObject() && Resource.HasMember("OtherReourceRange"));
  bool Found = false;
  for (const auto &Range : Resource["OtherReourceRange"].GetArray()) {
    const rapidjson::Value *Type = Member(Range["ResourceDetail"], "ResourceType");
    if (Type == nullptr || std::string(Type->GetString()) != "MMCFG") continue;
    Found = true;
    // q35's PCIEXBAR as OVMF programs it: 256 MiB at 0xB0000000.
    EXPECT_STREQ(Range["StartAddress"].GetString(), "0xb0000000");
    EXPECT_STREQ(Range["EndAddress"].GetString(), "0xbfffffff");
  }
  EXPECT_TRUE(Found);
}

}  // namespace
}  // namespace qor::rig
