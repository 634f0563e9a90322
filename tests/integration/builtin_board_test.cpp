// A boot of the built-in board as qor-emu runs it: what the BMC receives and
// what the debug log shows, with and without the debug print service.
#include <gtest/gtest.h>

#include "boot_helpers.h"

using namespace qortest;

namespace {
const qor::emu::BootResult &BuiltInBoot() {
  static const qor::emu::BootResult Result = qor::emu::RunBoot(qor::emu::BuiltInBoard());
  return Result;
}
}  // namespace

TEST(BuiltInBoard, LoadsAndSendsBothDocuments) {
  EXPECT_EQ(BuiltInBoot().EntryStatus, EFI_SUCCESS);
  EXPECT_EQ(UploadsNamed(BuiltInBoot().Uploads, kDocumentName).size(), 1u);
  auto Flash = UploadsNamed(BuiltInBoot().Uploads, kFlashName);
  ASSERT_EQ(Flash.size(), 1u);
  EXPECT_EQ(Text(Flash[0]->Bytes), R"({"Bios Rom Size":"32MB","Flash ID":15679513})");
}

TEST(BuiltInBoard, TheInventoryHasTheFourteenSectionsInRegistryOrder) {
  rapidjson::Document Document = OnlyDocument(BuiltInBoot());
  ASSERT_TRUE(Document.IsObject());
  EXPECT_EQ(MemberNames(Document), kSectionOrder);
  for (auto It = Document.MemberBegin(); It != Document.MemberEnd(); ++It) {
    EXPECT_TRUE(It->value.IsObject()) << It->name.GetString();
  }
  EXPECT_GT(Document["BiosVersion"].MemberCount(), 0u);
  EXPECT_GT(Document["PchInfo"].MemberCount(), 0u);
  EXPECT_TRUE(IsEmptyObject(Document["MiscInfo"]));
  // Sections the forced upload reported unfilled went out empty.
  std::vector<std::string> Listing = ForceListing(BuiltInBoot());
  for (size_t I = 0; I < Listing.size(); I++) {
    if (Listing[I] == "0") EXPECT_TRUE(IsEmptyObject(Document[kSectionOrder[I].c_str()])) << kSectionOrder[I];
  }
}

TEST(BuiltInBoard, TheEntryFillsItsTwoSectionsBeforeAnyTrigger) {
  std::vector<std::string> Log = LogOf(BuiltInBoot());
  ASSERT_GE(Log.size(), 5u);
  EXPECT_EQ(std::vector<std::string>(Log.begin(), Log.begin() + 5),
            (std::vector<std::string>{"QorUploadDataDxeEntryPoint --- start\n", "QorFillBiosVersion ---start\n",
                                      "QorFillPchInfo ---start\n",
                                      "SteppingStr=<B0> SkuStr=<EBG A0/A1/B0/B1 SKU>\n",
                                      "QorUploadDataDxeEntryPoint --- finished\n"}));
}

TEST(BuiltInBoard, LogsTheTriggersWorkInOrder) {
  EXPECT_TRUE(ContainsInOrder(LogOf(BuiltInBoot()),
                              {"QorUploadDataDxeEntryPoint --- finished\n", "QorUpdateEventCallBack 10 MiscInfo\n",
                               "QorFillMiscInfo ---start\n", "FLASH ID : ef4019\n",
                               "Upload FLASH info to BMC Success\n", "QorUploadInfoData ---start(5922816)\n",
                               "QorProcJsonBeforeSend ---start\n", "Upload bios info to BMC Success\n"}));
  EXPECT_EQ(CountOf(BuiltInBoot(), "QorForceUploadCallBack ---start\n"), 1u);
}

TEST(BuiltInBoard, ADebugPrintServiceUpToRevision0x10000LogsTheSameLines) {
  qor::emu::BootResult Older = Boot(R"({"debugPrint":{"revision":"0x10000"}})");
  EXPECT_FALSE(Older.DebugLines.empty());
  EXPECT_EQ(WithoutPointers(LogOf(Older)), WithoutPointers(LogOf(BuiltInBoot())));
}

TEST(BuiltInBoard, WithoutTheDebugPrintServiceNothingIsLoggedButAllIsSent) {
  qor::emu::BootResult Result = Boot(R"({"faults":{"missingProtocols":["debugPrint"]}})");
  EXPECT_TRUE(Result.DebugLines.empty());
  EXPECT_EQ(Result.EntryStatus, EFI_SUCCESS);
  EXPECT_EQ(UploadsNamed(Result.Uploads, kDocumentName).size(), 1u);
  EXPECT_EQ(UploadsNamed(Result.Uploads, kFlashName).size(), 1u);
}
