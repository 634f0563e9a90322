// The rules every text-built section follows: the clamped append, the
// one-character trailing-comma drop and the structural texts around lists.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json/text_appender.h"

namespace {

constexpr char kUntouched = '#';

// A buffer pre-filled with a marker so writes past the terminator show.
std::vector<char> MarkedBuffer(size_t Size) { return std::vector<char>(Size, kUntouched); }

}  // namespace

// ---------------------------------------------------------------- the clamp

TEST(AppendClamp, OneAppendWritesAtMost0x7FFFFCharactersEvenIntoALargerBuffer) {
  const std::string Long(0x100000, 'x');
  std::vector<char> Buffer = MarkedBuffer(0x100000);
  EXPECT_EQ(QorAppendText(Buffer.data(), Buffer.size(), "%a", Long.c_str()), 0x7FFFFu);
  EXPECT_EQ(Buffer[0x7FFFE], 'x');
  EXPECT_EQ(Buffer[0x7FFFF], '\0');
  EXPECT_EQ(Buffer[0x80000], kUntouched);
}

TEST(AppendClamp, SizesUpToTheLimitAreUsedAsGiven) {
  const std::string Long(0x90000, 'x');
  std::vector<char> Buffer = MarkedBuffer(0x90000);
  EXPECT_EQ(QorAppendText(Buffer.data(), 0x80000, "%a", Long.c_str()), 0x7FFFFu);
  EXPECT_EQ(QorAppendText(Buffer.data(), 0x7FFFF, "%a", Long.c_str()), 0x7FFFEu);
  EXPECT_EQ(Buffer[0x7FFFE], '\0');
}

TEST(AppendClamp, OneByteLeftWritesOnlyTheTerminator) {
  std::vector<char> Buffer = MarkedBuffer(4);
  EXPECT_EQ(QorAppendText(Buffer.data(), 1, "\"%a\":%u,", "Count", 1u), 0u);
  EXPECT_EQ(Buffer[0], '\0');
  EXPECT_EQ(Buffer[1], kUntouched);
}

TEST(AppendClamp, NoSpaceLeftWritesNothing) {
  std::vector<char> Buffer = MarkedBuffer(4);
  EXPECT_EQ(QorAppendText(Buffer.data(), 0, "{"), 0u);
  EXPECT_EQ(Buffer[0], kUntouched);
}

TEST(AppendClamp, AFullWriterStopsGrowingAtSizeMinusOne) {
  std::vector<char> Buffer = MarkedBuffer(16);
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Buffer.data(), 12);
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Detail", "EBG SKU 5-B0");
  EXPECT_EQ(W.Length, 11u);
  QorWriterAppend(&W, "}");
  EXPECT_EQ(W.Length, 11u);
  EXPECT_EQ(std::string(Buffer.data()), "{\"Detail\":\"");
  EXPECT_EQ(Buffer[12], kUntouched);
}

TEST(AppendClamp, AWriterWithoutABufferWritesNothing) {
  QOR_TEXT_WRITER W;
  QorWriterInit(&W, nullptr, 0x2000);
  QorWriterAppend(&W, "{");
  QorWriterDropComma(&W);
  EXPECT_EQ(W.Length, 0u);
}

// ---------------------------------------------------------------- members and structure

class SectionText : public ::testing::Test {
 protected:
  void SetUp() override { QorWriterInit(&W, Buffer.data(), Buffer.size()); }
  std::string Text() const { return std::string(Buffer.data(), W.Length); }
  std::vector<char> Buffer = std::vector<char>(0x2000, 0);
  QOR_TEXT_WRITER W;
};

TEST_F(SectionText, AnObjectWithoutMembersIsAnEmptyPair) {
  QorWriterAppend(&W, "{");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  EXPECT_EQ(Text(), "{}");
  EXPECT_EQ(W.Length, 2u);
}

TEST_F(SectionText, KeyValueFormatsWriteOneMemberAndAComma) {
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "Count", 1u);
  QorWriterAppend(&W, QOR_FMT_KEY_U64, "Size", (UINT64)0x100000000ULL);
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Sku", "ES");
  QorWriterAppend(&W, QOR_FMT_KEY_TRUE, "Present");
  QorWriterAppend(&W, QOR_FMT_KEY_FALSE, "Enabled");
  QorWriterAppend(&W, QOR_FMT_KEY_JSON, "MiscInfo", "{}");
  QorWriterAppend(&W, QOR_FMT_KEY_ONLY, "List");
  EXPECT_EQ(Text(),
            "\"Count\":1,\"Size\":4294967296,\"Sku\":\"ES\",\"Present\":true,\"Enabled\":false,"
            "\"MiscInfo\":{},\"List\":");
}

TEST_F(SectionText, AValueWithADoubleQuoteIsCopiedUnescaped) {
  QorWriterAppend(&W, QOR_FMT_KEY_STR, "Code", "QS\"V");
  EXPECT_EQ(Text(), "\"Code\":\"QS\"V\",");
}

TEST_F(SectionText, TheCommaDropLooksAtTheLastCharacterOnly) {
  QorWriterAppend(&W, "{\"a\":1,,");
  QorWriterDropComma(&W);
  EXPECT_EQ(Text(), "{\"a\":1,");
  QorWriterAppend(&W, "}");
  EXPECT_EQ(Text(), "{\"a\":1,}");

  QorWriterInit(&W, Buffer.data(), Buffer.size());
  QorWriterAppend(&W, "{\"a\":1");
  QorWriterDropComma(&W);
  EXPECT_EQ(Text(), "{\"a\":1");
}

TEST_F(SectionText, ADroppedCommaIsOverwrittenByTheNextAppend) {
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_U32, "Count", 1u);
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  EXPECT_STREQ(Buffer.data(), "{\"Count\":1}");
}

TEST_F(SectionText, AListClosedBeforeMoreMembersLosesItsCommaAtTheObjectsClose) {
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_ONLY, "Dimm");
  QorWriterAppend(&W, "[");
  for (UINT32 Slot = 0; Slot < 2; Slot++) {
    QorWriterAppend(&W, "{");
    QorWriterAppend(&W, QOR_FMT_KEY_U32, "Slot", Slot);
    QorWriterDropComma(&W);
    QorWriterAppend(&W, "},");
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "],");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  EXPECT_EQ(Text(), "{\"Dimm\":[{\"Slot\":0},{\"Slot\":1}]}");
}

TEST_F(SectionText, AListWithoutElementsIsAnEmptyPair) {
  QorWriterAppend(&W, "{");
  QorWriterAppend(&W, QOR_FMT_KEY_ONLY, "Dimm");
  QorWriterAppend(&W, "[");
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "]");
  QorWriterAppend(&W, "}");
  EXPECT_EQ(Text(), "{\"Dimm\":[]}");
}
