// The firmware print library: conversions, flags and size prefixes, absent
// strings, the bound of the output buffer, the UCS-2 variant and %r texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "platform/print_lib.h"

namespace {

// Formats into a generous buffer and returns the text, checking that the
// returned count is the text's length.
template <typename... Args>
std::string Print(const char *Format, Args... Arguments) {
  char Text[256];
  UINTN Count = AsciiSPrint(Text, sizeof(Text), Format, Arguments...);
  EXPECT_EQ(Count, std::char_traits<char>::length(Text)) << "count vs text for " << Format;
  return Text;
}

}  // namespace

// ---------------------------------------------------------------- conversions

TEST(PrintConversions, StringsInBothWidths) {
  EXPECT_EQ(Print("<%a>", "ascii"), "<ascii>");
  EXPECT_EQ(Print("<%s>", u"ucs-2"), "<ucs-2>");
  EXPECT_EQ(Print("<%S>", u"ucs-2"), "<ucs-2>");
  EXPECT_EQ(Print("%a-%a", "EBG SKU 5", "B0"), "EBG SKU 5-B0");
}

TEST(PrintConversions, CharactersAndPercent) {
  EXPECT_EQ(Print("%c%c", 'A' + 1, '0' + 0), "B0");
  EXPECT_EQ(Print("100%%"), "100%");
}

TEST(PrintConversions, ThirtyTwoBitNumbers) {
  EXPECT_EQ(Print("%d", -42), "-42");
  EXPECT_EQ(Print("%d", 2147483647), "2147483647");
  EXPECT_EQ(Print("%u", 4294967295u), "4294967295");
  EXPECT_EQ(Print("%u", 0u), "0");
  // Lower case for %x, upper case for %X, never a prefix.
  EXPECT_EQ(Print("%x", 0x2B000639u), "2b000639");
  EXPECT_EQ(Print("%X", 0x2B000639u), "2B000639");
  EXPECT_EQ(Print("%x", 0u), "0");
}

TEST(PrintConversions, SixtyFourBitNumbersWithEverySizePrefix) {
  EXPECT_EQ(Print("%ld", (INT64)-9223372036854775807LL - 1), "-9223372036854775808");
  EXPECT_EQ(Print("%lld", (INT64)-1), "-1");
  EXPECT_EQ(Print("%lu", (UINT64)18446744073709551615ULL), "18446744073709551615");
  EXPECT_EQ(Print("%llu", (UINT64)5922816), "5922816");
  EXPECT_EQ(Print("%lx", (UINT64)0x123456789ABCDEF0ULL), "123456789abcdef0");
  EXPECT_EQ(Print("%llx", (UINT64)0xFFFFFFFF00000000ULL), "ffffffff00000000");
  EXPECT_EQ(Print("%LX", (UINT64)0xFEDCBA9876543210ULL), "FEDCBA9876543210");
}

TEST(PrintConversions, PointerPrintsItsValueInUpperCaseHex) {
  void *Pointer = reinterpret_cast<void *>(static_cast<uintptr_t>(0x7EE1E440ABCDULL));
  std::string Text = Print("%p", Pointer);
  EXPECT_EQ(std::strtoull(Text.c_str(), nullptr, 16), 0x7EE1E440ABCDULL);
  EXPECT_EQ(Text.find_first_of("abcdefx"), std::string::npos) << Text;
}

TEST(PrintConversions, GuidInRegistryFormat) {
  const EFI_GUID Guid = {0x9B28FEDE, 0xACBB, 0x478E, {0x8A, 0xD6, 0x48, 0x8C, 0xDE, 0x18, 0x00, 0xF8}};
  std::string Text = Print("%g", &Guid);
  for (char &C : Text) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
  EXPECT_EQ(Text, "9B28FEDE-ACBB-478E-8AD6-488CDE1800F8");
}

TEST(PrintConversions, StatusTextsOfFirmware) {
  EXPECT_EQ(Print("%r", EFI_SUCCESS), "Success");
  EXPECT_EQ(Print("%r", EFI_NOT_FOUND), "Not Found");
  EXPECT_EQ(Print("%r", EFI_BUFFER_TOO_SMALL), "Buffer Too Small");
  EXPECT_EQ(Print("%r", EFI_OUT_OF_RESOURCES), "Out of Resources");
  EXPECT_EQ(Print("%r", EFI_INVALID_PARAMETER), "Invalid Parameter");
  EXPECT_EQ(Print("%r", EFI_DEVICE_ERROR), "Device Error");
  EXPECT_EQ(Print("%r", EFI_UNSUPPORTED), "Unsupported");
}

// ---------------------------------------------------------------- width and flags

