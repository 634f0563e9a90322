// 0xFF meaning "nothing there": the TPM probe byte that no device drives,
// and the SATA port index of an unused port record. Only that value means
// absent; every other value is a device or a port.
#include <gtest/gtest.h>

#include <string>

#include "boot_helpers.h"

using namespace qortest;

namespace {

rapidjson::Document SentDocument(const std::string &Overlay) {
  qor::emu::BootResult Result = Boot(Overlay);
  return OnlyDocument(Result);
}

TEST(AllOnesMarkers, EveryTpmProbeByteButFFIsADevice) {
  // The locality-0 access register of a TPM that answers: valid bit 0x80,
  // active locality 0x20 and so on; any of them, even 0x00, is a device.
  for (unsigned Probe : {0x00u, 0x01u, 0x7Fu, 0x80u, 0xA0u, 0xA1u, 0xFEu, 0xFFu}) {
    rapidjson::Document Document =
        SentDocument(R"({"tpm": {"present": true, "accessRegister": )" + std::to_string(Probe) + "}}");
    ASSERT_TRUE(Document.IsObject() && Document["TpmInfo"].HasMember("DevicePresent")) << Probe;
    EXPECT_EQ(Document["TpmInfo"]["DevicePresent"].GetUint(), Probe == 0xFF ? 0u : 1u) << "probe " << Probe;
  }
}

TEST(AllOnesMarkers, ADriveOnPort255MatchesNoUnusedPortRecord) {
  // Records: two unused (port 255), then port 7. Drive 0 sits on port 255:
  // it passes over both unused records (two tries, one per drive) and gets no
  // slot; drive 1 on port 7 then finds the third record.
  rapidjson::Document Document = SentDocument(R"({
    "pcd": {"tokens": {"351": 2}},
    "customProtocol": {"sataPorts": [{"portIndex": 255, "slot": "UNUSED0"}, {"portIndex": 255, "slot": "UNUSED1"},
                                     {"portIndex": 7, "slot": "SATA7"}]},
    "systemInformation": {"sataDrives": [{"portIndex": 255, "model": "P255"}, {"portIndex": 7, "model": "P7"}]}})");
  ASSERT_TRUE(Document.IsObject());
  const rapidjson::Value &List = Document["OnBoardSataInfo"]["SataList"];
  ASSERT_EQ(List.Size(), 2u);
  EXPECT_FALSE(List[0].HasMember("PhySlot"));
  EXPECT_FALSE(List[0].HasMember("LogSlot"));
  ASSERT_TRUE(List[1].HasMember("PhySlot"));
  EXPECT_STREQ(List[1]["PhySlot"].GetString(), "SATA7");
  EXPECT_EQ(List[1]["LogSlot"].GetUint(), 7u);
}

}  // namespace
