// Assembly, validation, pretty print and send of the inventory document, and
// the piecewise dump of long texts to the debug log.
#include <gtest/gtest.h>
#include <zlib.h>

#include <regex>

#include "core/upload_section.h"
#include "registry_fixture.h"

using qortest::ContainsInOrder;

namespace {
const char kDumpBegin[] = "================ JSON DUMP BEGIN ===============\n";
const char kDumpFinish[] = "\n================ JSON DUMP FINISH ===============\n";

// A valid one-member object of exactly Length characters.
std::string ObjectOfLength(size_t Length) { return "{\"a\":\"" + std::string(Length - 8, 'x') + "\"}"; }
}  // namespace

class UploadInfoData : public RegistryOnEmulator {};
class DumpJsonToLogPieces : public RegistryOnEmulator {};

// ---------------------------------------------------------------- the document

TEST_F(UploadInfoData, WithNothingFilledTheDocumentIsFourteenEmptySections) {
  EXPECT_EQ(QorUploadInfoData(), EFI_SUCCESS);
  ASSERT_EQ(Documents().size(), 1u);
  rapidjson::Document Document = qortest::Parse(Documents()[0]->Bytes);
  EXPECT_EQ(qortest::MemberNames(Document), qortest::kSectionOrder);
  for (auto It = Document.MemberBegin(); It != Document.MemberEnd(); ++It) {
    EXPECT_TRUE(qortest::IsEmptyObject(It->value)) << It->name.GetString();
  }
  EXPECT_TRUE(DataUploaded);
}

TEST_F(UploadInfoData, ASectionIsTakenUpToItsTerminatorWhateverItsLength) {
  SetText(QorSectionPchInfo, R"({"Count":1,"Sku":"ES"})");
  gQorUploadSections[QorSectionPchInfo].Length = 3;
  ASSERT_EQ(QorUploadInfoData(), EFI_SUCCESS);
  rapidjson::Document Document = qortest::Parse(Documents()[0]->Bytes);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_STREQ(Document["PchInfo"]["Sku"].GetString(), "ES");
}

TEST_F(UploadInfoData, AnInvalidSectionGoesOutEmptyWithItsTextDumped) {
  SetText(QorSectionBiosVersion, R"({"Code":"QSV2S"})");
  SetText(QorSectionCpuInfo, R"({"Socket":)");
  ASSERT_EQ(QorUploadInfoData(), EFI_SUCCESS);
  rapidjson::Document Document = qortest::Parse(Documents()[0]->Bytes);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_TRUE(qortest::IsEmptyObject(Document["CpuInfo"]));
  EXPECT_STREQ(Document["BiosVersion"]["Code"].GetString(), "QSV2S");

  // The emulated json protocol reports a syntax error as Invalid Parameter.
  std::vector<std::string> Log = LogLines();
  auto Error = std::find(Log.begin(), Log.end(), "Update data <CpuInfo> invalid json Invalid Parameter\n");
  ASSERT_NE(Error, Log.end());
  EXPECT_EQ(Plat->DebugLines()[static_cast<size_t>(Error - Log.begin())].Level, 0x80000000u);
  EXPECT_EQ(std::vector<std::string>(Error + 1, Error + 4),
            (std::vector<std::string>{kDumpBegin, R"({"Socket":)", kDumpFinish}));
}

TEST_F(UploadInfoData, TheSentDocumentIsThePrettyTextWithALineFeedAndNoTerminator) {
  SetText(QorSectionPchInfo, R"({"Count":1,"Serial":0,"Manu":0,"Sku":"ES","Detail":"EBG SKU-A0"})");
  ASSERT_EQ(QorUploadInfoData(), EFI_SUCCESS);
  ASSERT_EQ(Documents().size(), 1u);
  const std::vector<uint8_t> &Bytes = Documents()[0]->Bytes;
  ASSERT_GE(Bytes.size(), 2u);
  EXPECT_EQ(Bytes.back(), '\n');
  EXPECT_NE(Bytes[Bytes.size() - 2], '\n');
  EXPECT_EQ(std::count(Bytes.begin(), Bytes.end(), '\0'), 0);

  // Size and CRC are logged for the bytes as sent, line feed included.
  std::smatch Match;
  std::string Log = Plat->DebugLog();
  ASSERT_TRUE(std::regex_search(Log, Match,
                                std::regex(R"(Upload bios info data: \[size (\d+)\] \[Crc32 0x([0-9A-F]{8})\]\n)")));
  EXPECT_EQ(std::stoull(Match[1].str()), Bytes.size());
  uint32_t Crc = static_cast<uint32_t>(crc32(crc32(0L, Z_NULL, 0), Bytes.data(), static_cast<uInt>(Bytes.size())));
  EXPECT_EQ(std::stoul(Match[2].str(), nullptr, 16), Crc);
  EXPECT_TRUE(ContainsInOrder(LogLines(), {"QorUploadInfoData ---start(5922816)\n", "QorProcJsonBeforeSend ---start\n",
                                           Match[0].str(), "Upload bios info to BMC Success\n"}));
}

// ---------------------------------------------------------------- the append clamp

// CpuInfo is the third member: "\"CpuInfo\":" + text + "," must fit one
// append of at most 0x7FFFF characters.
TEST_F(UploadInfoData, ASectionThatJustFitsOneAppendIsSentWhole) {
  const size_t Longest = 0x7FFFF - (sizeof("CpuInfo") - 1 + 4);
  SetText(QorSectionCpuInfo, ObjectOfLength(Longest));
  ASSERT_EQ(QorUploadInfoData(), EFI_SUCCESS);
  ASSERT_EQ(Documents().size(), 1u);
  rapidjson::Document Document = qortest::Parse(Documents()[0]->Bytes);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_EQ(Document["CpuInfo"]["a"].GetStringLength(), Longest - 8);
  EXPECT_EQ(qortest::MemberNames(Document), qortest::kSectionOrder);
}

