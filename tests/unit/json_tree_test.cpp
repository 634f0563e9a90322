// The JSON value tree and its printer: exact output of formatted and compact
// printing, the kept quirks (fraction as integer, the cut "\u00" escape,
// raw numbers), the buffered mode with its power-of-two growth, and that
// every allocation failure yields nothing and leaves no pool behind.
#include <rapidjson/document.h>

#include <string>

#include "driver_fixture.h"
#include "json/json_tree.h"
#include "platform/memory_lib.h"

namespace {

class JsonTree : public DriverOnEmulator {
 protected:
  void SetUp() override { Start(); }

  // Prints and frees; "<none>" when the printer yields nothing.
  static std::string Printed(JSON_NODE *Root, bool Formatted = true) {
    CHAR8 *Text = JsonPrint(Root, Formatted ? TRUE : FALSE);
    if (Text == nullptr) return "<none>";
    std::string Out(Text);
    QorFreePool(Text);
    return Out;
  }
  static std::string PrintedBuffered(JSON_NODE *Root, INT32 InitialSize, bool Formatted = true) {
    CHAR8 *Text = JsonPrintBuffered(Root, InitialSize, Formatted ? TRUE : FALSE);
    if (Text == nullptr) return "<none>";
    std::string Out(Text);
    QorFreePool(Text);
    return Out;
  }
  static JSON_NODE *Number(INT64 Integer, UINT32 Fraction, INT32 Exponent) {
    JSON_NODE *Node = JsonCreateNumber(Integer);
    Node->Fraction = Fraction;
    Node->Exponent = Exponent;
    return Node;
  }
  static JSON_NODE *Literal(UINT32 Kind) {
    JSON_NODE *Node = JsonNewNode();
    Node->Kind = Kind;
    return Node;
  }
  std::string PrintedAndDeleted(JSON_NODE *Root, bool Formatted = true) {
    std::string Out = Printed(Root, Formatted);
    JsonDelete(Root);
    return Out;
  }

  // A tree touching every kind and both container shapes, with nesting.
  static JSON_NODE *SampleTree() {
    JSON_NODE *Root = JsonCreateObject();
    JsonAddItemToObject(Root, "Count", JsonCreateNumber(2));
    JSON_NODE *List = JsonCreateArray();
    for (int I = 0; I < 2; I++) {
      JSON_NODE *Entry = JsonCreateObject();
      JsonAddItemToObject(Entry, "Start", JsonCreateString(I == 0 ? "0x0" : "0x1000"));
      JsonAddItemToObject(Entry, "Flags", JsonCreateArray());
      JsonAddItemToArray(List, Entry);
    }
    JsonAddItemToObject(Root, "List", List);
    JSON_NODE *Mixed = JsonCreateArray();
    JsonAddItemToArray(Mixed, Literal(JsonKindTrue));
    JsonAddItemToArray(Mixed, Literal(JsonKindNull));
    JsonAddItemToArray(Mixed, Number(3, 25, 0));
    JsonAddItemToObject(Root, "Mixed", Mixed);
    JsonAddItemToObject(Root, "Empty", JsonCreateObject());
    JsonAddItemToObject(Root, "Text", JsonCreateString("say \"hi\"\n"));
    return Root;
  }

