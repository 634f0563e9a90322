// The board members for the TPM, the SATA drives and ports, and the BMC's
// IPMI transport: what they build and how bad values are reported.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>

#include "emulator/board.h"
#include "emulator/boot_report.h"

namespace {

using qor::emu::BoardError;
using qor::emu::ParseBoard;

std::string ErrorOf(const std::string &Json) {
  try {
    ParseBoard(Json);
  } catch (const BoardError &Error) {
    return Error.what();
  }
  return "";
}

TEST(BoardStorageTpm, TpmMemberSetsProbeByteAndSetupVariable) {
  qor::emu::Board Board = ParseBoard(R"({"tpm": {"present": true,
      "setup": {"size": 300, "tpmSupport": 7, "tpmTcmDeviceType": 9, "pcrBanks": 10,
                "patches": [{"offset": 290, "bytes": "AB"}]}}})");
  EXPECT_EQ(Board.MmioBytes.at(0xFED40000), 0xA1);
  const qor::emu::Variable *Setup = nullptr;
  for (const auto &Value : Board.Variables) {
    if (Value.Name == u"Setup") Setup = &Value;
  }
  ASSERT_NE(Setup, nullptr);
  ASSERT_EQ(Setup->Data.size(), 300u);
  EXPECT_EQ(Setup->Data[19], 7);
  EXPECT_EQ(Setup->Data[46], 9);
  // Bank mask 0b1010: bank k's byte (39 + k) carries bit k.
  EXPECT_EQ(Setup->Data[39], 0);
  EXPECT_EQ(Setup->Data[40], 2);
  EXPECT_EQ(Setup->Data[41], 0);
  EXPECT_EQ(Setup->Data[42], 8);
  EXPECT_EQ(Setup->Data[290], 0xAB);

  EXPECT_EQ(ParseBoard(R"({"tpm": {"present": false}})").MmioBytes.at(0xFED40000), 0xFF);
}

TEST(BoardStorageTpm, BadValuesNameTheirField) {
  EXPECT_EQ(ErrorOf(R"({"customProtocol": {"sataPorts": [{"portIndex": 0, "slot": "SLOT-NAME-12"}]}})"),
            "board.customProtocol.sataPorts[0].slot: expected a text of at most 11 characters");
  std::string Ports;
  for (int I = 0; I < 17; I++) Ports += std::string(I ? "," : "") + R"({"portIndex": 1})";
  EXPECT_EQ(ErrorOf(R"({"customProtocol": {"sataPorts": [)" + Ports + "]}}"),
            "board.customProtocol.sataPorts: expected at most 16 port records");
  EXPECT_EQ(ErrorOf(R"({"systemInformation": {"sataDrives": [{"serial": "0123456789ABCDEFGHIJKL"}]}})"),
            "board.systemInformation.sataDrives[0].serial: expected a text of at most 21 characters");
  EXPECT_EQ(ErrorOf(R"({"tpm": {"setup": {"size": 46}}})"),
            "board.tpm.setup.size: expected a size above 46 (the TPM bytes)");
  EXPECT_EQ(ErrorOf(R"({"tpm": {"setup": {"patches": [{"offset": 274, "bytes": "01 02"}]}}})"),
            "board.tpm.setup.patches[0]: expected bytes that end inside the 275-byte variable");
  EXPECT_NE(ErrorOf(R"({"ipmi": {"status": "Not A Status"}})"), "");
}

TEST(BoardStorageTpm, BootReportListsIpmiRequests) {
  qor::emu::BootResult Result;
  Result.IpmiRequests.push_back({0x36, 0, 0x2A, {0xA2, 0x63, 0x05}, EFI_SUCCESS});
  rapidjson::Document Report;
  Report.Parse(qor::emu::BootReportJson(qor::emu::BuiltInBoard(), Result, 1).c_str());
  ASSERT_TRUE(Report.HasMember("ipmiRequests"));
  const rapidjson::Value &Requests = Report["ipmiRequests"];
  ASSERT_EQ(Requests.Size(), 1u);
  EXPECT_EQ(std::string(Requests[0]["netFunction"].GetString()), "0x36");
  EXPECT_EQ(Requests[0]["lun"].GetUint(), 0u);
  EXPECT_EQ(std::string(Requests[0]["command"].GetString()), "0x2A");
  EXPECT_EQ(Requests[0]["size"].GetUint(), 3u);
  EXPECT_EQ(std::string(Requests[0]["data"].GetString()), "A26305");
  EXPECT_EQ(std::string(Requests[0]["status"].GetString()), "Success");
}

}  // namespace