TEST_F(UploadInfoData, ASectionCutByTheAppendClampFailsThePrettyPrintAndNothingIsSent) {
  const size_t TooLong = 0x7FFFF - (sizeof("CpuInfo") - 1 + 4) + 1;
  SetText(QorSectionCpuInfo, ObjectOfLength(TooLong));
  EXPECT_TRUE(EFI_ERROR(QorUploadInfoData()));
  EXPECT_TRUE(Plat->Uploads().empty());
  EXPECT_FALSE(DataUploaded);
  // The section itself is valid: no per-section message, only the failed
  // pretty print with the whole assembled text dumped.
  std::vector<std::string> Log = LogLines();
  EXPECT_EQ(std::count_if(Log.begin(), Log.end(), [](const std::string &L) { return L.find("Update data") == 0; }),
            0);
  EXPECT_TRUE(ContainsInOrder(Log, {"QorProcJsonBeforeSend ---start\n", "Json pretty print failed Invalid Parameter\n",
                                    kDumpBegin, kDumpFinish, "Json proc failed Invalid Parameter\n"}));
  EXPECT_EQ(Log.back(), "Json proc failed Invalid Parameter\n");
}

// ---------------------------------------------------------------- failures

TEST_F(UploadInfoData, WithoutTheJsonProtocolNothingIsSent) {
  Start(BoardFrom(R"({"faults":{"missingProtocols":["json"]}})"));
  EXPECT_EQ(QorUploadInfoData(), EFI_NOT_FOUND);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"QorUploadInfoData ---start(5922816)\n",
                                                  "Failed to locate json protocol Not Found\n"}));
  EXPECT_EQ(Plat->DebugLines().back().Level, 0x80000000u);
  EXPECT_TRUE(Plat->Uploads().empty());
  EXPECT_FALSE(DataUploaded);
}

TEST_F(UploadInfoData, WithoutTheQuickTransProtocolNothingIsSent) {
  Start(BoardFrom(R"({"faults":{"missingProtocols":["quickTrans"]}})"));
  EXPECT_EQ(QorUploadInfoData(), EFI_NOT_FOUND);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"QorUploadInfoData ---start(5922816)\n",
                                                  "Failed to locate quick trans protocol Not Found\n"}));
  EXPECT_TRUE(Plat->Uploads().empty());
  EXPECT_FALSE(DataUploaded);
}

TEST_F(UploadInfoData, ASendFailureIsLoggedAndStillCountsAsUploaded) {
  Start(BoardFrom(R"({"faults":{"sendFileStatus":"Device Error"}})"));
  EXPECT_EQ(QorUploadInfoData(), EFI_SUCCESS);
  EXPECT_EQ(LogLines().back(), "Upload bios info to BMC Device Error\n");
  EXPECT_TRUE(DataUploaded);
  QorForceUploadCallBack(nullptr, nullptr);
  EXPECT_EQ(LogLines().back(), "Data has already been uploaded\n");
  EXPECT_EQ(Documents().size(), 1u);
}

TEST_F(UploadInfoData, AnAssemblyBufferThatCannotBeAllocatedSendsNothing) {
  const auto &Counters = Fw->GetPool().Counters();
  Fw->GetPool().FailAllocation(Counters.Allocations + Counters.FailedAllocations + 1);
  EXPECT_EQ(QorUploadInfoData(), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"QorUploadInfoData ---start(5922816)\n"}));
  EXPECT_TRUE(Plat->Uploads().empty());
  EXPECT_FALSE(DataUploaded);
}

TEST_F(UploadInfoData, APrettyBufferThatCannotBeAllocatedSendsNothing) {
  const auto &Counters = Fw->GetPool().Counters();
  Fw->GetPool().FailAllocation(Counters.Allocations + Counters.FailedAllocations + 2);
  EXPECT_EQ(QorUploadInfoData(), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(LogLines().back(), "Json proc failed Out of Resources\n");
  EXPECT_TRUE(Plat->Uploads().empty());
  EXPECT_EQ(Fw->GetPool().LiveAllocationCount(), 0u) << "the assembly buffer is freed";
}

// ---------------------------------------------------------------- DumpJsonToLog

namespace {
struct DumpCase {
  size_t Length;
  std::vector<size_t> Pieces;
};
}  // namespace

TEST_F(DumpJsonToLogPieces, SendsLongTextsIn254CharacterPiecesAndRestoresThem) {
  const DumpCase Cases[] = {
      {1, {1}},         {255, {255}},         {256, {254, 2}},           {508, {254, 254}},
      {509, {254, 255}}, {510, {254, 254, 2}}, {1000, {254, 254, 254, 238}},
  };
  for (const DumpCase &Case : Cases) {
    Start();
    std::string Original;
    for (size_t I = 0; I < Case.Length; I++) Original.push_back(static_cast<char>('!' + I % 90));
    std::string Text = Original;
    DumpJsonToLog(Text.data(), Text.size());

    std::vector<size_t> Pieces;
    std::string Joined;
    for (const auto &Line : Plat->DebugLines()) {
      Pieces.push_back(Line.Text.size());
      Joined += Line.Text;
      EXPECT_EQ(Line.Level, 0x40u);
    }
    EXPECT_EQ(Pieces, Case.Pieces) << "length " << Case.Length;
    EXPECT_EQ(Joined, Original) << "length " << Case.Length;
    EXPECT_EQ(Text, Original) << "length " << Case.Length;
  }
}
