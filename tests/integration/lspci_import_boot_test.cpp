// Real machines in, the same machines out: a board importing an lspci dump
// boots, and the lspci.txt of the boot decodes (lspci -F ... -vvv) exactly
// as the original dump does.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/boot_report.h"
#include "emulator/pci/lspci_dump.h"
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

  // The bytes: every function of the dump, unchanged; a function the bus
  // holds with a larger space than dumped reads zeros past the dump.
  std::vector<qor::emu::DumpedFunction> Dumped = qor::emu::ParseLspciDump(qortest::ReadTextFile(Original));
  std::map<std::string, std::vector<uint8_t>> Exported;
  for (const auto &F : qor::emu::ParseLspciDump(Result.LspciDump)) {
    Exported[F.Location.Text()] = F.Config;
  }
  for (const auto &F : Dumped) {
    std::string Location = F.Location.Text();
    ASSERT_EQ(Exported.count(Location), 1u) << Location;
    std::vector<uint8_t> Expected = F.Config;
    Expected.resize(Exported[Location].size(), 0);
    EXPECT_EQ(Exported[Location], Expected) << Location;
    Exported.erase(Location);
  }
  // Nothing else but the board's PCH where the machine has no 00:1f.0.
  for (const auto &[Location, Bytes] : Exported) EXPECT_EQ(Location, "0000:00:1f.0");

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

}  // namespace
