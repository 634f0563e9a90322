// The BiosVersion and PchInfo sections and the flash document, read from
// what the BMC receives on boards that vary the platform data.
#include <gtest/gtest.h>

#include <regex>

#include "boot_helpers.h"

using namespace qortest;

namespace {

// Version texts that name their own token, so each member shows its source.
const char kVersionTokens[] =
    R"("pcd":{"tokens":{"44":"code-44","39":"int-39","36":"ext-36","37":"hide-37","48":"ext-48"}})";

rapidjson::Document BiosVersionOf(const std::string &Members) {
  rapidjson::Document Document = OnlyDocument(Boot("{" + Members + "}"));
  rapidjson::Document Section;
  if (Document.IsObject() && Document.HasMember("BiosVersion")) {
    Section.CopyFrom(Document["BiosVersion"], Section.GetAllocator());
  }
  return Section;
}

std::string ExtVerFor(unsigned CustomerId) {
  rapidjson::Document Section = BiosVersionOf(std::string(R"("pcd":{"customerId":)") + std::to_string(CustomerId) +
                                              R"(,"tokens":{"36":"ext-36","48":"ext-48"}})");
  return Section.IsObject() && Section.HasMember("ExtVer") ? Section["ExtVer"].GetString() : "<missing>";
}

std::string MicroCodeVerFor(const std::string &Msr) {
  rapidjson::Document Section = BiosVersionOf(R"("cpu":{"msr":{"0x8B":")" + Msr + R"("}})");
  return Section.IsObject() && Section.HasMember("MicroCodeVer") ? Section["MicroCodeVer"].GetString() : "<missing>";
}

}  // namespace

// ---------------------------------------------------------------- BiosVersion

TEST(BiosVersionSection, HasTheVersionTextsMicrocodeAndBuildTimeInOrder) {
  rapidjson::Document Section = BiosVersionOf(kVersionTokens);
  ASSERT_TRUE(Section.IsObject());
  EXPECT_EQ(MemberNames(Section), (std::vector<std::string>{"Code", "IntVer", "ExtVer", "HideVer", "MicroCodeVer",
                                                            "BiosRcVer", "BkcVer", "BuildTime"}));
  EXPECT_STREQ(Section["Code"].GetString(), "code-44");
  EXPECT_STREQ(Section["IntVer"].GetString(), "int-39");
  EXPECT_STREQ(Section["ExtVer"].GetString(), "ext-36");
  EXPECT_STREQ(Section["HideVer"].GetString(), "hide-37");
  EXPECT_STREQ(Section["BuildTime"].GetString(), "2025/07/26 03:58:47");
  EXPECT_TRUE(std::regex_match(Section["BiosRcVer"].GetString(), std::regex(R"(\d{3}\.[A-Za-z]\d{2})")))
      << Section["BiosRcVer"].GetString();
  EXPECT_TRUE(std::regex_match(Section["BkcVer"].GetString(), std::regex(R"(\d{4}\.\d WW\d{2}_\d{4})")))
      << Section["BkcVer"].GetString();
}

TEST(BiosVersionSection, ExtVerComesFromToken48OnlyForCustomer17) {
  EXPECT_EQ(ExtVerFor(17), "ext-48");
  for (unsigned Other : {0u, 1u, 3u, 16u, 18u, 255u}) EXPECT_EQ(ExtVerFor(Other), "ext-36") << Other;
}

TEST(BiosVersionSection, MicrocodeIsTheUpperHalfOfMsr0x8BInLowerCaseHexWithoutLeadingZeros) {
  EXPECT_EQ(MicroCodeVerFor("0x2B000639_00000000"), "2b000639");
  EXPECT_EQ(MicroCodeVerFor("0x000000AB_FFFFFFFF"), "ab");
  EXPECT_EQ(MicroCodeVerFor("0x0D00ABCD_12345678"), "d00abcd");
  EXPECT_EQ(MicroCodeVerFor("0"), "0");
}

TEST(BiosVersionSection, AnAbsentVersionTextPrintsTheNullPlaceholder) {
  rapidjson::Document Section = BiosVersionOf(R"("pcd":{"tokens":{"44":null}})");
  ASSERT_TRUE(Section.IsObject());
  EXPECT_STREQ(Section["Code"].GetString(), "<null string>");
}

TEST(BiosVersionSection, AVersionTextWithADoubleQuoteMakesTheSectionInvalid) {
  // Values are copied unescaped, so the section is no longer JSON and goes
  // out as an empty object.
  qor::emu::BootResult Result = Boot(R"({"pcd":{"tokens":{"44":"QS\"V"}}})");
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_TRUE(IsEmptyObject(Document["BiosVersion"]));
  EXPECT_EQ(CountOf(Result, "Update data <BiosVersion> invalid json Invalid Parameter\n"), 1u);
  EXPECT_TRUE(ContainsInOrder(LogOf(Result), {"Update data <BiosVersion> invalid json Invalid Parameter\n",
                                              "================ JSON DUMP BEGIN ===============\n",
                                              "\n================ JSON DUMP FINISH ===============\n"}));
}

