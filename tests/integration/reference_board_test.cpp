// The reference big board (boards/examples/generated-4s-512.json: 4 sockets,
// 512 PCI functions with switches, 64 DIMMs, 1,000 memory descriptors) is
// the generator's output, boots, sends its complete document on its own,
// and every section lists what the driver's rules take from the board: the
// devices the PCIe walk keeps, every function in the tree, every assigned
// BAR and open window, every installed DIMM, every descriptor. The PCI
// expectations come from lspci's decode of the boot's dump.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "tests/integration/boot_helpers.h"
#include "tests/integration/lspci_decode.h"
#include "tests/integration/lspci_tool.h"
#include "tools/board_generator.h"

namespace fs = std::filesystem;

namespace {

const std::string kBoardFile = std::string(QOR_SOURCE_DIR) + "/boards/examples/generated-4s-512.json";
const qor::tool::BoardShape kShape{512, 4, 64, 1000};

TEST(ReferenceBoard, IsWhatTheGeneratorWritesForItsCommandLine) {
  EXPECT_TRUE(qortest::ReadTextFile(kBoardFile) == qor::tool::GenerateBoard(kShape))
      << "regenerate it: build/host/" << qor::tool::GeneratorCommandLine(kShape) << " --out " << kBoardFile;
}

// One boot of the board for every case.
class ReferenceBoardBoot : public testing::Test {
 protected:
  struct Shared {
    rapidjson::Document BoardJson;  // the file as written, for what the board holds
    qor::emu::BootResult Result;
    rapidjson::Document Document;
    std::map<std::string, qortest::LspciFunction> Lspci;
  };
  static void SetUpTestSuite() {
    S = new Shared;
    std::string Text = qortest::ReadTextFile(kBoardFile);
    S->BoardJson.Parse<rapidjson::kParseCommentsFlag>(Text.c_str());
    S->Result = qor::emu::RunBoot(qor::emu::LoadBoardFile(kBoardFile));
    S->Document = qortest::OnlyDocument(S->Result);
    std::string Pattern = (fs::temp_directory_path() / "qor-reference-XXXXXX").string();
    if (qortest::HaveLspci() && mkdtemp(Pattern.data()) != nullptr) {
      qortest::WriteTextFile(Pattern + "/lspci.txt", S->Result.LspciDump);
      S->Lspci = qortest::DecodeLspci(Pattern + "/lspci.txt");
      fs::remove_all(Pattern);
    }
  }
  static void TearDownTestSuite() {
    delete S;
    S = nullptr;
  }
  void SetUp() override {
    ASSERT_TRUE(S->BoardJson.IsObject()) << "the board file parses";
    ASSERT_TRUE(S->Document.IsObject()) << "the document was sent and is JSON";
  }
  void NeedLspci() {
    if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
    ASSERT_EQ(S->Lspci.size(), kShape.Functions);
  }
  static const rapidjson::Value &Section(const char *Name) { return S->Document[Name]; }
  static Shared *S;
};
ReferenceBoardBoot::Shared *ReferenceBoardBoot::S = nullptr;

TEST_F(ReferenceBoardBoot, SendsTheCompleteDocumentBeforeTheLateTriggerAndItMatchesTheSchema) {
  EXPECT_EQ(qortest::CountOf(S->Result, "Some data has not been filled, now force upload\n"), 0u);
  EXPECT_EQ(qortest::CountOf(S->Result, "Data has already been uploaded\n"), 1u) << "the late trigger found it sent";
  EXPECT_EQ(qortest::MemberNames(S->Document), qortest::kSectionOrder);
  for (const std::string &Name : qortest::kSectionOrder) {
    if (Name == "MiscInfo") continue;  // an empty object by design
    EXPECT_FALSE(qortest::IsEmptyObject(S->Document[Name.c_str()])) << Name << " was sent empty";
  }
  std::string Pattern = (fs::temp_directory_path() / "qor-reference-XXXXXX").string();
  ASSERT_NE(mkdtemp(Pattern.data()), nullptr);
  const qor::emu::Upload *Sent = S->Result.FindUpload(qortest::kDocumentName);
  ASSERT_NE(Sent, nullptr);
  std::string File = Pattern + "/" + qortest::kDocumentName;
  qortest::WriteTextFile(File, qortest::Text(Sent->Bytes));
  std::string Command = "python3 '" QOR_SOURCE_DIR "/tests/schema/document_schema.py' '" + File + "' >'" + Pattern +
                        "/schema.txt' 2>&1";
  int Status = std::system(Command.c_str());
  std::string Report = qortest::ReadTextFile(Pattern + "/schema.txt");
  fs::remove_all(Pattern);
  EXPECT_TRUE(WIFEXITED(Status) && WEXITSTATUS(Status) == 0) << Report;
}

// The walk's own tables: its exclusion table (0xFFFF matches any
// subsystem id) and its multi-function card table.
struct Ids {
  uint16_t Vendor, Device, SubVendor, SubDevice;
};
constexpr Ids kExcluded[] = {{0x8086, 0x37CC, 0xFFFF, 0xFFFF}, {0x10DE, 0x1AF1, 0xFFFF, 0xFFFF},
                             {0x1000, 0x00B2, 0xFFFF, 0xFFFF}, {0x1000, 0xC010, 0xFFFF, 0xFFFF},
                             {0x10B5, 0x87B0, 0x10B5, 0x87B0}, {0x10B5, 0x87B1, 0x10B5, 0x87B1}};
constexpr Ids kMultiFunctionCards[] = {{0x8086, 0x37C8, 0x8086, 0x0001}, {0x8086, 0x56C1, 0x8086, 0x4905},
                                       {0x1E3E, 0x0003, 0x0000, 0x0001}, {0x1E3E, 0x000B, 0x0000, 0x0001},
                                       {0x1AF4, 0x1041, 0x1BD4, 0xF006}, {0x1AF4, 0x1041, 0x1BD4, 0xF007}};

Ids IdsOf(const qortest::LspciFunction &F) {
  auto W = [&F](uint32_t Offset) { return static_cast<uint16_t>(qortest::RawBytes(F.Bytes, Offset, 2)); };
  return {W(0x00), W(0x02), W(0x2C), W(0x2E)};
}

std::string Location(const rapidjson::Value &Record, const char *S, const char *B, const char *D, const char *F,
                     bool Hex) {
  auto N = [&](const char *Key) {
    return Hex ? std::stoull(Record[Key].GetString(), nullptr, 16) : Record[Key].GetUint64();
  };
  char Text[24];
  std::snprintf(Text, sizeof(Text), "%04llx:%02llx:%02llx.%llx", N(S), N(B), N(D), N(F));
  return Text;
}

// Keep-filter: below a bridge (a path longer than one PCI node), function 0,
// an endpoint header, a PCI Express capability at 0x40 or above, not
// excluded. Duplicate filter: a card of the multi-function table whose ids
// an earlier record of the same slot carries. The walk goes in handle
// order, which on this board is location order (host bridges by segment
// and bus).
TEST_F(ReferenceBoardBoot, PcieDeviceListsExactlyTheFunctionsTheWalkKeeps) {
  NeedLspci();
  std::set<std::string> Expected;
  std::set<std::tuple<uint16_t, uint16_t, uint16_t, uint16_t, unsigned>> CardsSeen;
  for (const auto &[Key, F] : S->Lspci) {
    Ids I = IdsOf(F);
    auto Express = F.Caps.find("Express");
    bool Kept = !F.Parent.empty() && Key.back() == '0' && (F.Bytes.at(0x0E) & 0x7F) == 0 && Express != F.Caps.end() &&
                Express->second >= 0x40;
    for (const Ids &E : kExcluded) {
      Kept &= !(I.Vendor == E.Vendor && I.Device == E.Device && (E.SubVendor == 0xFFFF || I.SubVendor == E.SubVendor) &&
                (E.SubDevice == 0xFFFF || I.SubDevice == E.SubDevice));
    }
    if (!Kept) continue;
    std::string Up = F.Parent;
    while (!Up.empty() && !S->Lspci[Up].Slot) Up = S->Lspci[Up].Parent;
    unsigned Slot = Up.empty() ? 65535 : (*S->Lspci[Up].Slot & 0xFF);
    for (const Ids &M : kMultiFunctionCards) {
      if (I.Vendor == M.Vendor && I.Device == M.Device && I.SubVendor == M.SubVendor && I.SubDevice == M.SubDevice) {
        Kept = CardsSeen.insert({I.Vendor, I.Device, I.SubVendor, I.SubDevice, Slot}).second;
      }
    }
    if (Kept) Expected.insert(Key);
  }
  ASSERT_LE(Expected.size(), 512u) << "the walk holds 512 records";
  const rapidjson::Value &List = Section("PcieDevice")["DeviceList"];
  std::set<std::string> Listed;
  for (const auto &Record : List.GetArray()) Listed.insert(Location(Record, "Segment", "Bus", "Dev", "Func", false));
  EXPECT_EQ(Listed, Expected);
  EXPECT_EQ(List.Size(), Expected.size()) << "each once";
  EXPECT_EQ(Section("PcieDevice")["DeviceCout"].GetUint64(), Expected.size());
}

size_t CountNodes(const rapidjson::Value &Nodes, const std::string &Parent,
                  std::map<std::string, qortest::LspciFunction> &Lspci) {
  size_t Count = 0;
  for (const auto &Node : Nodes.GetArray()) {
    std::string Key = Location(Node, "Segment", "Bus", "Device", "Function", true);
    EXPECT_EQ(Lspci[Key].Parent, Parent) << Key << " under the bridge above it";
    Count++;
    if (Node.HasMember("ChildDevice")) Count += CountNodes(Node["ChildDevice"], Key, Lspci);
  }
  return Count;
}

TEST_F(ReferenceBoardBoot, PcieTopologyHoldsEveryFunctionUnderTheBridgeAboveIt) {
  NeedLspci();
  const rapidjson::Value &Topology = Section("PcieTopology");
  EXPECT_EQ(Topology["Count"].GetUint64(), kShape.Functions) << "one node per PCI I/O handle";
  EXPECT_EQ(CountNodes(Topology["PciTree"], "", S->Lspci), kShape.Functions);
}

// One resource per BAR lspci shows at an address and per window the driver
// reports of those lspci shows open (a prefetchable window across a 4 GiB
// boundary is not: the driver compares only the low halves of its base and
// limit); sorted by start address; the six platform decode ranges.
TEST_F(ReferenceBoardBoot, PcieResourceListsEveryAssignedBarAndOpenWindowInAddressOrder) {
  NeedLspci();
  size_t Bars = 0, Windows = 0, Dropped = 0;
  for (const auto &[Key, F] : S->Lspci) {
    for (const qortest::LspciRegion &R : F.Regions) Bars += R.Address != 0;
    Windows += qortest::DriverReportedWindows(F).size();
    Dropped += F.Windows.size() - qortest::DriverReportedWindows(F).size();
  }
  EXPECT_GT(Dropped, 0u) << "the board has windows across a 4 GiB boundary";
  const rapidjson::Value &Resources = Section("PcieResource")["PCIMemIoResources"];
  size_t Own = 0, Behind = 0;
  uint64_t Previous = 0;
  for (const auto &R : Resources.GetArray()) {
    bool Window = std::string(R["ResourceDetail"]["Description"].GetString()) ==
                  "This resource is consumed by devices that behind the bridge.";
    (Window ? Behind : Own)++;
    uint64_t Start = std::stoull(R["StartAddress"].GetString(), nullptr, 16);
    EXPECT_GE(Start, Previous);
    Previous = Start;
  }
  EXPECT_EQ(Own, Bars);
  EXPECT_EQ(Behind, Windows);
  EXPECT_EQ(Section("PcieResource")["OtherReourceRange"].Size(), 6u);
}

TEST_F(ReferenceBoardBoot, DimmInfoListsEveryInstalledDimm) {
  const rapidjson::Value &Hobs = S->BoardJson["hobs"];
  const rapidjson::Value &Map = Hobs["dimmMap"];
  const rapidjson::Value &Installed = Hobs["memoryMap"]["dimms"];
  std::set<std::tuple<unsigned, unsigned, unsigned>> Board, Listed;
  for (const auto &D : Installed.GetArray()) Board.insert({D["socket"].GetUint(), D["channel"].GetUint(), D["dimm"].GetUint()});
  const rapidjson::Value &Info = Section("DimmInfo");
  for (const auto &D : Info["InfoList"].GetArray()) Listed.insert({D["Socket"].GetUint(), D["Channel"].GetUint(), D["Dimm"].GetUint()});
  EXPECT_EQ(Board.size(), kShape.Dimms);
  EXPECT_EQ(Listed, Board);
  EXPECT_EQ(Info["InfoList"].Size(), kShape.Dimms);
  EXPECT_EQ(Info["MaxDimm"].GetUint(), Map["sockets"].GetUint() * Map["channels"].GetUint() * Map["dimms"].GetUint());
}

// Every descriptor of a type from 0 to 14 is listed, in map order.
TEST_F(ReferenceBoardBoot, MemoryMapListsEveryDescriptorInOrder) {
  const std::set<std::string> Listed = {
      "EfiReservedMemoryType", "EfiLoaderCode",          "EfiLoaderData",         "EfiBootServicesCode",
      "EfiBootServicesData",   "EfiRuntimeServicesCode", "EfiRuntimeServicesData", "EfiConventionalMemory",
      "EfiUnusableMemory",     "EfiACPIReclaimMemory",   "EfiACPIMemoryNVS",      "EfiMemoryMappedIO",
      "EfiMemoryMappedIOPortSpace", "EfiPalCode",         "EfiPersistentMemory"};
  std::vector<uint64_t> Starts;
  for (const auto &D : S->BoardJson["memoryMap"]["descriptors"].GetArray()) {
    if (Listed.count(D["type"].GetString()) != 0) Starts.push_back(std::stoull(D["start"].GetString(), nullptr, 16));
  }
  EXPECT_EQ(Starts.size(), kShape.MemoryDescriptors);
  const rapidjson::Value &Section = ReferenceBoardBoot::Section("MemoryMap");
  EXPECT_EQ(Section["Count"].GetUint64(), Starts.size());
  ASSERT_EQ(Section["MemoryMap"].Size(), Starts.size());
  for (size_t I = 0; I < Starts.size(); I++) {
    EXPECT_EQ(std::stoull(Section["MemoryMap"][static_cast<rapidjson::SizeType>(I)]["StartAddress"].GetString(), nullptr, 16),
              Starts[I])
        << "entry " << I;
  }
}

}  // namespace
