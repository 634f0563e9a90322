// Filled-set tracking, the section event callback and the forced upload,
// called directly on the registry.
#include <gtest/gtest.h>

#include "core/upload_section.h"
#include "platform/guids.h"
#include "registry_fixture.h"

using qortest::ContainsInOrder;

namespace {
const char kUploadStart[] = "QorUploadInfoData ---start(5922816)\n";
}

class SectionFilled : public RegistryOnEmulator {};
class SectionEvent : public RegistryOnEmulator {};
class ForceUpload : public RegistryOnEmulator {};

// ---------------------------------------------------------------- QorSetSectionFilled

TEST_F(SectionFilled, RejectsIndicesOutsideTheRegistry) {
  for (UINT32 Index : {14u, 15u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    EXPECT_EQ(QorSetSectionFilled(Index), EFI_INVALID_PARAMETER) << Index;
  }
  for (const UPLOAD_SECTION &Section : gQorUploadSections) EXPECT_FALSE(Section.Filled) << Section.Name;
  EXPECT_TRUE(Plat->DebugLines().empty());
}

TEST_F(SectionFilled, MarksOnlyItsRecordWhileOthersAreMissing) {
  EXPECT_EQ(QorSetSectionFilled(QorSectionDimmInfo), EFI_SUCCESS);
  for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) EXPECT_EQ(gQorUploadSections[I].Filled, I == 4) << I;
  EXPECT_TRUE(Plat->Uploads().empty());
  EXPECT_FALSE(DataUploaded);
}

TEST_F(SectionFilled, TheLastSectionToFillStartsExactlyOneUpload) {
  // Any order: the set completes with the thirteenth call, on section 0.
  for (UINT32 Index : {13u, 2u, 7u, 1u, 12u, 3u, 11u, 4u, 10u, 5u, 9u, 6u, 8u}) {
    ASSERT_EQ(QorSetSectionFilled(Index), EFI_SUCCESS);
    ASSERT_TRUE(Documents().empty()) << "after " << Index;
  }
  EXPECT_EQ(QorSetSectionFilled(QorSectionBiosVersion), EFI_SUCCESS);
  EXPECT_EQ(Documents().size(), 1u);
  EXPECT_EQ(qortest::CountOf(Plat->DebugLines(), kUploadStart), 1u);
  EXPECT_TRUE(DataUploaded);
}

TEST_F(SectionFilled, AFailedAutomaticUploadLeavesTheForcedOneToSend) {
  Start(BoardFrom(R"({"faults":{"missingProtocols":["json"]}})"));
  MarkAllFilledExcept(QorSectionIioInfo);
  EXPECT_EQ(QorSetSectionFilled(QorSectionIioInfo), EFI_NOT_FOUND);
  EXPECT_FALSE(DataUploaded);

  // The json protocol arrives later; the force upload finds nothing sent yet.
  QOR_JSON_PROTOCOL Json;
  qor::emu::InitJsonProtocol(&Json);
  EFI_HANDLE Handle = nullptr;
  Fw->InstallProtocol(&Handle, gQorJsonProtocolGuid, &Json);
  QorForceUploadCallBack(nullptr, nullptr);
  EXPECT_EQ(Documents().size(), 1u);
  EXPECT_TRUE(DataUploaded);
  EXPECT_TRUE(ContainsInOrder(LogLines(), {"Failed to locate json protocol Not Found\n",
                                           "QorForceUploadCallBack ---start\n",
                                           "Some data has not been filled, now force upload\n", kUploadStart,
                                           "Upload bios info to BMC Success\n"}));
}

TEST_F(SectionFilled, AForcedPartialUploadIsFollowedByTheCompleteOne) {
  SetText(QorSectionBiosVersion, R"({"Code":"QSV2S"})");
  MarkAllFilledExcept(QorSectionVmdInfo);
  QorForceUploadCallBack(nullptr, nullptr);
  ASSERT_EQ(Documents().size(), 1u);

  SetText(QorSectionVmdInfo, R"({"VmdCount":0})");
  EXPECT_EQ(QorSetSectionFilled(QorSectionVmdInfo), EFI_SUCCESS);
  auto Sent = Documents();
  ASSERT_EQ(Sent.size(), 2u);
  rapidjson::Document Partial = qortest::Parse(Sent[0]->Bytes);
  rapidjson::Document Complete = qortest::Parse(Sent[1]->Bytes);
  ASSERT_TRUE(Partial.IsObject() && Complete.IsObject());
  EXPECT_TRUE(qortest::IsEmptyObject(Partial["VmdInfo"]));
  EXPECT_EQ(Complete["VmdInfo"]["VmdCount"].GetInt(), 0);
  EXPECT_STREQ(Complete["BiosVersion"]["Code"].GetString(), "QSV2S");
}

