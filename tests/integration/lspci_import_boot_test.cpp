// Real machines in, the same machines out: a board importing an lspci dump
// boots, and the lspci.txt of the boot decodes (lspci -F ... -vvv) exactly
// as the original dump does.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/boot_report.h"
#include "emulator/pci/lspci_dump.h"
#include "tests/integration/boot_helpers.h"
#include "tests/integration/lspci_tool.h"

namespace {

using qortest::kPciDumps;

std::string MakeTempDir() {
  std::string Pattern = (std::filesystem::temp_directory_path() / "qor-lspci-XXXXXX").string();
  return mkdtemp(Pattern.data()) != nullptr ? Pattern : "";
}

// lspci's verbose decode, one block per function keyed by its location.
std::map<std::string, std::string> DecodeByFunction(const std::string &File) {
  std::map<std::string, std::string> Blocks;
  std::istringstream In(qortest::Lspci(File, "-vvv"));
  std::string Line, Key;
  while (std::getline(In, Line)) {
    if (Line.empty()) continue;
    if (Line[0] != '\t') Key = Line.substr(0, Line.find(' '));
    Blocks[Key] += Line + "\n";
  }
  return Blocks;
}

std::string ImportBoard(const std::string &Dump) { return R"({"pci": {"import": ")" + Dump + R"("}})"; }

std::string BoardErrorOf(const std::string &Json, const std::string &Directory = "") {
  try {
    qor::emu::ParseBoard(Json, Directory);
  } catch (const qor::emu::BoardError &Error) {
    return Error.what();
  }
  return "";
}

class ImportedMachineBoot : public testing::TestWithParam<const char *> {};

TEST_P(ImportedMachineBoot, ExportDecodesAsTheOriginalDump) {
  std::string Original = kPciDumps + GetParam();
  qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::ParseBoard(ImportBoard(Original)));
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);

  // Nothing but the dump's functions, and the board's PCH where the
  // machine has no 00:1f.0.
  std::set<std::string> Dumped, Exported;
  for (const auto &F : qor::emu::ParseLspciDump(qortest::ReadTextFile(Original))) Dumped.insert(F.Location.Text());
  for (const auto &F : qor::emu::ParseLspciDump(Result.LspciDump)) Exported.insert(F.Location.Text());
  Dumped.insert("0000:00:1f.0");
  Exported.insert("0000:00:1f.0");
  EXPECT_EQ(Exported, Dumped);

  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  std::string Directory = MakeTempDir();
  ASSERT_FALSE(Directory.empty());
  qor::emu::WriteBootOutputs(Directory, qor::emu::ParseBoard(ImportBoard(Original)), Result, 1);
  std::map<std::string, std::string> Before = DecodeByFunction(Original);
  std::map<std::string, std::string> After = DecodeByFunction(Directory + "/lspci.txt");
  for (const auto &[Location, Block] : Before) EXPECT_EQ(After[Location], Block) << Location;
  std::filesystem::remove_all(Directory);
}

INSTANTIATE_TEST_SUITE_P(RealMachines, ImportedMachineBoot,
                         testing::Values("tree-asus-p6t6", "tree-fujitsu-p8010", "broken-ecaps",
                                         "PCI-X-bridges-and-domains", "cap-exp-rev-slot", "cap-aer-root",
                                         "cap-ptm-1"));

// A machine whose function sizes follow the bus's rule (4096 bytes for
// Express functions) comes back as the very text lspci prints of it.
TEST(LspciImportBoard, WorkstationExportIsByteForByteWhatLspciPrints) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  std::string Original = kPciDumps + "tree-asus-p6t6";
  qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::ParseBoard(ImportBoard(Original)));
  EXPECT_EQ(Result.LspciDump, qortest::Lspci(Original, "-n -xxxx"));
}