// ---------------------------------------------------------------- PchInfo

namespace {
struct PchCase {
  unsigned DeviceId;
  unsigned Revision;
  const char *Sku;
  const char *Detail;
  const char *SkuName;
  const char *Stepping;
};
}  // namespace

TEST(PchInfoSection, ClassifiesTheSkuAndStepping) {
  const PchCase Cases[] = {
      {0x1B81, 0x00, "ES", "EBG A0/A1/B0/B1 SKU-A0", "EBG A0/A1/B0/B1 SKU", "A0"},
      {0x1B85, 0x10, "Unknown", "EBG SKU 5-B0", "EBG SKU 5", "B0"},
      {0x1B80, 0x21, "Unknown", "EBG SKU-C1", "EBG SKU", "C1"},
      {0x1B9F, 0x01, "Unknown", "EBG SKU 31-A1", "EBG SKU 31", "A1"},
      {0x1BA0, 0x10, "", "Undefined SKU-B0", "Undefined SKU", "B0"},
      {0x1234, 0x00, "", "Undefined SKU-A0", "Undefined SKU", "A0"},
      {0xFFFF, 0x10, "", "Undefined SKU-B0", "Undefined SKU", "B0"},
  };
  for (const PchCase &Case : Cases) {
    SCOPED_TRACE(::testing::Message() << std::hex << "device 0x" << Case.DeviceId << " revision 0x" << Case.Revision);
    qor::emu::BootResult Result = Boot(R"({"pch":{"deviceId":)" + std::to_string(Case.DeviceId) +
                                       R"(,"revisionId":)" + std::to_string(Case.Revision) + "}}");
    EXPECT_EQ(CountOf(Result, std::string("SteppingStr=<") + Case.Stepping + "> SkuStr=<" + Case.SkuName + ">\n"), 1u);
    rapidjson::Document Document = OnlyDocument(Result);
    ASSERT_TRUE(Document.IsObject());
    const rapidjson::Value &Pch = Document["PchInfo"];
    EXPECT_EQ(MemberNames(Pch), (std::vector<std::string>{"Count", "Serial", "Manu", "Sku", "Detail"}));
    EXPECT_EQ(Pch["Count"].GetUint(), 1u);
    EXPECT_EQ(Pch["Serial"].GetUint(), 0u);
    EXPECT_EQ(Pch["Manu"].GetUint(), 0u);
    EXPECT_STREQ(Pch["Sku"].GetString(), Case.Sku);
    EXPECT_STREQ(Pch["Detail"].GetString(), Case.Detail);
  }
}

// ---------------------------------------------------------------- the flash document

TEST(FlashDocument, IsTheRomSizeAndTheIdInDecimalWithoutLineFeed) {
  qor::emu::BootResult Result = Boot(R"({"flash":{"id":"EF 40 19 00"}})");
  auto Sent = UploadsNamed(Result.Uploads, kFlashName);
  ASSERT_EQ(Sent.size(), 1u);
  EXPECT_EQ(Text(Sent[0]->Bytes), R"({"Bios Rom Size":"32MB","Flash ID":15679513})");
  EXPECT_TRUE(ContainsInOrder(LogOf(Result), {"FLASH ID : ef4019\n", "Upload FLASH info to BMC Success\n"}));
}

TEST(FlashDocument, DropsTheFourthIdentificationByte) {
  qor::emu::BootResult Result = Boot(R"({"flash":{"id":"C2 20 1A 7F"}})");
  auto Sent = UploadsNamed(Result.Uploads, kFlashName);
  ASSERT_EQ(Sent.size(), 1u);
  EXPECT_EQ(Text(Sent[0]->Bytes), R"({"Bios Rom Size":"32MB","Flash ID":12722202})");
  EXPECT_EQ(CountOf(Result, "FLASH ID : c2201a\n"), 1u);
}

TEST(FlashDocument, WithoutSpiOrQuickTransItIsNotSent) {
  qor::emu::BootResult NoSpi = Boot(R"({"faults":{"missingProtocols":["spi"]}})");
  EXPECT_EQ(LevelOf(NoSpi, "Failed to locate Spi protocol Not Found\n"), 0x80000000u);
  EXPECT_TRUE(UploadsNamed(NoSpi.Uploads, kFlashName).empty());
  EXPECT_EQ(UploadsNamed(NoSpi.Uploads, kDocumentName).size(), 1u);

  qor::emu::BootResult NoQuickTrans = Boot(R"({"faults":{"missingProtocols":["quickTrans"]}})");
  EXPECT_EQ(LevelOf(NoQuickTrans, "Failed to locate quick trans protocol Not Found\n"), 0x80000000u);
  EXPECT_EQ(CountOf(NoQuickTrans, "FLASH ID : ef4019\n"), 0u);
  EXPECT_TRUE(NoQuickTrans.Uploads.empty());
}