// ---------------------------------------------------------------- QorUpdateEventCallBack

TEST_F(SectionEvent, RunsTheFillerOnceAndClosesItsEvent) {
  EFI_EVENT Event = nullptr;
  ASSERT_EQ(gBS->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, QorUpdateEventCallBack,
                             reinterpret_cast<VOID *>(static_cast<UINTN>(QorSectionMiscInfo)), &Event),
            EFI_SUCCESS);
  ASSERT_EQ(gBS->SignalEvent(Event), EFI_SUCCESS);
  EXPECT_TRUE(ContainsInOrder(LogLines(), {"QorUpdateEventCallBack 10 MiscInfo\n", "QorFillMiscInfo ---start\n"}));
  EXPECT_TRUE(gQorUploadSections[QorSectionMiscInfo].Filled);
  EXPECT_STREQ(gQorUploadSections[QorSectionMiscInfo].Buffer, "{}");
  EXPECT_EQ(gQorUploadSections[QorSectionMiscInfo].Length, 2u);
  // Closed by the callback: the firmware no longer knows it.
  EXPECT_EQ(gBS->SignalEvent(Event), EFI_INVALID_PARAMETER);
}

TEST_F(SectionEvent, ASectionWithoutFillerIsAnInvalidTypeAndItsEventStaysOpen) {
  gQorUploadSections[QorSectionCpuInfo].Fill = nullptr;
  EFI_EVENT Event = nullptr;
  ASSERT_EQ(gBS->CreateEvent(EVT_NOTIFY_SIGNAL, TPL_CALLBACK, QorUpdateEventCallBack,
                             reinterpret_cast<VOID *>(static_cast<UINTN>(QorSectionCpuInfo)), &Event),
            EFI_SUCCESS);
  ASSERT_EQ(gBS->SignalEvent(Event), EFI_SUCCESS);
  ASSERT_EQ(gBS->SignalEvent(Event), EFI_SUCCESS);
  ASSERT_EQ(Plat->DebugLines().size(), 2u);
  for (const auto &Line : Plat->DebugLines()) {
    EXPECT_EQ(Line.Text, "Invalid Type 2\n");
    EXPECT_EQ(Line.Level, 0x80000000u);
  }
  EXPECT_FALSE(gQorUploadSections[QorSectionCpuInfo].Filled);
}

TEST_F(SectionEvent, AContextOutsideTheRegistryIsAnInvalidType) {
  QorUpdateEventCallBack(nullptr, reinterpret_cast<VOID *>(static_cast<UINTN>(14)));
  QorUpdateEventCallBack(nullptr, reinterpret_cast<VOID *>(~static_cast<UINTN>(0)));
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"Invalid Type 14\n", "Invalid Type 4294967295\n"}));
  for (const UPLOAD_SECTION &Section : gQorUploadSections) EXPECT_FALSE(Section.Filled) << Section.Name;
}

// ---------------------------------------------------------------- QorForceUploadCallBack

TEST_F(ForceUpload, ListsEverySectionThenSendsWhatIsThere) {
  gQorUploadSections[QorSectionBiosVersion].Filled = TRUE;
  gQorUploadSections[QorSectionMiscInfo].Filled = TRUE;
  QorForceUploadCallBack(nullptr, nullptr);

  std::vector<std::string> Expected = {"QorForceUploadCallBack ---start\n",
                                       "Some data has not been filled, now force upload\n"};
  for (UINT32 I = 0; I < QOR_SECTION_COUNT; I++) {
    bool Filled = I == QorSectionBiosVersion || I == QorSectionMiscInfo;
    Expected.push_back("[" + std::to_string(I) + "] [" + qortest::kSectionOrder[I] + "] [" + (Filled ? "1" : "0") +
                       "]\n");
  }
  Expected.push_back(kUploadStart);
  std::vector<std::string> Log = LogLines();
  ASSERT_GE(Log.size(), Expected.size());
  EXPECT_EQ(std::vector<std::string>(Log.begin(), Log.begin() + static_cast<long>(Expected.size())), Expected);
  EXPECT_EQ(Documents().size(), 1u);
  EXPECT_TRUE(DataUploaded);
}

TEST_F(ForceUpload, AfterAnUploadOnlySaysSo) {
  DataUploaded = TRUE;
  QorForceUploadCallBack(nullptr, nullptr);
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"QorForceUploadCallBack ---start\n", "Data has already been uploaded\n"}));
  EXPECT_TRUE(Plat->Uploads().empty());
}