TEST(LspciImportBoard, PathIsRelativeToTheBoardFileAndErrorsNameFileAndLine) {
  std::string Directory = MakeTempDir();
  ASSERT_FALSE(Directory.empty());
  std::filesystem::create_directories(Directory + "/dumps");
  qortest::WriteTextFile(Directory + "/dumps/good.txt", qortest::ReadTextFile(kPciDumps + "cap-aer-root"));
  qortest::WriteTextFile(Directory + "/dumps/bad.txt", "00:00.0 Host bridge\n00: 86 80\n");
  qortest::WriteTextFile(Directory + "/board.json", ImportBoard("dumps/good.txt"));
  qor::emu::Board Board = qor::emu::LoadBoardFile(Directory + "/board.json");
  EXPECT_EQ(Board.Pci.Functions.size(), 2u);

  std::string Message = BoardErrorOf(ImportBoard("dumps/bad.txt"), Directory);
  EXPECT_NE(Message.find("board.pci.import: "), std::string::npos) << Message;
  EXPECT_NE(Message.find("bad.txt: line 2: "), std::string::npos) << Message;
  Message = BoardErrorOf(ImportBoard("dumps/missing.txt"), Directory);
  EXPECT_NE(Message.find("cannot read"), std::string::npos) << Message;
  EXPECT_NE(Message.find("missing.txt"), std::string::npos) << Message;
  // A device file is no dump: refused at once instead of read without end.
  EXPECT_NE(BoardErrorOf(ImportBoard("/dev/zero")).find("not a regular file"), std::string::npos);
  // Parsed as text without a directory, the path is taken as it stands.
  EXPECT_NE(BoardErrorOf(ImportBoard("dumps/good.txt")), "");
  std::filesystem::remove_all(Directory);
}

TEST(LspciImportBoard, ReplacesTheBaseTreeAndCombinesWithTheBoardsOwnFunctionsAndHostBridges) {
  // cap-exp-lnkcap2: 00:1c.0 -> 02:00.0 and the root bus 08 (08:00.0 -> 09:00.0).
  std::string Json = R"({"pci": {"import": ")" + kPciDumps + R"(cap-exp-lnkcap2",
      "functions": [ { "bdf": "02:00.0", "vendorId": "0x1234", "deviceId": "0x5678" } ],
      "hostBridges": [ { "segment": 1, "devices": [ { "vendorId": "0x8086", "deviceId": "0x0001" } ] } ] }})";
  qor::emu::Board Board = qor::emu::ParseBoard(Json);
  ASSERT_EQ(Board.Pci.HostBridges.size(), 3u);
  EXPECT_EQ(Board.Pci.HostBridges[0].FirstBus, 0x00);
  EXPECT_EQ(Board.Pci.HostBridges[0].LastBus, 0x02);
  EXPECT_EQ(Board.Pci.HostBridges[1].FirstBus, 0x08);
  EXPECT_EQ(Board.Pci.HostBridges[1].LastBus, 0x09);
  EXPECT_EQ(Board.Pci.HostBridges[2].Segment, 1);
  EXPECT_EQ(Board.Pci.HostBridges[2].Uid, 2u);

  qor::emu::BootResult Result = qor::emu::RunBoot(Board);
  std::vector<std::string> Headers;
  for (const auto &F : qor::emu::ParseLspciDump(Result.LspciDump)) {
    char Ids[16];
    std::snprintf(Ids, sizeof(Ids), " %02x%02x:%02x%02x", F.Config[1], F.Config[0], F.Config[3], F.Config[2]);
    Headers.push_back(F.Location.Text() + Ids);
  }
  // The dump's four functions (02:00.0 replaced), the PCH, the board's own
  // device in segment 1, and nothing of the built-in board's tree.
  EXPECT_EQ(Headers, (std::vector<std::string>{"0000:00:1c.0 8086:9d10", "0000:00:1f.0 8086:1b81",
                                               "0000:02:00.0 1234:5678", "0000:08:00.0 8086:15c0",
                                               "0000:09:00.0 8086:15bf", "0001:00:00.0 8086:0001"}));
}

// lspci's -vvv decode of a dump: per function its ids, the link fields and
// the slot number its port advertises.
struct DecodedFunction {
  unsigned Vendor = 0, Device = 0;
  int CapSpeed = -1, CapWidth = -1, StaSpeed = -1, StaWidth = -1;
  int Slot = -1;
};

int SpeedCode(const std::string &Text) {
  static const std::map<std::string, int> kCodes = {{"2.5GT/s", 1}, {"5GT/s", 2}, {"8GT/s", 3},
                                                    {"16GT/s", 4}, {"32GT/s", 5}, {"64GT/s", 6}};
  auto It = kCodes.find(Text);
  return It == kCodes.end() ? 0 : It->second;
}

