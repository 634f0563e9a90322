// The SDL message to the BMC: field-list packing, the fixed header, the
// IPMI submission and the reset message built from "QorWakeupType".
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "driver_fixture.h"
#include "sections/platform/reset_sdl_report.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Header bytes 0 to 24: A2 63 00 02, A8 FF 00 20, then 02 at 10, 50 at 12,
// 01 at 13, zero elsewhere.
const Bytes kHeader = {0xA2, 0x63, 0x00, 0x02, 0xA8, 0xFF, 0x00, 0x20, 0x00, 0x00, 0x02, 0x00, 0x50,
                       0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

Bytes Concat(Bytes Left, const Bytes &Right) {
  Left.insert(Left.end(), Right.begin(), Right.end());
  return Left;
}

// A field list of equal inline fields: leading byte 0, Count fields of type 1.
Bytes InlineFieldList(uint8_t Count, uint8_t Length) {
  Bytes List = {0x00, Count};
  for (int I = 0; I < Count; I++) List.insert(List.end(), {0x01, Length});
  for (int I = 0; I < Count; I++) List.insert(List.end(), Length, static_cast<uint8_t>(I + 1));
  return List;
}

class SdlReport : public DriverOnEmulator {
 protected:
  void StartWith(const std::string &Json) { Start(BoardFrom(Json)); }
  const std::vector<qor::emu::IpmiRequest> &Requests() const { return Plat->IpmiRequests(); }
  bool LogHas(uint64_t Level, const std::string &Text) const {
    for (const auto &Line : Plat->DebugLines()) {
      if (Line.Level == Level && Line.Text == Text) return true;
    }
    return false;
  }
  uint64_t HeldAllocations() const { return Fw->GetPool().LiveAllocationCount(); }
};

constexpr uint64_t kInfo = 0x40;
constexpr uint64_t kError = 0x80000000ULL;

TEST_F(SdlReport, ResetMessageCarriesWakeupTypeBehindHeader) {
  StartWith(R"({"variables": [{"name": "QorWakeupType", "guid": "DCE52B69-24BB-4D1D-B26A-1D9648C06A0E",
                               "data": "05"}]})");
  QorSendBiosInitiateResetSdl(0x12, 0x34);

  ASSERT_EQ(Requests().size(), 1u);
  const auto &Request = Requests()[0];
  EXPECT_EQ(Request.NetFunction, 0x36);
  EXPECT_EQ(Request.Lun, 0);
  EXPECT_EQ(Request.Command, 0x2A);
  Bytes Payload = {0x00, 0x04, 0x01, 0x01, 0x00, 0x01, 0x01, 0x05, 0x01, 0x01, 0x99, 0x01, 0x01, 0x00};
  EXPECT_EQ(Request.Data, Concat(kHeader, Payload));
  EXPECT_EQ(Request.Data.size(), 39u);
  EXPECT_TRUE(LogHas(kInfo, "QorSendBiosInitiateResetSdl(), 0, 5, 99, 0\n")) << Log();
  EXPECT_TRUE(LogHas(kInfo, "DXE Send Sdl message status: Success\n")) << Log();
  EXPECT_EQ(HeldAllocations(), 0u);
}

TEST_F(SdlReport, UnreadableWakeupTypeSendsZero) {
  struct Case {
    const char *Board;
    const char *Message;
  } Cases[] = {
      {R"({"variables": []})", "Fail to get variable QorWakeupType, Not Found\n"},
      {R"({"faults": {"failVariableGet": ["QorWakeupType"]}})", "Fail to get variable QorWakeupType, Device Error\n"},
      // Read with room for one byte only.
      {R"({"variables": [{"name": "QorWakeupType", "guid": "DCE52B69-24BB-4D1D-B26A-1D9648C06A0E", "data": "05 05"}]})",
       "Fail to get variable QorWakeupType, Buffer Too Small\n"},
  };
  for (const Case &C : Cases) {
    StartWith(C.Board);
    QorSendBiosInitiateResetSdl(0, 0);
    EXPECT_TRUE(LogHas(kInfo, C.Message)) << C.Board << "\n" << Log();
    ASSERT_EQ(Requests().size(), 1u) << C.Board;
    EXPECT_EQ(Requests()[0].Data.size(), 39u);
    EXPECT_EQ(Requests()[0].Data[25 + 7], 0x00) << C.Board;
    EXPECT_TRUE(LogHas(kInfo, "QorSendBiosInitiateResetSdl(), 0, 0, 99, 0\n")) << Log();
  }
}

