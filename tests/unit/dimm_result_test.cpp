// DimmResultInfo from the MRC data HOB's training records.
#include <string>

#include "core/section_fillers.h"
#include "driver_fixture.h"
#include "platform/guids.h"
#include "platform/hob.h"
#include "platform/hob_lib.h"

namespace {

// A channel record of zeros, as every unused channel slot is reported.
const std::string kEmptyChannel = R"({"Channel":0,"Result":0,"DimmNum":0,"DimmResult":[]})";

std::string Repeat(const std::string &Text, int Count, const std::string &Separator) {
  std::string Out;
  for (int I = 0; I < Count; I++) Out += (I == 0 ? "" : Separator) + Text;
  return Out;
}

class DimmResultTest : public DriverOnEmulator {
 protected:
  // Boots the environment and points the driver at the MRC data HOB, as the
  // entry does.
  void StartWith(const std::string &Json) {
    Start(BoardFrom(Json));
    VOID *Hob = QorGetFirstGuidHob(&gQorMrcDataHobGuid);
    ASSERT_NE(Hob, nullptr);
    MrcHobData = GET_GUID_HOB_DATA(Hob);
  }
  std::string Fill() {
    EXPECT_EQ(QorFillDimmResult(&Section.Record), EFI_SUCCESS);
    EXPECT_EQ(Section.Record.Length, Section.Text().size());
    return Section.Text();
  }
  void TearDown() override {
    gQorUploadSections[QorSectionDimmResultInfo].Filled = FALSE;
    MrcHobData = nullptr;
    DriverOnEmulator::TearDown();
  }
  LocalSection Section{"DimmResultInfo", 0x100000, QorSectionDimmResultInfo};
};

TEST_F(DimmResultTest, WritesEveryChannelSlotAndShortSocketsForNothingToReport) {
  // Socket 0 reports one channel but all eight slots are written; socket 1
  // has channel data yet ChannelNum 0, so it is only {"CPU":1}.
  StartWith(R"({"pcd": {"tokens": {"22": 2}},
    "hobs": {"mrcData": {"socketResults": [
      {"channelNum": 1, "channels": [{"channel": 4, "result": 7, "dimms": [
        {"result": 1, "mapoutReason": 2, "certification": 3},
        {"result": 4, "mapoutReason": 5, "certification": 6}]}]},
      {"channelNum": 0, "channels": [{"channel": 9, "result": 9, "dimms": [{"result": 9}]}]}]}}})");
  std::string Expected =
      R"({"CpuBitMap":3,"SocketResult":[{"CPU":0,"ChannelNum":1,"ChannelResult":[)"
      R"({"Channel":4,"Result":7,"DimmNum":2,"DimmResult":[)"
      R"({"Dimm":0,"Result":1,"MapoutReason":2,"Certification":3},)"
      R"({"Dimm":1,"Result":4,"MapoutReason":5,"Certification":6}]},)" +
      Repeat(kEmptyChannel, 7, ",") + R"(]},{"CPU":1}]})";
  EXPECT_EQ(Fill(), Expected);
  EXPECT_TRUE(gQorUploadSections[QorSectionDimmResultInfo].Filled);
  EXPECT_NE(Log().find("QorFillDimmResult ---start\n"), std::string::npos);
}

TEST_F(DimmResultTest, SocketCountZeroGivesAnEmptyList) {
  StartWith(R"({"pcd": {"tokens": {"22": 0}}})");
  EXPECT_EQ(Fill(), R"({"CpuBitMap":3,"SocketResult":[]})");
}

TEST_F(DimmResultTest, SocketAndDimmCountsAreBoundedByTheRecords) {
  // Nine sockets claimed: the HOB holds four. DimmNum 5: a channel holds two.
  StartWith(R"({"pcd": {"tokens": {"22": 9}},
    "hobs": {"mrcData": {"socketResults": [
      {"channelNum": 8, "channels": [{"dimmNum": 5, "dimms": [{"result": 1}, {"result": 2}]}]}]}}})");
  std::string Expected =
      R"({"CpuBitMap":3,"SocketResult":[{"CPU":0,"ChannelNum":8,"ChannelResult":[)"
      R"({"Channel":0,"Result":0,"DimmNum":5,"DimmResult":[)"
      R"({"Dimm":0,"Result":1,"MapoutReason":0,"Certification":0},)"
      R"({"Dimm":1,"Result":2,"MapoutReason":0,"Certification":0}]},)" +
      Repeat(kEmptyChannel, 7, ",") + R"(]},{"CPU":1},{"CPU":2},{"CPU":3}]})";
  EXPECT_EQ(Fill(), Expected);
}

TEST_F(DimmResultTest, CpuBitMapIsZeroWithoutTheSystemInformationBlock) {
  StartWith(R"({"pcd": {"tokens": {"22": 0}}, "faults": {"missingProtocols": ["systemInformation"]}})");
  EXPECT_EQ(Fill(), R"({"CpuBitMap":0,"SocketResult":[]})");
  TearDown();
  StartWith(R"({"pcd": {"tokens": {"22": 0}}, "systemInformation": {"dataBlock": false}})");
  EXPECT_EQ(Fill(), R"({"CpuBitMap":0,"SocketResult":[]})");
}

TEST_F(DimmResultTest, ShortHobReportsOnlyTheRecordBytesItHolds) {
  // 32 PPIN bytes and the first 8 bytes of socket 0's record: ChannelNum 8,
  // channel 0 numbered 3 with result 1; everything after reads as zero.
  StartWith(R"({"pcd": {"tokens": {"22": 2}}, "hobs": {"mrcData": {"raw":
    "0000000000000000 0000000000000000 0000000000000000 0000000000000000 0008030100000000"}}})");
  std::string Expected = R"({"CpuBitMap":3,"SocketResult":[{"CPU":0,"ChannelNum":8,"ChannelResult":[)"
                         R"({"Channel":3,"Result":1,"DimmNum":0,"DimmResult":[]},)" +
                         Repeat(kEmptyChannel, 7, ",") + R"(]},{"CPU":1}]})";
  EXPECT_EQ(Fill(), Expected);
  EXPECT_NE(Log().find("MRC data HOB holds 8 of 360 bytes of socket results\n"), std::string::npos);
}

}  // namespace