std::map<std::string, DecodedFunction> DecodeLinks(const std::string &File) {
  std::map<std::string, DecodedFunction> Out;
  std::istringstream In(qortest::Lspci(File, "-D -n -vvv"));
  std::string Line;
  DecodedFunction *Current = nullptr;
  while (std::getline(In, Line)) {
    char Speed[16];
    int Width = 0, Slot = 0;
    unsigned Vendor = 0, Device = 0, Class = 0;
    char Location[16];
    if (std::sscanf(Line.c_str(), "%15s %x: %x:%x", Location, &Class, &Vendor, &Device) == 4 && Line[0] != '\t') {
      Current = &Out[Location];
      Current->Vendor = Vendor, Current->Device = Device;
    } else if (Current != nullptr && std::sscanf(Line.c_str(), " LnkCap: Port #%*d, Speed %15[^,], Width x%d", Speed, &Width) == 2) {
      Current->CapSpeed = SpeedCode(Speed), Current->CapWidth = Width;
    } else if (Current != nullptr && std::sscanf(Line.c_str(), " LnkSta: Speed %15[^,], Width x%d", Speed, &Width) == 2) {
      Current->StaSpeed = SpeedCode(Speed), Current->StaWidth = Width;
    } else if (Current != nullptr && std::sscanf(Line.c_str(), " Slot #%d", &Slot) == 1) {
      Current->Slot = Slot;
    }
  }
  return Out;
}

// The driver's PcieDevice section on an imported workstation lists the
// devices its walk keeps (function 0 endpoints with a PCI Express
// capability below a port) with the ids, link fields and slot numbers lspci
// decodes from the same dump.
TEST(LspciImportBoard, PcieDeviceOfTheImportedWorkstationAgreesWithLspci) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  std::string Original = kPciDumps + "tree-asus-p6t6";
  qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::LoadBoardFile(QOR_SOURCE_DIR "/boards/examples/import-asus-p6t6.json"));
  rapidjson::Document Document = qortest::OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  const rapidjson::Value &List = Document["PcieDevice"]["DeviceList"];

  std::map<std::string, DecodedFunction> Decoded = DecodeLinks(Original);
  // The parent port of each function, from lspci's bridge paths.
  std::map<std::string, std::string> ParentOf;
  std::istringstream Paths(qortest::Lspci(Original, "-D -PP"));
  for (std::string Line; std::getline(Paths, Line);) {
    std::string Path = Line.substr(0, Line.find(' '));
    size_t Slash = Path.rfind('/');
    if (Slash == std::string::npos) continue;
    std::string Parent = Path.substr(0, Slash);
    if (Parent.rfind('/') != std::string::npos) Parent = Path.substr(0, 5) + Parent.substr(Parent.rfind('/') + 1);
    ParentOf["0000:" + Path.substr(Slash + 1)] = Parent;
  }

  std::vector<std::string> Listed;
  for (const auto &Device : List.GetArray()) {
    char Location[16];
    std::snprintf(Location, sizeof(Location), "%04x:%02x:%02x.%x", Device["Segment"].GetUint(), Device["Bus"].GetUint(),
                  Device["Dev"].GetUint(), Device["Func"].GetUint());
    Listed.push_back(Location);
    SCOPED_TRACE(Location);
    const DecodedFunction &Lspci = Decoded[Location];
    EXPECT_EQ(Device["VendorID"].GetUint(), Lspci.Vendor);
    EXPECT_EQ(Device["DeviceID"].GetUint(), Lspci.Device);
    EXPECT_EQ(static_cast<int>(Device["PCIeGen"].GetUint()), Lspci.CapSpeed);
    EXPECT_EQ(static_cast<int>(Device["CardBandWidth"].GetUint()), Lspci.CapWidth);
    EXPECT_EQ(static_cast<int>(Device["LinkSpeed"].GetUint()), Lspci.StaSpeed);
    EXPECT_EQ(static_cast<int>(Device["LinkWidth"].GetUint()), Lspci.StaWidth);
    EXPECT_EQ(static_cast<int>(Device["Slot"].GetUint()), Decoded[ParentOf[Location]].Slot % 256);
  }
  std::sort(Listed.begin(), Listed.end());
  EXPECT_EQ(Listed, (std::vector<std::string>{"0000:04:00.0", "0000:06:00.0", "0000:07:00.0", "0000:08:00.0"}));
}

}  // namespace
