// The trigger protocols through full boots: repeated installations, triggers
// that were there before the driver, and the forced upload's listing.
#include <gtest/gtest.h>

#include "boot_helpers.h"

using namespace qortest;

namespace {
const char kForceStart[] = "QorForceUploadCallBack ---start\n";
}

// ---------------------------------------------------------------- the fill trigger twice

TEST(FillTrigger, InstalledTwiceRunsNoFillerAndNoFlashUploadAgain) {
  qor::emu::BootResult Result = Boot(R"({"triggers":{"order":["fill","fill","readyToLock","late"]}})");
  EXPECT_EQ(CountOf(Result, "QorUpdateEventCallBack 10 MiscInfo\n"), 1u);
  EXPECT_EQ(CountOf(Result, "QorFillMiscInfo ---start\n"), 1u);
  EXPECT_EQ(CountOf(Result, "FLASH ID : ef4019\n"), 1u);
  EXPECT_EQ(UploadsNamed(Result.Uploads, kFlashName).size(), 1u);
}

// The board cannot make a protocol appear between two installations, so a
// retried flash upload fails the same way again: it shows that the event
// stayed open.
TEST(FillTrigger, AFlashUploadThatCouldNotStartTriesAgainOnTheNextInstallation) {
  qor::emu::BootResult NoSpi =
      Boot(R"({"faults":{"missingProtocols":["spi"]},"triggers":{"order":["fill","fill"]}})");
  EXPECT_EQ(CountOf(NoSpi, "Failed to locate Spi protocol Not Found\n"), 2u);
  EXPECT_TRUE(UploadsNamed(NoSpi.Uploads, kFlashName).empty());

  qor::emu::BootResult NoQuickTrans =
      Boot(R"({"faults":{"missingProtocols":["quickTrans"]},"triggers":{"order":["fill","fill"]}})");
  EXPECT_EQ(CountOf(NoQuickTrans, "Failed to locate quick trans protocol Not Found\n"), 2u);
  EXPECT_TRUE(NoQuickTrans.Uploads.empty());
}

TEST(FillTrigger, AFailedFlashSendClosesItsEventAnyway) {
  qor::emu::BootResult Result =
      Boot(R"({"faults":{"sendFileStatus":"Device Error"},"triggers":{"order":["fill","fill"]}})");
  EXPECT_EQ(UploadsNamed(Result.Uploads, kFlashName).size(), 1u);
  EXPECT_EQ(CountOf(Result, "Upload FLASH info to BMC Device Error\n"), 1u);
}

// ---------------------------------------------------------------- the late trigger twice

TEST(LateTrigger, InstalledTwiceUploadsOnceAndThenOnlySaysSo) {
  qor::emu::BootResult Result = Boot(R"({"triggers":{"order":["fill","readyToLock","late","late"]}})");
  EXPECT_EQ(UploadsNamed(Result.Uploads, kDocumentName).size(), 1u);
  EXPECT_EQ(CountOf(Result, kForceStart), 2u);
  std::vector<std::string> Log = LogOf(Result);
  ASSERT_GE(Log.size(), 2u);
  EXPECT_EQ(std::vector<std::string>(Log.end() - 2, Log.end()),
            (std::vector<std::string>{kForceStart, "Data has already been uploaded\n"}));
}

// ---------------------------------------------------------------- triggers before the entry

TEST(TriggerBeforeEntry, AFillTriggerAlreadyInstalledNeverRunsItsFillers) {
  qor::emu::BootResult Result =
      Boot(R"({"triggers":{"beforeEntry":["fill"],"order":["readyToLock","late"]}})");
  EXPECT_EQ(CountOf(Result, "QorFillMiscInfo ---start\n"), 0u);
  EXPECT_TRUE(UploadsNamed(Result.Uploads, kFlashName).empty());
  std::vector<std::string> Listing = ForceListing(Result);
  ASSERT_EQ(Listing.size(), 14u);
  EXPECT_EQ(Listing[10], "0") << "MiscInfo";
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_TRUE(IsEmptyObject(Document["MiscInfo"]));
}

TEST(TriggerBeforeEntry, ALateTriggerAlreadyInstalledMeansNoForcedUpload) {
  qor::emu::BootResult Result =
      Boot(R"({"triggers":{"beforeEntry":["late"],"order":["fill","readyToLock"]}})");
  EXPECT_EQ(CountOf(Result, kForceStart), 0u);
  EXPECT_TRUE(UploadsNamed(Result.Uploads, kDocumentName).empty());
  EXPECT_EQ(UploadsNamed(Result.Uploads, kFlashName).size(), 1u);
}

// ---------------------------------------------------------------- the forced upload

TEST(ForcedUpload, ListsEverySectionInRegistryOrderWithItsState) {
  // Only the late trigger comes: the entry's two sections are filled, the
  // fill-trigger and ready-to-lock sections are not.
  qor::emu::BootResult Result = Boot(R"({"triggers":{"order":["late"]}})");
  std::vector<std::string> Log = LogOf(Result);
  auto Start = std::find(Log.begin(), Log.end(), "Some data has not been filled, now force upload\n");
  ASSERT_NE(Start, Log.end());
  ASSERT_GE(Log.end() - Start, 16);
  for (size_t I = 0; I < 14; I++) {
    const std::string &Line = Start[static_cast<long>(I) + 1];
    EXPECT_EQ(Line.rfind("[" + std::to_string(I) + "] [" + kSectionOrder[I] + "] [", 0), 0u) << Line;
  }
  EXPECT_EQ(Start[15], "QorUploadInfoData ---start(5922816)\n");

  std::vector<std::string> Listing = ForceListing(Result);
  ASSERT_EQ(Listing.size(), 14u);
  EXPECT_EQ(Listing[0], "1");
  EXPECT_EQ(Listing[1], "1");
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  for (size_t I = 2; I < 14; I++) {
    if (I == 5) continue;  // VmdInfo hangs on the late trigger itself
    EXPECT_EQ(Listing[I], "0") << kSectionOrder[I];
    EXPECT_TRUE(IsEmptyObject(Document[kSectionOrder[I].c_str()])) << kSectionOrder[I];
  }
}

TEST(ForcedUpload, ShowsEachFillerMarkedItsOwnRecord) {
  // Without the ready-to-lock protocol PcieResource never fills, so the late
  // trigger always forces the upload.
  qor::emu::BootResult Result = Boot(R"({"triggers":{"order":["fill","late"]}})");
  std::vector<std::string> Listing = ForceListing(Result);
  ASSERT_EQ(Listing.size(), 14u);
  EXPECT_EQ(Listing[0], "1") << "BiosVersion";
  EXPECT_EQ(Listing[1], "1") << "PchInfo";
  EXPECT_EQ(Listing[10], "1") << "MiscInfo";
  EXPECT_EQ(Listing[11], "0") << "PcieResource";
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_TRUE(IsEmptyObject(Document["MiscInfo"]));
  EXPECT_TRUE(IsEmptyObject(Document["PcieResource"]));
}
