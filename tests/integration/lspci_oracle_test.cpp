// lspci itself as oracle of the dump reader and writer: for dumps of real
// machines, what the writer prints from what the reader read is byte for
// byte what `lspci -F DUMP -n -xxxx` prints from the same file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "emulator/pci/lspci_dump.h"
#include "emulator/pci/lspci_import.h"

namespace {

const std::string kDumps = std::string(QOR_SOURCE_DIR) + "/tests/data/pci-dumps/";

std::string ReadFile(const std::string &Path) {
  std::ifstream In(Path, std::ios::binary);
  std::stringstream Text;
  Text << In.rdbuf();
  return Text.str();
}

std::string RunCommand(const std::string &Command) {
  std::string Output;
  FILE *Pipe = popen(Command.c_str(), "r");
  if (Pipe == nullptr) return Output;
  char Buffer[4096];
  size_t Got;
  while ((Got = std::fread(Buffer, 1, sizeof(Buffer), Pipe)) > 0) Output.append(Buffer, Got);
  pclose(Pipe);
  return Output;
}

bool HaveLspci() { return std::system("command -v lspci >/dev/null 2>&1") == 0; }

class LspciOracle : public testing::TestWithParam<const char *> {};

TEST_P(LspciOracle, WriterPrintsWhatLspciPrintsFromTheSameDump) {
  if (!HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  std::string Path = kDumps + GetParam();
  std::vector<qor::emu::DumpedFunction> Functions = qor::emu::ParseLspciDump(ReadFile(Path));
  ASSERT_FALSE(Functions.empty());
  std::string Expected = RunCommand("lspci -F '" + Path + "' -n -xxxx 2>/dev/null");
  EXPECT_EQ(qor::emu::WriteLspciDump(Functions), Expected);
}

INSTANTIATE_TEST_SUITE_P(RealMachines, LspciOracle,
                         testing::Values("tree-asus-p6t6", "tree-fujitsu-p8010", "broken-ecaps",
                                         "PCI-X-bridges-and-domains", "cap-exp-rev-slot", "cap-exp-lnkcap2",
                                         "cap-ptm-1", "cap-aer-root", "cap-ht", "cap-dvsec-cxl"));

// The tree built from a dump follows the bridges as lspci decodes them:
// `lspci -PP` prints each function with the path of bridges above it.
TEST(LspciTreeOracle, ImportedParentsAreTheBridgesLspciShows) {
  if (!HaveLspci()) GTEST_SKIP() << "lspci is not installed (Debian package pciutils)";
  for (const char *Name : {"tree-asus-p6t6", "tree-fujitsu-p8010", "PCI-X-bridges-and-domains", "cap-exp-lnkcap2"}) {
    std::string Path = kDumps + Name;
    std::vector<qor::emu::DumpedFunction> Dumped = qor::emu::ParseLspciDump(ReadFile(Path));
    qor::emu::ImportedMachine Machine = qor::emu::ImportLspciMachine(Dumped);
    bool WithDomain = false;
    for (const auto &F : Dumped) WithDomain = WithDomain || F.Segment != 0;
    std::vector<std::string> Built;
    for (const qor::emu::ImportedFunction &F : Machine.Functions) {
      std::vector<const qor::emu::DumpedFunction *> Chain{&F.Dumped};
      for (int P = F.Parent; P >= 0; P = Machine.Functions[static_cast<size_t>(P)].Parent) {
        Chain.insert(Chain.begin(), &Machine.Functions[static_cast<size_t>(P)].Dumped);
      }
      std::string Text;
      for (const auto *Step : Chain) Text += (Text.empty() ? "" : "/") + qor::emu::LspciLocationText(*Step, WithDomain && Text.empty());
      Built.push_back(Text);
    }
    std::vector<std::string> Shown;
    std::istringstream Lines(RunCommand("lspci -F '" + Path + "' -PP 2>/dev/null"));
    for (std::string Line; std::getline(Lines, Line);) Shown.push_back(Line.substr(0, Line.find(' ')));
    std::sort(Built.begin(), Built.end());
    std::sort(Shown.begin(), Shown.end());
    EXPECT_EQ(Built, Shown) << Name;
  }
}

// The export's size rule (4096 bytes with a PCI Express capability, 256
// without) picks the size the operating system read on these machines.
// (On tree-fujitsu-p8010 it also read 4 KiB of a host bridge that has no
// Express capability; the rule gives that one 256.)
TEST(LspciExportSizeOnRealMachines, MatchesWhatTheMachinesShowed) {
  for (const char *Name : {"tree-asus-p6t6", "PCI-X-bridges-and-domains", "cap-exp-lnkcap2"}) {
    for (const qor::emu::DumpedFunction &F : qor::emu::ParseLspciDump(ReadFile(kDumps + Name))) {
      std::vector<uint8_t> Space = F.Config;
      Space.resize(4096, 0);
      EXPECT_EQ(qor::emu::LspciExportSize(Space), F.Config.size())
          << Name << " " << qor::emu::LspciLocationText(F, true);
    }
  }
}

}  // namespace