TEST_F(SdlReport, RefusesPackedSizeAbove234) {
  StartWith("{}");
  // 2 + 2 * (2 + 100) + (2 + 27) = 235: refused before anything is sent.
  Bytes TooLong = {0x00, 0x03, 0x01, 100, 0x02, 100, 0x03, 27};
  TooLong.resize(TooLong.size() + 227, 0x5A);
  EXPECT_EQ(QorSdlReport(TooLong.data()), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(HeldAllocations(), 0u);

  // 2 + (2 + 230) = 234 passes the packer, but header and payload make 259
  // bytes, more than the one-byte request size carries: not sent cut short.
  Bytes Longest = InlineFieldList(1, 230);
  EXPECT_EQ(QorSdlReport(Longest.data()), EFI_BAD_BUFFER_SIZE);
  EXPECT_TRUE(LogHas(kError, "DXE SendSdlMsgWorker: message of 259 bytes, at most 255 fit one request\n")) << Log();
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(HeldAllocations(), 0u);

  // 2 + (2 + 226) = 230: a 255-byte message goes out whole.
  Bytes Fits = InlineFieldList(1, 226);
  EXPECT_EQ(QorSdlReport(Fits.data()), EFI_SUCCESS);
  ASSERT_EQ(Requests().size(), 1u);
  EXPECT_EQ(Requests()[0].Data, Concat(kHeader, Fits));
}

TEST_F(SdlReport, PointerValuedFieldIsReadThroughItsPointer) {
  StartWith("{}");
  uint8_t Value[4] = {0xDE, 0xAD, 0xBE, 0xEF};
  uint8_t *ValuePointer = Value;
  // Field 1: type 0x83 (pointer flag + type 3), 4 bytes; field 2: inline AA BB.
  Bytes List = {0x07, 0x02, 0x83, 0x04, 0x02, 0x02};
  List.resize(List.size() + 8);
  std::memcpy(List.data() + 6, &ValuePointer, 8);
  List.insert(List.end(), {0xAA, 0xBB});

  EXPECT_EQ(QorSdlReport(List.data()), EFI_SUCCESS);
  ASSERT_EQ(Requests().size(), 1u);
  Bytes Payload = {0x07, 0x02, 0x03, 0x04, 0xDE, 0xAD, 0xBE, 0xEF, 0x02, 0x02, 0xAA, 0xBB};
  EXPECT_EQ(Requests()[0].Data, Concat(kHeader, Payload));
  EXPECT_EQ(List[2], 0x03) << "the pointer flag is cleared in the caller's list";
  EXPECT_EQ(List[4], 0x02);
}

TEST_F(SdlReport, APointerValuedFieldWithoutItsPointerIsRefused) {
  StartWith("{}");
  // Field 1: type 0x81 (pointer flag + type 1), 4 bytes, but a null pointer.
  Bytes List = {0x00, 0x01, 0x81, 0x04};
  List.resize(List.size() + 8, 0);
  EXPECT_EQ(QorSdlReport(List.data()), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(LogHas(kError, "DXE SdlReport: a pointer-valued field has no value\n")) << Log();
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(HeldAllocations(), 0u);
}

TEST_F(SdlReport, FailuresAreLoggedAndReturned) {
  StartWith(R"({"faults": {"missingProtocols": ["ipmi"]}})");
  Bytes List = InlineFieldList(1, 1);
  EXPECT_EQ(QorSdlReport(List.data()), EFI_NOT_FOUND);
  EXPECT_TRUE(LogHas(kError, "Failed to locate qor ipmi protocol Not Found\n")) << Log();
  EXPECT_EQ(HeldAllocations(), 0u);

  EXPECT_EQ(QorSdlReport(nullptr), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(LogHas(kError, "DXE SdlReport EFI_INVALID_PARAMETER\n")) << Log();
  EXPECT_EQ(QorSendSdlMsgWorker(nullptr, 4), EFI_INVALID_PARAMETER);
  EXPECT_EQ(QorSendSdlMsgWorker(List.data(), 0), EFI_INVALID_PARAMETER);
  EXPECT_TRUE(LogHas(kError, "DXE SendSdlMsgWorker EFI_INVALID_PARAMETER\n")) << Log();

  // The BMC's status comes back as it is; the driver offers 3 response bytes.
  StartWith(R"({"ipmi": {"status": "Device Error"}})");
  EXPECT_EQ(QorSdlReport(List.data()), EFI_DEVICE_ERROR);
  EXPECT_TRUE(LogHas(kInfo, "DXE Send Sdl message status: Device Error\n")) << Log();
  StartWith(R"({"ipmi": {"response": "00 01 02"}})");
  EXPECT_EQ(QorSdlReport(List.data()), EFI_SUCCESS);
  StartWith(R"({"ipmi": {"response": "00 01 02 03"}})");
  EXPECT_EQ(QorSdlReport(List.data()), EFI_BUFFER_TOO_SMALL);
}

}  // namespace
