// The rig's freestanding json protocol against RapidJSON (the emulator's
// json protocol): the same verdict on every text and, for valid text, the
// same indented output byte for byte.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "emulator/platform.h"
#include "uefi/rig/json_text.h"

namespace {

struct Printed {
  EFI_STATUS Status;
  std::string Text;
};

Printed Rig(const std::string &Input, size_t Size = 1 << 20) {
  std::vector<char> Out(Size, '\x7f');
  EFI_STATUS Status = QorRigJsonPrettyPrint(Input.c_str(), Out.data(), Size);
  return {Status, EFI_ERROR(Status) ? "" : std::string(Out.data())};
}

Printed Oracle(const std::string &Input) {
  std::vector<char> Out(1 << 20);
  EFI_STATUS Status = qor::emu::JsonPrettyPrintText(Input.c_str(), Out.size(), Out.data());
  return {Status, EFI_ERROR(Status) ? "" : std::string(Out.data())};
}

void ExpectSameAsOracle(const std::string &Input) {
  SCOPED_TRACE("input: " + Input);
  Printed Expected = Oracle(Input);
  Printed Actual = Rig(Input);
  EXPECT_EQ(EFI_ERROR(Actual.Status), EFI_ERROR(Expected.Status));
  EXPECT_EQ(Actual.Text, Expected.Text);
  EXPECT_EQ(EFI_ERROR(QorRigJsonValidate(Input.c_str())), EFI_ERROR(qor::emu::JsonValidateText(Input.c_str())));
}

TEST(RigJsonText, IndentsContainersKeysAndEmptiesAsRapidJson) {
  for (const char *Input : {
           "{}", "[]", "0", "\"x\"", "true", "false", "null",
           "{\"a\":1,\"b\":[],\"c\":{},\"d\":[1,[2,[3]],{\"e\":null}]}",
           "[{},{\"a\":{}},[[]],\"s\",true,false,null,-1]",
           " \t\r\n{ \"a\" : [ 1 , 2 ] } \n",
           // Duplicate keys and member order pass through, as the IIO section needs.
           "{\"CPU\":0,\"PortInfo\":[{\"Port0A\":\"8\"}],\"CPU\":1,\"PortInfo\":[]}",
       }) {
    ExpectSameAsOracle(Input);
  }
}

TEST(RigJsonText, KeepsTheTextOfEveryNumber) {
  for (const char *Input : {"[0,-0,10,-12,1.5,1.50,0.000,1e5,1E5,1e+5,1e-5,-2.5E-3]",
                            "18446744073709551615", "-9223372036854775808", "123456789012345678901234567890"}) {
    ExpectSameAsOracle(Input);
  }
}

TEST(RigJsonText, DecodesEscapesAndReescapesOnlyWhatJsonRequires) {
  for (const char *Input : {
           "\"a\\\"b\\\\c\\/d\\b\\f\\n\\r\\t\"",
           "\"\\u0041\\u00e9\\u20AC\\ud83d\\ude00\"",  // one to four UTF-8 bytes
           "\"\\u0000\\u0001\\u001f\\u007f\"",         // control characters come back as \u00XX
           "\"\\udc00\"",                              // a lone low surrogate is taken as it is
           "\"raw \xc3\xa9 \xe2\x82\xac bytes\"",      // UTF-8 text is copied
       }) {
    ExpectSameAsOracle(Input);
  }
}

TEST(RigJsonText, RefusesWhatRapidJsonRefuses) {
  for (const char *Input : {
           "", " ", "{", "}", "[", "[1,]", "[,1]", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{,}", "{1:2}",
           "[1 2]", "{} {}", "01", "-", "-a", "1.", ".5", "1e", "1e+", "+1", "tru", "nul", "falsey",
           "\"abc", "\"\\x\"", "\"\\u12G4\"", "\"\\ud800\"", "\"\\ud800\\u0041\"", "\"tab\there\"",
           "[\"a\" : 1]", "\x01", "[1]x",
       }) {
    ExpectSameAsOracle(Input);
    EXPECT_EQ(QorRigJsonValidate(Input), EFI_INVALID_PARAMETER) << Input;
  }
}

TEST(RigJsonText, TextEndsAtItsTerminator) {
  std::string Input("[1]\0garbage", 11);
  EXPECT_EQ(QorRigJsonValidate(Input.c_str()), EFI_SUCCESS);
}

// Random documents: nesting, white space, escapes and numbers drawn by a
// fixed seed, so a failure repeats.
class DocumentMaker {
 public:
  explicit DocumentMaker(unsigned Seed) : Random_(Seed) {}
  std::string Value(int Depth) {
    switch (Pick(Depth > 4 ? 5 : 7)) {
      case 0: return Number();
      case 1: return String();
      case 2: return Pick(2) ? "true" : "false";
      case 3: return "null";
      case 4: return String();
      case 5: {
        std::string Out = "[" + Space();
        int Count = Pick(4);
        for (int I = 0; I < Count; I++) Out += (I ? "," + Space() : "") + Value(Depth + 1) + Space();
        return Out + "]";
      }
      default: {
        std::string Out = "{" + Space();
        int Count = Pick(4);
        for (int I = 0; I < Count; I++) {
          Out += (I ? "," + Space() : "") + String() + Space() + ":" + Space() + Value(Depth + 1) + Space();
        }
        return Out + "}";
      }
    }
  }

