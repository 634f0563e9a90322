// Board texts that used to crash or mislead the loader: nesting beyond the
// bound, text that is not UTF-8, empty arrays where records are expected.
#include <gtest/gtest.h>

#include <string>

#include "boot_helpers.h"
#include "emulator/board_json.h"

namespace {

std::string ErrorOf(const std::string &Json) {
  try {
    qor::emu::ParseBoard(Json);
  } catch (const qor::emu::BoardError &Error) {
    return Error.what();
  }
  return "<accepted>";
}

// {"x": [[...]]} with Depth levels in all, the top-level object included.
std::string NestedArrays(size_t Depth) {
  return "{\"x\":" + std::string(Depth - 1, '[') + std::string(Depth - 1, ']') + "}";
}

}  // namespace

TEST(BoardNesting, TheBoundIsExactAndNamesWhereItWasCrossed) {
  const size_t Bound = qor::emu::kMaxBoardNesting;
  ASSERT_EQ(Bound, 1024u);
  // At the bound the text is read; the board is then refused for its content.
  std::string AtBound = ErrorOf(NestedArrays(Bound));
  EXPECT_EQ(AtBound.find("nest"), std::string::npos) << AtBound;
  EXPECT_NE(AtBound.find("board.x: unknown member"), std::string::npos) << AtBound;
  // One level more: refused before anything recursive sees it, at the
  // bracket that crossed the bound (offset 5 + 1023 opened before it).
  std::string Beyond = ErrorOf(NestedArrays(Bound + 1));
  EXPECT_NE(Beyond.find("board: arrays and objects nest more than 1024 levels deep at offset " +
                        std::to_string(5 + Bound - 1)),
            std::string::npos)
      << Beyond;
}

TEST(BoardText, MustBeUtf8AndTheRefusalNamesTheOffset) {
  const struct {
    const char *Json;
    const char *What;
  } Cases[] = {
      {"{\"name\":\"bad \xFF\"}", "a byte that starts no sequence"},
      {"{\"name\":\"\xC3\"}", "a sequence cut short"},
      {"{\"name\":\"\xC0\xAF\"}", "an overlong form"},
      {"{\"name\":\"\xED\xA0\x80\"}", "an encoded surrogate"},
      {"{\"name\":\"\\uD800\"}", "an escaped lone surrogate"},
  };
  for (const auto &Case : Cases) {
    std::string Message = ErrorOf(Case.Json);
    EXPECT_EQ(Message.rfind("board: not valid JSON at offset ", 0), 0u) << Case.What << ": " << Message;
  }
  EXPECT_NE(ErrorOf("{\"name\":\"bad \xFF\"}").find("Invalid encoding in string"), std::string::npos);
  // Well-formed multi-byte text is accepted and kept as written.
  EXPECT_EQ(qor::emu::ParseBoard("{\"name\":\"Z\xC3\xBCrich \xE2\x82\xAC \xF0\x9F\x94\xA7\"}").Name,
            "Z\xC3\xBCrich \xE2\x82\xAC \xF0\x9F\x94\xA7");
}

// An empty list where the builder copies records: under the sanitizers any
// copy from the empty list's (null) storage is a report.
TEST(BoardText, EmptyListsWhereRecordsAreExpectedLoadAndBoot) {
  qor::emu::Board Board = qor::emu::ParseBoard(R"({"hobs":{"mrcData":{"socketResults":[]}}})");
  ASSERT_TRUE(Board.MrcData.has_value());
  ASSERT_EQ(Board.MrcData->size(), 4 * 8 + 4 * 90u);  // the PPINs, then four empty socket records
  EXPECT_EQ(std::vector<uint8_t>(Board.MrcData->begin() + 32, Board.MrcData->end()), std::vector<uint8_t>(360, 0));
  for (const char *Json : {R"({"hobs":{"mrcData":{"socketResults":[],"ppins":[]}}})",
                           R"({"flash":{"id":""}})",
                           R"({"variables":[{"name":"Setup","guid":"EC87D643-EBA4-4BB5-A1E5-3F3E36B20DA9","data":""},
                                   {"name":"QorWakeupType","guid":"DCE52B69-24BB-4D1D-B26A-1D9648C06A0E","data":""}]})"}) {
    SCOPED_TRACE(Json);
    qor::emu::BootResult Result;
    try {
      Result = qor::emu::RunBoot(qor::emu::ParseBoard(Json));
    } catch (const qor::emu::BoardError &) {
      continue;  // refusing it is as good as booting it
    }
    EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  }
}
