// The JSON tree printer: exact formatted and compact text, the kept quirks,
// the buffered mode, and that an allocation failure yields nothing and
// leaves no pool behind.
#include <rapidjson/document.h>

#include <string>

#include "driver_fixture.h"
#include "json/json_tree.h"
#include "platform/memory_lib.h"

namespace {

class JsonTree : public DriverOnEmulator {
 protected:
  void SetUp() override { Start(); }

  // The printed text, freed; "<none>" when the printer yields nothing.
  static std::string Text(CHAR8 *Printed) {
    std::string Out = Printed != nullptr ? Printed : "<none>";
    QorFreePool(Printed);
    return Out;
  }
  static std::string Print(JSON_NODE *Root, bool Formatted = true) { return Text(JsonPrint(Root, Formatted)); }
  static std::string PrintOnce(JSON_NODE *Root, bool Formatted = true) {
    std::string Out = Print(Root, Formatted);
    JsonDelete(Root);
    return Out;
  }
  static JSON_NODE *Node(UINT32 Kind, INT64 Integer = 0, UINT32 Fraction = 0, INT32 Exponent = 0) {
    JSON_NODE *New = JsonNewNode();
    *New = JSON_NODE{nullptr, nullptr, nullptr, Kind, 1, 0, nullptr, Integer, Fraction, Exponent, nullptr};
    return New;
  }
  static JSON_NODE *Object(std::initializer_list<std::pair<const char *, JSON_NODE *>> Members) {
    JSON_NODE *New = JsonCreateObject();
    for (auto &[Key, Value] : Members) JsonAddItemToObject(New, Key, Value);
    return New;
  }
  static JSON_NODE *Array(std::initializer_list<JSON_NODE *> Elements) {
    JSON_NODE *New = JsonCreateArray();
    for (JSON_NODE *Element : Elements) JsonAddItemToArray(New, Element);
    return New;
  }
  // Every kind, both container shapes, nesting and an escape.
  static JSON_NODE *SampleTree() {
    return Object({{"Count", JsonCreateNumber(2)},
                   {"List", Array({Object({{"Start", JsonCreateString("0x0")}, {"Flags", JsonCreateArray()}}),
                                   Object({{"Start", JsonCreateString("0x1000")}})})},
                   {"Mixed", Array({Node(JsonKindTrue), Node(JsonKindNull), Node(JsonKindNumber, 3, 25)})},
                   {"Empty", JsonCreateObject()},
                   {"Text", JsonCreateString("say \"hi\"\n")}});
  }

