// lspci decodes the configuration spaces the emulator builds for the
// built-in board: the capability list, port types, links, slots and BARs it
// reports are the ones the board describes.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "tests/unit/pci_bus_fixture.h"

namespace {

class LspciOracle : public PciBusOnEmulator {
 protected:
  // `lspci -vvv` of every function reachable through PCI I/O, one text per
  // function keyed by "SSSS:BB:DD.F".
  std::map<std::string, std::string> Decode() {
    std::string Dump = ::testing::TempDir() + "pci-oracle.txt";
    std::ofstream Out(Dump);
    for (const auto &Entry : Plat->PciFunctions()) {
      const auto &Bytes = Entry.Function->View();
      Out << Entry.Function->Location().Text() << " Device\n";
      for (size_t Row = 0; Row < Bytes.size(); Row += 16) {
        char Line[8];
        std::snprintf(Line, sizeof(Line), "%03zx:", Row);
        Out << (Row < 0x100 ? Line + 1 : Line);
        for (size_t I = 0; I < 16; I++) {
          std::snprintf(Line, sizeof(Line), " %02x", Bytes[Row + I]);
          Out << Line;
        }
        Out << "\n";
      }
      Out << "\n";
    }
    Out.close();
    std::map<std::string, std::string> Texts;
    FILE *Pipe = popen(("lspci -D -n -vvv -F " + Dump + " 2>/dev/null").c_str(), "r");
    if (Pipe == nullptr) return Texts;
    char Buffer[512];
    std::string Current;
    while (std::fgets(Buffer, sizeof(Buffer), Pipe) != nullptr) {
      std::string Line = Buffer;
      if (!Line.empty() && Line[0] != '\t' && Line[0] != '\n') Current = Line.substr(0, 12);
      Texts[Current] += Line;
    }
    pclose(Pipe);
    return Texts;
  }
};

TEST_F(LspciOracle, BuiltInBoardPortsLinksSlotsAndBarsDecodeAsDescribed) {
  Start();
  auto Texts = Decode();
  ASSERT_EQ(Texts.size(), Plat->PciFunctions().size());
  struct Row {
    const char *Location;
    const char *Expected;
  } Rows[] = {
      {"0000:15:01.0", "Express (v2) Root Port (Slot+)"},
      {"0000:15:01.0", "SltCap:\tAttnBtn- PwrCtrl- MRL- AttnInd- PwrInd- HotPlug- Surprise-\n\t\t\tSlot #1,"},
      {"0000:15:01.0", "Bus: primary=15, secondary=16, subordinate=16"},
      {"0000:16:00.0", "Express (v2) Endpoint"},
      {"0000:16:00.0", "LnkCap:\tPort #0, Speed 8GT/s, Width x8"},
      {"0000:16:00.0", "Region 0: Memory at 20fff000000 (64-bit, prefetchable)"},
      {"0000:16:00.0", "Subsystem: 8086:0002"},
      {"0000:27:00.0", "Express (v2) Upstream Port"},
      {"0000:28:00.0", "Express (v2) Downstream Port (Slot-)"},
      {"0000:28:00.0", "LnkCap:\tPort #8, Speed 16GT/s, Width x16"},
      {"0000:28:01.0", "LnkSta:\tSpeed 16GT/s, Width x8"},
      {"0000:29:00.0", "LnkSta:\tSpeed 2.5GT/s (downgraded), Width x16"},
      {"0000:37:01.0", "Slot #251,"},
      {"0000:a8:02.0", "LnkCap:\tPort #0, Speed 64GT/s, Width x4"},
      {"0000:99:01.0", "Slot #8,"},
      {"0000:00:00.0", "Express (v2) Root Complex Integrated Endpoint"},
      {"0000:01:00.0", "Express (v2) PCI-Express to PCI/PCI-X Bridge"},
      {"0000:02:00.0", "Region 2: I/O ports at 3000"},
      {"0000:02:00.0", "Capabilities: [40] Power Management version 3"},
      {"0000:b9:02.0", "LnkSta:\tSpeed 2.5GT/s, Width x0"},
  };
  for (const Row &R : Rows) {
    EXPECT_NE(Texts[R.Location].find(R.Expected), std::string::npos) << R.Location << " lacks \"" << R.Expected
                                                                       << "\" in\n" << Texts[R.Location];
  }
  // A conventional function has no PCI Express capability.
  EXPECT_EQ(Texts["0000:02:00.0"].find("Express"), std::string::npos);
}

}  // namespace