 private:
  int Pick(int N) { return static_cast<int>(Random_() % static_cast<unsigned>(N)); }
  std::string Space() {
    static const char *const kSpaces[] = {"", "", " ", "\n", "\t", "\r\n  "};
    return kSpaces[Pick(6)];
  }
  std::string Number() {
    std::string Out = Pick(3) == 0 ? "-" : "";
    Out += Pick(4) == 0 ? "0" : std::to_string(1 + Pick(100000));
    if (Pick(3) == 0) Out += "." + std::to_string(Pick(1000));
    if (Pick(4) == 0) Out += std::string(Pick(2) ? "e" : "E") + (Pick(2) ? "-" : "+") + std::to_string(Pick(30));
    return Out;
  }
  std::string String() {
    static const char *const kPieces[] = {"a", "Key", " ", "\\n", "\\\"", "\\\\", "\\u00e9", "\\u0007",
                                          "\\ud83d\\ude00", "\\/", "\xc3\xa9", "0x1F", "\\t"};
    std::string Out = "\"";
    int Count = Pick(6);
    for (int I = 0; I < Count; I++) Out += kPieces[Pick(13)];
    return Out + "\"";
  }
  std::mt19937 Random_;
};

TEST(RigJsonText, RandomDocumentsIndentAsRapidJson) {
  for (unsigned Seed = 1; Seed <= 400; Seed++) {
    DocumentMaker Maker(Seed);
    std::string Input = Maker.Value(0);
    Printed Expected = Oracle(Input);
    ASSERT_EQ(Expected.Status, EFI_SUCCESS) << "seed " << Seed << ": " << Input;
    Printed Actual = Rig(Input);
    ASSERT_EQ(Actual.Status, EFI_SUCCESS) << "seed " << Seed << ": " << Input;
    ASSERT_EQ(Actual.Text, Expected.Text) << "seed " << Seed;
  }
}

TEST(RigJsonText, OutputNeedsRoomForTheTerminator) {
  const std::string Input = "{\"a\":[1,2]}";
  std::string Pretty = Oracle(Input).Text;
  EXPECT_EQ(Rig(Input, Pretty.size() + 1).Status, EFI_SUCCESS);
  EXPECT_EQ(Rig(Input, Pretty.size() + 1).Text, Pretty);
  EXPECT_EQ(Rig(Input, Pretty.size()).Status, EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(Rig(Input, 1).Status, EFI_BUFFER_TOO_SMALL);
  // Invalid text is reported as such whatever the room.
  EXPECT_EQ(Rig("{\"a\":[1,2}", 4).Status, EFI_INVALID_PARAMETER);
}

TEST(RigJsonText, NeverWritesPastTheBuffer) {
  const std::string Input = "[\"0123456789\",{\"k\":[true,false,null]}]";
  for (size_t Size = 1; Size < 80; Size++) {
    std::vector<char> Out(Size + 8, '#');
    QorRigJsonPrettyPrint(Input.c_str(), Out.data(), Size);
    for (size_t I = Size; I < Out.size(); I++) ASSERT_EQ(Out[I], '#') << "size " << Size;
  }
}

TEST(RigJsonText, NestingIsBoundedAndReportedAsUnsupported) {
  std::string Deepest = std::string(QOR_RIG_JSON_MAX_DEPTH, '[') + std::string(QOR_RIG_JSON_MAX_DEPTH, ']');
  EXPECT_EQ(QorRigJsonValidate(Deepest.c_str()), EFI_SUCCESS);
  std::string TooDeep = "[" + Deepest + "]";
  EXPECT_EQ(QorRigJsonValidate(TooDeep.c_str()), EFI_UNSUPPORTED);
  std::string Hostile(100000, '[');
  EXPECT_EQ(QorRigJsonValidate(Hostile.c_str()), EFI_UNSUPPORTED);
}

}  // namespace