  uint64_t Requests() { return Fw->GetPool().Counters().Allocations + Fw->GetPool().Counters().FailedAllocations; }
  void FailAllocationFromNow(uint64_t N) { Fw->GetPool().FailAllocation(Requests() + N); }
  uint64_t Live() { return Fw->GetPool().LiveAllocationCount(); }
};

TEST_F(JsonTree, PrintsScalars) {
  EXPECT_EQ(PrintOnce(JsonCreateNumber(0)), "0");
  EXPECT_EQ(PrintOnce(JsonCreateNumber(-5)), "-5");
  EXPECT_EQ(PrintOnce(JsonCreateNumber(INT64_MIN)), "-9223372036854775808");
  EXPECT_EQ(PrintOnce(Node(JsonKindNumber, 3, 25)), "3.25");
  EXPECT_EQ(PrintOnce(Node(JsonKindNumber, 3, 0, 2)), "3E2");
  EXPECT_EQ(PrintOnce(Node(JsonKindNumber, -3, 25, -1)), "-3.25E-1");
  EXPECT_EQ(PrintOnce(Node(JsonKindNumber, 3, 5)), "3.5");  // fraction digits are an integer: no 3.05
  EXPECT_EQ(PrintOnce(Node(JsonKindFalse)), "false");
  EXPECT_EQ(PrintOnce(Node(JsonKindTrue | KeyIsConst)), "true");
  EXPECT_EQ(PrintOnce(Node(JsonKindNull)), "null");
  EXPECT_EQ(PrintOnce(Node(7)), "<none>");
  EXPECT_EQ(Print(nullptr), "<none>");
}

TEST_F(JsonTree, FormattedObjectsBreakIntoTabbedLinesAndArraysStayOnOneLine) {
  EXPECT_EQ(PrintOnce(Object({{"a", JsonCreateString("x")}, {"b", JsonCreateArray()}})),
            "{\n\t\"a\":\t\"x\",\n\t\"b\":\t[]\n}");
  JSON_NODE *Root = Object({{"o", Object({{"k", JsonCreateNumber(1)}})},
                            {"l", Array({Object({{"k", JsonCreateString("v")}}), JsonCreateNumber(2)})},
                            {"e", Object({{"e", JsonCreateObject()}})}});
  EXPECT_EQ(Print(Root),
            "{\n"
            "\t\"o\":\t{\n\t\t\"k\":\t1\n\t},\n"
            "\t\"l\":\t[{\n\t\t\t\"k\":\t\"v\"\n\t\t}, 2],\n"
            "\t\"e\":\t{\n\t\t\"e\":\t{\n\t}\n\t}\n"  // an empty object indents one tab less than its depth
            "}");
  EXPECT_EQ(Print(Root, false), "{\"o\":{\"k\":1},\"l\":[{\"k\":\"v\"},2],\"e\":{\"e\":{}}}");
  JsonDelete(Root);
  EXPECT_EQ(PrintOnce(JsonCreateObject()), "{\n}");
}

TEST_F(JsonTree, EscapesStringsAndCutsThemAtAnUncommonControlCharacter) {
  EXPECT_EQ(PrintOnce(Object({{"a\tb", JsonCreateString("q\" s\\ \b\f\n\r\t\xC3\xA9")}}), false),
            "{\"a\\tb\":\"q\\\" s\\\\ \\b\\f\\n\\r\\t\xC3\xA9\"}");
  EXPECT_EQ(PrintOnce(Node(JsonKindString)), "\"\"");

  JSON_NODE *Root = Object({{"k", JsonCreateString("ab\x01" "cd")}, {"n", JsonCreateNumber(1)}});
  std::string Cut = Print(Root, false);
  EXPECT_EQ(Cut, "{\"k\":\"ab\\u00,\"n\":1}");
  rapidjson::Document Parsed;
  EXPECT_TRUE(Parsed.Parse(Cut.c_str()).HasParseError());
  EXPECT_EQ(Text(JsonPrintBuffered(Root, 1, FALSE)), Cut);
  JsonDelete(Root);
}

TEST_F(JsonTree, RawNumberStringsPrintBareOrAsZero) {
  for (auto [Raw, Printed] : {std::pair{"-12.5E3", "-12.5E3"}, {"1e9", "1e9"}, {"12a", "0"}, {"", ""}}) {
    JSON_NODE *String = JsonCreateString(Raw);
    String->IsRawNumber = 1;
    EXPECT_EQ(PrintOnce(String), Printed) << Raw;
  }
}

TEST_F(JsonTree, NestingBeyondTheBoundPrintsAsNone) {
  JSON_NODE *Root = JsonCreateArray();
  JSON_NODE *Deepest = Root;
  for (int I = 0; I < JSON_PRINT_MAX_DEPTH; I++) {
    JsonAddItemToArray(Deepest, JsonCreateArray());
    Deepest = Deepest->Child;
  }
  EXPECT_EQ(Print(Root).size(), 2u * (JSON_PRINT_MAX_DEPTH + 1));
  JsonAddItemToArray(Deepest, JsonCreateArray());
  EXPECT_EQ(Print(Root), "<none>");
  EXPECT_EQ(Text(JsonPrintBuffered(Root, 16, TRUE)), "<none>");
  JsonDelete(Root);
}

TEST_F(JsonTree, BufferedModeWritesTheSameTextAndGrowsByPowersOfTwo) {
  JSON_NODE *Root = SampleTree();
  for (bool Formatted : {true, false}) {
    for (INT32 Initial : {1, 7, 4096}) {
      EXPECT_EQ(Text(JsonPrintBuffered(Root, Initial, Formatted)), Print(Root, Formatted)) << Initial;
    }
  }
  JsonDelete(Root);

  PRINT_BUFFER Buffer = {(CHAR8 *)QorAllocateZeroPool(4), 4, 3};
  Buffer.Buffer[0] = 'a';
  CHAR8 *At = JsonEnsurePrintBuffer(&Buffer, 1);  // 3 + 1 fits in place
  EXPECT_EQ(At, Buffer.Buffer + 3);
  EXPECT_EQ(Buffer.Size, 4);
  At = JsonEnsurePrintBuffer(&Buffer, 2);  // 5: grows to 8
  EXPECT_EQ(At, Buffer.Buffer + 3);
  EXPECT_EQ(Buffer.Size, 8);
  Buffer.Offset = 8;
  JsonEnsurePrintBuffer(&Buffer, 24);  // exactly 32
  EXPECT_EQ(Buffer.Size, 32);
  EXPECT_EQ(Buffer.Buffer[0], 'a');  // content kept across growth
  const uint64_t Before = Live();
  FailAllocationFromNow(1);
  EXPECT_EQ(JsonEnsurePrintBuffer(&Buffer, 100), nullptr);  // the old buffer is freed, the record reset
  EXPECT_EQ(Buffer.Buffer, nullptr);
  EXPECT_EQ(Buffer.Size, 0);
  EXPECT_EQ(Before - Live(), 1u);
}

// Appends to several containers in turn, as the sections build their lists
// (fill an item's objects, append it to the list), and an item that brings
// a sibling of its own: every list keeps its append order and every later
// child's Prev is its previous sibling.
TEST_F(JsonTree, AppendsKeepTheirOrderWhenContainersTakeTurns) {
  JSON_NODE *List = JsonCreateArray(), *Every3rd = JsonCreateArray();
  std::string Expected = "[", Expected3rd = "[";
  for (int I = 0; I < 100; I++) {
    JSON_NODE *Item = JsonCreateObject(), *Detail = JsonCreateObject();
    JsonAddItemToObject(Detail, "a", JsonCreateNumber(I));
    JsonAddItemToObject(Detail, "b", JsonCreateNumber(-I));
    JsonAddItemToObject(Item, "Detail", Detail);
    JsonAddItemToArray(List, Item);
    Expected += std::string(I == 0 ? "" : ",") + "{\"Detail\":{\"a\":" + std::to_string(I) + ",\"b\":" + std::to_string(-I) + "}}";
    if (I % 3 == 0) {
      JsonAddItemToArray(Every3rd, JsonCreateNumber(I));
      Expected3rd += std::string(I == 0 ? "" : ",") + std::to_string(I);
    }
  }
  JSON_NODE *Brought = JsonCreateNumber(1000), *Sibling = JsonCreateNumber(1001);
  Brought->Next = Sibling;
  Sibling->Prev = Brought;
  JsonAddItemToArray(Every3rd, Brought);
  JsonAddItemToArray(Every3rd, JsonCreateNumber(1002));
  EXPECT_EQ(Print(List, false), Expected + "]");
  EXPECT_EQ(Print(Every3rd, false), Expected3rd + ",1000,1001,1002]");
  for (JSON_NODE *Container : {List, Every3rd}) {
    for (JSON_NODE *Child = Container->Child; Child->Next != nullptr; Child = Child->Next) {
      EXPECT_EQ(Child->Next->Prev, Child);
    }
  }
  JsonDelete(List);
  JsonDelete(Every3rd);
}

TEST_F(JsonTree, EveryFailedAllocationYieldsNoneAndLeavesNothingHeld) {
  const uint64_t Before = Live();
  FailAllocationFromNow(2);  // the node is allocated, its text is not
  EXPECT_EQ(JsonCreateString("text"), nullptr);
  JSON_NODE *Root = JsonCreateObject();
  FailAllocationFromNow(3);  // node, text, then the key copy: the item is not linked and is freed
  EXPECT_EQ(JsonAddItemToObject(Root, "k", JsonCreateString("v")), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(Root->Child, nullptr);
  JsonDelete(Root);
  EXPECT_EQ(Live(), Before);

  JsonDelete(SampleTree());
  EXPECT_EQ(Live(), Before);

  Root = SampleTree();
  for (bool Buffered : {false, true}) {
    auto PrintIt = [&] { return Buffered ? Text(JsonPrintBuffered(Root, 1, TRUE)) : Print(Root); };
    const uint64_t First = Requests();
    const std::string Complete = PrintIt();
    const uint64_t Needed = Requests() - First;
    for (uint64_t K = 1; K <= Needed; K++) {
      const uint64_t Held = Live();
      FailAllocationFromNow(K);
      EXPECT_EQ(PrintIt(), "<none>") << "allocation " << K;
      EXPECT_EQ(Live(), Held) << "allocation " << K;
    }
    EXPECT_EQ(PrintIt(), Complete);
  }
  JsonDelete(Root);
}

}  // namespace