  uint64_t PoolRequests() {
    const auto &Counters = Fw->GetPool().Counters();
    return Counters.Allocations + Counters.FailedAllocations;
  }
  void FailAllocationFromNow(uint64_t N) { Fw->GetPool().FailAllocation(PoolRequests() + N); }
  uint64_t Live() { return Fw->GetPool().LiveAllocationCount(); }
};

TEST_F(JsonTree, PrintsNumbersFromTheirThreeIntegerParts) {
  EXPECT_EQ(PrintedAndDeleted(JsonCreateNumber(0)), "0");
  EXPECT_EQ(PrintedAndDeleted(JsonCreateNumber(-5)), "-5");
  EXPECT_EQ(PrintedAndDeleted(JsonCreateNumber(INT64_MIN)), "-9223372036854775808");
  EXPECT_EQ(PrintedAndDeleted(Number(3, 25, 0)), "3.25");
  EXPECT_EQ(PrintedAndDeleted(Number(3, 0, 2)), "3E2");
  EXPECT_EQ(PrintedAndDeleted(Number(-3, 25, -1)), "-3.25E-1");
  // Fraction digits are an integer: 3.05 cannot be written, 5 gives 3.5.
  EXPECT_EQ(PrintedAndDeleted(Number(3, 5, 0)), "3.5");
}

TEST_F(JsonTree, NumberCreationMarksTheNode) {
  JSON_NODE *Node = JsonCreateNumber(7);
  EXPECT_EQ(Node->Kind, (UINT32)JsonKindNumber);
  EXPECT_EQ(Node->NumberMark, 1u);
  EXPECT_EQ(Node->Integer, 7);
  JsonDelete(Node);
}

TEST_F(JsonTree, PrintsLiterals) {
  EXPECT_EQ(PrintedAndDeleted(Literal(JsonKindFalse)), "false");
  EXPECT_EQ(PrintedAndDeleted(Literal(JsonKindTrue)), "true");
  EXPECT_EQ(PrintedAndDeleted(Literal(JsonKindNull)), "null");
  // Flags above the kind do not change it.
  EXPECT_EQ(PrintedAndDeleted(Literal(JsonKindTrue | KeyIsConst)), "true");
}

TEST_F(JsonTree, FormattedObjectPutsMembersOnTabbedLines) {
  JSON_NODE *Root = JsonCreateObject();
  JsonAddItemToObject(Root, "a", JsonCreateString("x"));
  JsonAddItemToObject(Root, "b", JsonCreateArray());
  EXPECT_EQ(Printed(Root), "{\n\t\"a\":\t\"x\",\n\t\"b\":\t[]\n}");
  EXPECT_EQ(Printed(Root, false), "{\"a\":\"x\",\"b\":[]}");
  JsonDelete(Root);
}

TEST_F(JsonTree, NestedContainersIndentByDepthAndArraysStayOnOneLine) {
  JSON_NODE *Root = JsonCreateObject();
  JSON_NODE *Inner = JsonCreateObject();
  JsonAddItemToObject(Inner, "k", JsonCreateNumber(1));
  JsonAddItemToObject(Root, "o", Inner);
  JSON_NODE *List = JsonCreateArray();
  JSON_NODE *Element = JsonCreateObject();
  JsonAddItemToObject(Element, "k", JsonCreateString("v"));
  JsonAddItemToArray(List, Element);
  JsonAddItemToArray(List, JsonCreateNumber(2));
  JsonAddItemToObject(Root, "l", List);
  EXPECT_EQ(Printed(Root),
            "{\n"
            "\t\"o\":\t{\n"
            "\t\t\"k\":\t1\n"
            "\t},\n"
            "\t\"l\":\t[{\n"
            "\t\t\t\"k\":\t\"v\"\n"
            "\t\t}, 2]\n"
            "}");
  EXPECT_EQ(Printed(Root, false), "{\"o\":{\"k\":1},\"l\":[{\"k\":\"v\"},2]}");
  JsonDelete(Root);
}

TEST_F(JsonTree, EmptyContainers) {
  EXPECT_EQ(PrintedAndDeleted(JsonCreateArray()), "[]");
  EXPECT_EQ(PrintedAndDeleted(JsonCreateObject(), false), "{}");
  // Formatted, an empty object breaks the line and indents one tab less
  // than its depth (none at depths 0 and 1).
  EXPECT_EQ(PrintedAndDeleted(JsonCreateObject()), "{\n}");
  JSON_NODE *Root = JsonCreateObject();
  JSON_NODE *Inner = JsonCreateObject();
  JsonAddItemToObject(Inner, "e", JsonCreateObject());
  JsonAddItemToObject(Root, "i", Inner);
  JsonAddItemToObject(Root, "e", JsonCreateObject());
  EXPECT_EQ(Printed(Root), "{\n\t\"i\":\t{\n\t\t\"e\":\t{\n\t}\n\t},\n\t\"e\":\t{\n}\n}");
  JsonDelete(Root);
}

TEST_F(JsonTree, EscapesQuotesBackslashesAndCommonControlCharactersInValuesAndKeys) {
  JSON_NODE *Root = JsonCreateObject();
  JsonAddItemToObject(Root, "a\tb", JsonCreateString("q\" s\\ \b\f\n\r\t"));
  EXPECT_EQ(Printed(Root, false), "{\"a\\tb\":\"q\\\" s\\\\ \\b\\f\\n\\r\\t\"}");
  JsonDelete(Root);
  // Bytes above 0x7F pass through; a missing text prints as "".
  EXPECT_EQ(PrintedAndDeleted(JsonCreateString("\xC3\xA9")), "\"\xC3\xA9\"");
  JSON_NODE *NoText = JsonNewNode();
  NoText->Kind = JsonKindString;
  EXPECT_EQ(PrintedAndDeleted(NoText), "\"\"");
}

TEST_F(JsonTree, AnUncommonControlCharacterCutsTheStringAndTheDocumentFailsToParse) {
  EXPECT_EQ(PrintedAndDeleted(JsonCreateString("ab\x01" "cd")), "\"ab\\u00");
  JSON_NODE *Root = JsonCreateObject();
  JsonAddItemToObject(Root, "k", JsonCreateString("ab\x1F" "cd"));
  JsonAddItemToObject(Root, "n", JsonCreateNumber(1));
  std::string Text = Printed(Root, false);
  EXPECT_EQ(Text, "{\"k\":\"ab\\u00,\"n\":1}");
  rapidjson::Document Parsed;
  EXPECT_TRUE(Parsed.Parse(Text.c_str()).HasParseError());
  // The buffered mode writes the same characters.
  EXPECT_EQ(PrintedBuffered(Root, 1, false), Text);
  JsonDelete(Root);
}

TEST_F(JsonTree, RawNumberStringsPrintBareOrAsZero) {
  auto Raw = [](const char *Text) {
    JSON_NODE *Node = JsonCreateString(Text);
    Node->IsRawNumber = 1;
    return Node;
  };
  EXPECT_EQ(PrintedAndDeleted(Raw("-12.5E3")), "-12.5E3");
  EXPECT_EQ(PrintedAndDeleted(Raw("1e9")), "1e9");
  EXPECT_EQ(PrintedAndDeleted(Raw("12a")), "0");
  EXPECT_EQ(PrintedAndDeleted(Raw("\"1\"")), "0");
  EXPECT_EQ(PrintedAndDeleted(Raw("")), "");
}

TEST_F(JsonTree, MalformedTreesPrintAsNone) {
  EXPECT_EQ(Printed(nullptr), "<none>");
  EXPECT_EQ(PrintedAndDeleted(Literal(7)), "<none>");
  // Nesting beyond the bound; one level less still prints.
  JSON_NODE *Root = JsonCreateArray();
  JSON_NODE *Deepest = Root;
  for (int I = 0; I < JSON_PRINT_MAX_DEPTH; I++) {
    JSON_NODE *Next = JsonCreateArray();
    JsonAddItemToArray(Deepest, Next);
    Deepest = Next;
  }
  EXPECT_EQ(Printed(Root).size(), 2u * (JSON_PRINT_MAX_DEPTH + 1));
  JsonAddItemToArray(Deepest, JsonCreateArray());
  EXPECT_EQ(Printed(Root), "<none>");
  EXPECT_EQ(PrintedBuffered(Root, 16), "<none>");
  const uint64_t Before = Live();
  JsonDelete(Root);
  EXPECT_EQ(Before - Live(), JSON_PRINT_MAX_DEPTH + 2u);
}

TEST_F(JsonTree, LinkingAppendsInOrderAndReplacesTheKey) {
  JSON_NODE *Object = JsonCreateObject();
  JSON_NODE *First = JsonCreateNumber(1);
  JSON_NODE *Second = JsonCreateNumber(2);
  JsonAddItemToObject(Object, "one", First);
  JsonAddItemToObject(Object, "two", Second);
  EXPECT_EQ(Object->Child, First);
  EXPECT_EQ(First->Next, Second);
  EXPECT_EQ(Second->Prev, First);
  EXPECT_EQ(Second->Next, nullptr);
  EXPECT_STREQ(Second->Key, "two");

  // An item that already has a key gets the new one; the old key is freed.
  JSON_NODE *Renamed = JsonCreateString("v");
  JSON_NODE *Scratch = JsonCreateObject();
  JsonAddItemToObject(Scratch, "old", Renamed);
  Scratch->Child = nullptr;
  const uint64_t Before = Live();
  JsonAddItemToObject(Object, "new", Renamed);
  EXPECT_EQ(Live(), Before);
  EXPECT_EQ(Printed(Object, false), "{\"one\":1,\"two\":2,\"new\":\"v\"}");

  EXPECT_EQ(JsonAddItemToObject(Object, "none", nullptr), EFI_INVALID_PARAMETER);
  JsonDelete(Scratch);
  JsonDelete(Object);
}

TEST_F(JsonTree, DeleteFreesEverythingOwnedAndNothingBorrowed) {
  const uint64_t Before = Live();
  JsonDelete(SampleTree());
  EXPECT_EQ(Live(), Before);

  // A reference node leaves its children and text alone; a constant key is
  // not freed.
  JSON_NODE *Shared = JsonCreateArray();
  JsonAddItemToArray(Shared, JsonCreateString("kept"));
  JSON_NODE *Reference = JsonNewNode();
  Reference->Kind = JsonKindArray | IsReference | KeyIsConst;
  Reference->Child = Shared->Child;
  static CHAR8 ConstKey[] = "const";
  Reference->Key = ConstKey;
  const uint64_t WithShared = Live();
  JsonDelete(Reference);
  EXPECT_EQ(WithShared - Live(), 1u);
  EXPECT_EQ(Printed(Shared, false), "[\"kept\"]");
  JsonDelete(Shared);
  EXPECT_EQ(Live(), Before);
}

TEST_F(JsonTree, BufferedModeWritesTheSameTextAsUnbuffered) {
  JSON_NODE *Root = SampleTree();
  for (bool Formatted : {true, false}) {
    std::string Expected = Printed(Root, Formatted);
    for (INT32 InitialSize : {1, 7, 64, 4096}) {
      EXPECT_EQ(PrintedBuffered(Root, InitialSize, Formatted), Expected) << InitialSize;
    }
  }
  EXPECT_EQ(PrintedBuffered(Root, 0), "<none>");
  JsonDelete(Root);
}

TEST_F(JsonTree, BufferGrowsToTheNextPowerOfTwoKeepingItsContent) {
  PRINT_BUFFER Print = {(CHAR8 *)QorAllocateZeroPool(4), 4, 3};
  Print.Buffer[0] = 'a';
  Print.Buffer[2] = 'c';
  CHAR8 *At = JsonEnsurePrintBuffer(&Print, 1);  // 3 + 1 fits 4
  EXPECT_EQ(At, Print.Buffer + 3);
  EXPECT_EQ(Print.Size, 4);
  At = JsonEnsurePrintBuffer(&Print, 2);  // 5 -> 8
  EXPECT_EQ(Print.Size, 8);
  EXPECT_EQ(At, Print.Buffer + 3);
  EXPECT_EQ(Print.Buffer[0], 'a');
  EXPECT_EQ(Print.Buffer[2], 'c');
  Print.Offset = 8;
  JsonEnsurePrintBuffer(&Print, 24);  // exactly 32
  EXPECT_EQ(Print.Size, 32);
  Print.Offset = 32;
  JsonEnsurePrintBuffer(&Print, 1);  // 33 -> 64
  EXPECT_EQ(Print.Size, 64);
  EXPECT_EQ(Print.Buffer[0], 'a');

  // A failed growth frees the buffer and resets it.
  const uint64_t Before = Live();
  FailAllocationFromNow(1);
  EXPECT_EQ(JsonEnsurePrintBuffer(&Print, 100), nullptr);
  EXPECT_EQ(Print.Buffer, nullptr);
  EXPECT_EQ(Print.Size, 0);
  EXPECT_EQ(Before - Live(), 1u);
  // A request beyond what an INT32 buffer can hold fails the same way.
  PRINT_BUFFER Huge = {(CHAR8 *)QorAllocateZeroPool(8), 8, 0};
  EXPECT_EQ(JsonEnsurePrintBuffer(&Huge, 0x7FFFFFFF), nullptr);
  EXPECT_EQ(Huge.Buffer, nullptr);
}

TEST_F(JsonTree, CreationYieldsNoneWhenThePoolIsExhausted) {
  const uint64_t Before = Live();
  FailAllocationFromNow(1);
  EXPECT_EQ(JsonCreateObject(), nullptr);
  FailAllocationFromNow(1);
  EXPECT_EQ(JsonCreateNumber(1), nullptr);
  FailAllocationFromNow(2);  // the node is allocated, its text is not
  EXPECT_EQ(JsonCreateString("text"), nullptr);
  EXPECT_EQ(Live(), Before);

  // A key that cannot be copied: the item is not linked and is freed.
  JSON_NODE *Object = JsonCreateObject();
  JSON_NODE *Item = JsonCreateString("v");
  FailAllocationFromNow(1);
  EXPECT_EQ(JsonAddItemToObject(Object, "k", Item), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(Object->Child, nullptr);
  JsonDelete(Object);
  EXPECT_EQ(Live(), Before);
}

TEST_F(JsonTree, EveryFailedAllocationDuringPrintYieldsNoneAndFreesPartialTexts) {
  JSON_NODE *Root = SampleTree();
  const std::string Expected = Printed(Root);
  for (bool Buffered : {false, true}) {
    const uint64_t First = PoolRequests();
    std::string Complete = Buffered ? PrintedBuffered(Root, 1) : Printed(Root);
    ASSERT_EQ(Complete, Expected);
    const uint64_t Needed = PoolRequests() - First;
    ASSERT_GT(Needed, 0u);
    for (uint64_t K = 1; K <= Needed; K++) {
      const uint64_t Before = Live();
      FailAllocationFromNow(K);
      EXPECT_EQ(Buffered ? PrintedBuffered(Root, 1) : Printed(Root), "<none>") << "allocation " << K;
      EXPECT_EQ(Live(), Before) << "allocation " << K;
    }
  }
  JsonDelete(Root);
}

}  // namespace