TEST(PrintFlags, WidthPadsWithBlanksOnTheLeft) {
  EXPECT_EQ(Print("[%5d]", 42), "[   42]");
  EXPECT_EQ(Print("[%2u]", 7u), "[ 7]");
  EXPECT_EQ(Print("[%6a]", "ab"), "[    ab]");
  // A text wider than the width is never cut.
  EXPECT_EQ(Print("[%2a]", "abcd"), "[abcd]");
}

TEST(PrintFlags, ZeroPaddingFillsTheWidthAfterTheSign) {
  EXPECT_EQ(Print("%02X", 5u), "05");
  EXPECT_EQ(Print("%08X", 0xBEEFu), "0000BEEF");
  EXPECT_EQ(Print("%04x", 0xABu), "00ab");
  EXPECT_EQ(Print("%016LX", (UINT64)0x1000ULL), "0000000000001000");
  EXPECT_EQ(Print("%04u/%02u/%02u %02u:%02u:%02u", 2025u, 7u, 26u, 3u, 58u, 47u), "2025/07/26 03:58:47");
  EXPECT_EQ(Print("%05d", -42), "-0042");
}

TEST(PrintFlags, LeftJustifyPadsOnTheRight) {
  EXPECT_EQ(Print("[%-5d]", 42), "[42   ]");
  EXPECT_EQ(Print("[% -23s]", u"EfiConventionalMemory"), "[EfiConventionalMemory  ]");
  EXPECT_EQ(Print("[%-8a]", "Code"), "[Code    ]");
}

TEST(PrintFlags, BlankFlagPrefixesNonNegativeDecimals) {
  EXPECT_EQ(Print("i = % 2u", 5u), "i =  5");
  EXPECT_EQ(Print("% d", -5), "-5");
}

// ---------------------------------------------------------------- absent strings

TEST(PrintAbsentValues, NullStringsPrintAPlaceholder) {
  EXPECT_EQ(Print("<%a>", static_cast<const char *>(nullptr)), "<<null string>>");
  EXPECT_EQ(Print("<%s>", static_cast<const char16_t *>(nullptr)), "<<null string>>");
}

// ---------------------------------------------------------------- buffer bounds

TEST(PrintBounds, WritesAtMostSizeMinusOneCharactersAndTerminates) {
  char Text[8];
  std::memset(Text, '#', sizeof(Text));
  EXPECT_EQ(AsciiSPrint(Text, sizeof(Text), "%a", "abcdefghij"), 7u);
  EXPECT_STREQ(Text, "abcdefg");
  // A number cut in the middle keeps its leading digits.
  EXPECT_EQ(AsciiSPrint(Text, 4, "%u", 123456u), 3u);
  EXPECT_STREQ(Text, "123");
}

TEST(PrintBounds, SizeOneWritesOnlyTheTerminator) {
  char Text[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(AsciiSPrint(Text, 1, "%a", "abc"), 0u);
  EXPECT_EQ(Text[0], '\0');
  EXPECT_EQ(Text[1], '#');
}

TEST(PrintBounds, SizeZeroWritesNothing) {
  char Text[4] = {'#', '#', '#', '#'};
  EXPECT_EQ(AsciiSPrint(Text, 0, "%a", "abc"), 0u);
  EXPECT_EQ(Text[0], '#');
}

// ---------------------------------------------------------------- UCS-2 output

TEST(UnicodePrint, SizeIsInBytes) {
  CHAR16 Text[8];
  std::fill(std::begin(Text), std::end(Text), u'#');
  // 10 bytes hold five characters: four and the terminator.
  EXPECT_EQ(UnicodeSPrintAsciiFormat(Text, 10, "%a", "abcdefgh"), 4u);
  EXPECT_EQ(std::u16string(Text), u"abcd");
  EXPECT_EQ(Text[5], u'#');
  // An odd byte count rounds down to whole characters.
  EXPECT_EQ(UnicodeSPrintAsciiFormat(Text, 7, "%a", "abcdefgh"), 2u);
  EXPECT_EQ(std::u16string(Text), u"ab");
}

TEST(UnicodePrint, FormatsLikeTheAsciiVariant) {
  CHAR16 Text[64];
  UnicodeSPrintAsciiFormat(Text, sizeof(Text), "%s %a %04X %r", u"wide", "narrow", 0x1Bu, EFI_NOT_FOUND);
  EXPECT_EQ(std::u16string(Text), u"wide narrow 001B Not Found");
}

TEST(UnicodePrint, TooSmallForOneCharacterWritesNothingOrOnlyTheTerminator) {
  CHAR16 Text[2] = {u'#', u'#'};
  EXPECT_EQ(UnicodeSPrintAsciiFormat(Text, 1, "%a", "abc"), 0u);
  EXPECT_EQ(Text[0], u'#');
  EXPECT_EQ(UnicodeSPrintAsciiFormat(Text, 2, "%a", "abc"), 0u);
  EXPECT_EQ(Text[0], 0);
  EXPECT_EQ(Text[1], u'#');
}
