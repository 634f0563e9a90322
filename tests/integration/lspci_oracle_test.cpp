// lspci itself as oracle of the dump reader and writer and of the tree the
// bus builds from a dump.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/pci/lspci_dump.h"
#include "emulator/pci/pci_bus.h"
#include "emulator/pci/pci_bus_from_board.h"
#include "tests/integration/lspci_tool.h"

namespace {

using qortest::kPciDumps;

class LspciOracle : public testing::TestWithParam<const char *> {};

// For dumps of real machines, what the writer prints from what the reader
// read is byte for byte what `lspci -n -xxxx` prints from the same file.
TEST_P(LspciOracle, WriterPrintsWhatLspciPrintsFromTheSameDump) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  std::string Path = kPciDumps + GetParam();
  std::vector<qor::emu::DumpedFunction> Functions = qor::emu::ParseLspciDump(qortest::ReadTextFile(Path));
  ASSERT_FALSE(Functions.empty());
  EXPECT_EQ(qor::emu::WriteLspciDump(Functions), qortest::Lspci(Path, "-n -xxxx"));
}

INSTANTIATE_TEST_SUITE_P(RealMachines, LspciOracle,
                         testing::Values("tree-asus-p6t6", "tree-fujitsu-p8010", "broken-ecaps",
                                         "PCI-X-bridges-and-domains", "cap-exp-rev-slot", "cap-exp-lnkcap2",
                                         "cap-ptm-1", "cap-aer-root", "cap-ht", "cap-dvsec-cxl"));

// The bus built from an imported dump enumerates the tree lspci decodes:
// `lspci -PP` prints each function with the path of bridges above it.
TEST(LspciTreeOracle, TheBusOfAnImportFollowsTheBridgesLspciShows) {
  if (!qortest::HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  for (const char *Name : {"tree-asus-p6t6", "tree-fujitsu-p8010", "PCI-X-bridges-and-domains", "cap-exp-lnkcap2"}) {
    SCOPED_TRACE(Name);
    std::string Path = kPciDumps + Name;
    std::vector<std::string> Shown;
    std::istringstream Lines(qortest::Lspci(Path, "-PP"));
    for (std::string Line; std::getline(Lines, Line);) Shown.push_back(Line.substr(0, Line.find(' ')));
    bool WithDomain = Shown.front().size() > 2 && Shown.front()[4] == ':';

    qor::emu::Board Board = qor::emu::ParseBoard(R"({"pci": {"import": ")" + Path + R"("}})");
    qor::emu::PciBus Bus;
    qor::emu::BuildPciBus(Board, &Bus);
    std::vector<qor::emu::EnumeratedFunction> Found = Bus.Enumerate();
    std::vector<std::string> Built;
    for (const qor::emu::EnumeratedFunction &F : Found) {
      std::string Text;
      for (int At = static_cast<int>(&F - Found.data()); At >= 0; At = Found[static_cast<size_t>(At)].Parent) {
        const qor::emu::PciLocation &Step = Found[static_cast<size_t>(At)].Function->Location();
        bool First = Found[static_cast<size_t>(At)].Parent < 0;
        Text = qor::emu::LspciLocationText(Step, WithDomain && First) + (Text.empty() ? "" : "/") + Text;
      }
      Built.push_back(Text);
    }
    // The board's PCH sits at 00:1f.0 when the machine has nothing there.
    Built.erase(std::remove_if(Built.begin(), Built.end(),
                               [&](const std::string &P) {
                                 return std::find(Shown.begin(), Shown.end(), P) == Shown.end() &&
                                        (P == "00:1f.0" || P == "0000:00:1f.0");
                               }),
                Built.end());
    std::sort(Built.begin(), Built.end());
    std::sort(Shown.begin(), Shown.end());
    EXPECT_EQ(Built, Shown);
  }
}

}  // namespace
