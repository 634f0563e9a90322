// Reading `lspci -xxxx` dumps: every function and byte lands at its place,
// the variations real dumps show are accepted, and anything else is refused
// with the line that broke it. (The writer is checked against lspci itself
// in tests/integration/lspci_oracle_test.cpp.)
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

#include "emulator/pci/lspci_dump.h"

namespace {

using qor::emu::DumpedFunction;
using qor::emu::LspciDumpError;
using qor::emu::ParseLspciDump;

// Bytes of a function: the byte at offset N is (N * 7 + Seed) mod 256, so
// each row and each function differ.
std::vector<uint8_t> Pattern(size_t Size, unsigned Seed) {
  std::vector<uint8_t> Bytes(Size);
  for (size_t I = 0; I < Size; I++) Bytes[I] = static_cast<uint8_t>(I * 7 + Seed);
  return Bytes;
}

// Hex rows as lspci prints them ("%02x:" then " %02x" sixteen times).
std::string Rows(const std::vector<uint8_t> &Bytes) {
  std::string Text;
  char Cell[8];
  for (size_t At = 0; At < Bytes.size(); At++) {
    if (At % 16 == 0) {
      std::snprintf(Cell, sizeof(Cell), "%02zx:", At);
      Text += Cell;
    }
    std::snprintf(Cell, sizeof(Cell), " %02x", Bytes[At]);
    Text += Cell;
    if (At % 16 == 15) Text += '\n';
  }
  return Text;
}

// The line number a refused dump names; 0 when it was accepted.
size_t RefusedAt(const std::string &Text, std::string *Message = nullptr) {
  try {
    ParseLspciDump(Text);
  } catch (const LspciDumpError &Error) {
    if (Message != nullptr) *Message = Error.what();
    return Error.Line();
  }
  return 0;
}

TEST(LspciDumpParse, ReadsFunctionsOfEachSizeWithAndWithoutDomains) {
  std::vector<uint8_t> Small = Pattern(64, 1), Conventional = Pattern(256, 2), Express = Pattern(4096, 3);
  std::string Text = "00:1f.3 SMBus: Some Controller (rev 03)\n" + Rows(Small) + "\n" +
                     "0001:3a:1e.7 PCI bridge: Some Bridge\n" + Rows(Express) + "\n" +
                     "ff:00.0 Host bridge: Something\n" + Rows(Conventional);
  std::vector<DumpedFunction> Functions = ParseLspciDump(Text);
  ASSERT_EQ(Functions.size(), 3u);
  EXPECT_EQ(Functions[0].Location.Segment, 0);
  EXPECT_EQ(Functions[0].Location.Bus, 0x00);
  EXPECT_EQ(Functions[0].Location.Device, 0x1f);
  EXPECT_EQ(Functions[0].Location.Function, 3);
  EXPECT_EQ(Functions[0].Config, Small);
  EXPECT_EQ(Functions[1].Location.Segment, 1);
  EXPECT_EQ(Functions[1].Location.Bus, 0x3a);
  EXPECT_EQ(Functions[1].Location.Device, 0x1e);
  EXPECT_EQ(Functions[1].Location.Function, 7);
  EXPECT_EQ(Functions[1].Config, Express);
  EXPECT_EQ(Functions[2].Location.Bus, 0xff);
  EXPECT_EQ(Functions[2].Config, Conventional);
}

TEST(LspciDumpParse, ToleratesBlankLinesTrailingSpaceCrLfUpperCaseAndVerboseDecode) {
  std::vector<uint8_t> Bytes = Pattern(64, 9);
  std::string Upper = Rows(Bytes);
  for (char &C : Upper) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
  std::string Crlf;
  for (char C : Upper) Crlf += C == '\n' ? std::string(" \r\n") : std::string(1, C);
  std::string Text = "\n\n00:02.0 VGA compatible controller: X   \r\n"
                     "\tControl: I/O+ Mem+ BusMaster+\n"
                     "\t\tDevCap:\tMaxPayload 128 bytes\n"
                     "        Physical Slot: 3\n"
                     "\n" + Crlf + "\n\n";
  std::vector<DumpedFunction> Functions = ParseLspciDump(Text);
  ASSERT_EQ(Functions.size(), 1u);
  EXPECT_EQ(Functions[0].Location.Device, 2);
  EXPECT_EQ(Functions[0].Config, Bytes);
  // A header alone on its line, with no description, is a function too.
  EXPECT_EQ(ParseLspciDump("00:00.0\n" + Rows(Bytes)).size(), 1u);
  EXPECT_TRUE(ParseLspciDump("").empty());
}

TEST(LspciDumpParse, RefusesMalformedInputNamingTheLine) {
  std::string Good = "00:00.0 Host bridge\n" + Rows(Pattern(64, 0));
  std::string Message;

  EXPECT_EQ(RefusedAt(Rows(Pattern(16, 0))), 1u) << "row before any header";
  EXPECT_EQ(RefusedAt("\tControl: I/O+\n" + Good), 1u) << "decode line before any header";
  EXPECT_EQ(RefusedAt(Good + "garbage here\n", &Message), 6u);
  EXPECT_NE(Message.find("\"garbage here\""), std::string::npos) << Message;

  // Rows must run on from offset 0 without gaps, sixteen bytes each.
  std::string Gap = "00:00.0 X\n00: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n"
                    "20: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n";
  EXPECT_EQ(RefusedAt(Gap, &Message), 3u);
  EXPECT_NE(Message.find("offset 10 was expected"), std::string::npos) << Message;
  EXPECT_EQ(RefusedAt("00:00.0 X\n00: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n"), 2u) << "15 bytes";

  // A size other than 64, 256 or 4096 names the function's header line.
  EXPECT_EQ(RefusedAt(Good + "\n01:00.0 X\n" + Rows(Pattern(80, 0)) + "\n02:00.0 X\n" + Rows(Pattern(64, 0)),
                      &Message),
            7u);
  EXPECT_NE(Message.find("01:00.0 holds 80 bytes"), std::string::npos) << Message;
  EXPECT_EQ(RefusedAt(Good + "01:00.0 X\n"), 6u) << "a header without rows at the end";
  EXPECT_EQ(RefusedAt("00:00.0 X\n" + Rows(Pattern(4096 + 16, 0))), 258u) << "row past 4096 bytes";

  // Locations that do not exist.
  EXPECT_EQ(RefusedAt("00:20.0 X\n" + Rows(Pattern(64, 0))), 1u) << "device 0x20";
  EXPECT_EQ(RefusedAt("00:00.8 X\n" + Rows(Pattern(64, 0))), 1u) << "function 8";
  EXPECT_EQ(RefusedAt("10000:00:00.0 X\n" + Rows(Pattern(64, 0))), 1u) << "domain above 16 bits";
  EXPECT_EQ(RefusedAt("00:00.0X\n" + Rows(Pattern(64, 0))), 1u) << "no space before the description";

  // The same location twice, domain 0 written or not.
  EXPECT_EQ(RefusedAt(Good + "0000:00:00.0 X\n" + Rows(Pattern(64, 0)), &Message), 6u);
  EXPECT_NE(Message.find("first at line 1"), std::string::npos) << Message;
}

}  // namespace
