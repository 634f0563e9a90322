// Full boots: DimmResultInfo, VmdInfo and IioInfo as the BMC receives them
// in push_BiosBeforeBoot.json.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <string>
#include <utility>
#include <vector>

#include "emulator/boot.h"

namespace {

using qor::emu::BootResult;
using qor::emu::ParseBoard;
using qor::emu::RunBoot;

// The uploaded document; member order and repeated keys are kept by the
// DOM (members are stored in document order, duplicates included).
struct Document {
  explicit Document(const BootResult &Result) {
    const qor::emu::Upload *Upload = Result.FindUpload("push_BiosBeforeBoot.json");
    if (Upload == nullptr) {
      ADD_FAILURE() << "no push_BiosBeforeBoot.json sent";
      Doc.SetObject();
      return;
    }
    std::string Text(Upload->Bytes.begin(), Upload->Bytes.end());
    while (!Text.empty() && Text.back() == '\0') Text.pop_back();
    Doc.Parse(Text.c_str());
    if (Doc.HasParseError() || !Doc.IsObject()) {
      ADD_FAILURE() << "document does not parse: " << Text;
      Doc.SetObject();
    }
  }
  const rapidjson::Value &Section(const char *Name) const {
    static const rapidjson::Value Missing;
    auto It = Doc.FindMember(Name);
    if (It == Doc.MemberEnd()) ADD_FAILURE() << "no section " << Name;
    return It == Doc.MemberEnd() ? Missing : It->value;
  }
  rapidjson::Document Doc;
};

std::vector<std::string> MemberNames(const rapidjson::Value &Object) {
  std::vector<std::string> Names;
  if (!Object.IsObject()) return Names;
  for (auto It = Object.MemberBegin(); It != Object.MemberEnd(); ++It) Names.push_back(It->name.GetString());
  return Names;
}

using Ports = std::vector<std::pair<std::string, std::string>>;

Ports PortsOf(const rapidjson::Value &Stack) {
  Ports Out;
  if (!Stack.IsObject()) return Out;
  for (auto It = Stack.MemberBegin(); It != Stack.MemberEnd(); ++It) {
    Out.emplace_back(It->name.GetString(), It->value.IsString() ? It->value.GetString() : "<not a string>");
  }
  return Out;
}

TEST(IioTrainingBoot, BuiltInBoardReportsTrainingResults) {
  BootResult Result = RunBoot(qor::emu::BuiltInBoard());
  ASSERT_EQ(Result.EntryStatus, EFI_SUCCESS);
  Document D(Result);
  const rapidjson::Value &Dimm = D.Section("DimmResultInfo");
  ASSERT_EQ(MemberNames(Dimm), (std::vector<std::string>{"CpuBitMap", "SocketResult"}));
  EXPECT_EQ(Dimm["CpuBitMap"].GetUint(), 3u);
  const rapidjson::Value &Sockets = Dimm["SocketResult"];
  ASSERT_EQ(Sockets.Size(), 2u);  // the socket count
  for (unsigned Socket = 0; Socket < 2; Socket++) {
    SCOPED_TRACE(Socket);
    const rapidjson::Value &Entry = Sockets[Socket];
    ASSERT_EQ(MemberNames(Entry), (std::vector<std::string>{"CPU", "ChannelNum", "ChannelResult"}));
    EXPECT_EQ(Entry["CPU"].GetUint(), Socket);
    EXPECT_EQ(Entry["ChannelNum"].GetUint(), 8u);
    ASSERT_EQ(Entry["ChannelResult"].Size(), 8u);
    for (unsigned Channel = 0; Channel < 8; Channel++) {
      SCOPED_TRACE(Channel);
      const rapidjson::Value &Record = Entry["ChannelResult"][Channel];
      ASSERT_EQ(MemberNames(Record), (std::vector<std::string>{"Channel", "Result", "DimmNum", "DimmResult"}));
      // Socket 1 channel 7 holds the DIMM that failed training; socket 0
      // has two DIMMs on channels 0 to 3.
      bool MappedOut = Socket == 1 && Channel == 7;
      unsigned Dimms = Socket == 0 && Channel < 4 ? 2u : 1u;
      EXPECT_EQ(Record["Channel"].GetUint(), Channel);
      EXPECT_EQ(Record["Result"].GetUint(), MappedOut ? 1u : 0u);
      EXPECT_EQ(Record["DimmNum"].GetUint(), Dimms);
      ASSERT_EQ(Record["DimmResult"].Size(), Dimms);
      const rapidjson::Value &Dimm0 = Record["DimmResult"][0];
      ASSERT_EQ(MemberNames(Dimm0), (std::vector<std::string>{"Dimm", "Result", "MapoutReason", "Certification"}));
      EXPECT_EQ(Dimm0["Dimm"].GetUint(), 0u);
      EXPECT_EQ(Dimm0["Result"].GetUint(), MappedOut ? 1u : 0u);
      EXPECT_EQ(Dimm0["MapoutReason"].GetUint(), MappedOut ? 3u : 0u);
      EXPECT_EQ(Dimm0["Certification"].GetUint(), MappedOut ? 0u : 1u);
    }
  }
}

TEST(IioTrainingBoot, BuiltInBoardReportsVmdAndIioPorts) {
  BootResult Result = RunBoot(qor::emu::BuiltInBoard());
  Document D(Result);
  const rapidjson::Value &Vmd = D.Section("VmdInfo");
  ASSERT_EQ(MemberNames(Vmd), std::vector<std::string>{"Enable"});
  EXPECT_TRUE(Vmd["Enable"].IsTrue());

  const rapidjson::Value &Iio = D.Section("IioInfo");
  ASSERT_EQ(MemberNames(Iio), (std::vector<std::string>{"CPU", "PortInfo", "CPU", "PortInfo"}));
  auto Member = [&](int Position) -> const rapidjson::Value & { return (Iio.MemberBegin() + Position)->value; };
  EXPECT_EQ(Member(0).GetUint(), 0u);
  EXPECT_EQ(Member(2).GetUint(), 1u);
  // The built-in board's socket 0 stack 2 has code 19 (A to E); socket 1
  // numbers its stacks from 0 again, its stack 1 has code 51 (A, E).
  for (int Socket = 0; Socket < 2; Socket++) ASSERT_EQ(Member(1 + 2 * Socket).Size(), 5u) << Socket;
  EXPECT_EQ(PortsOf(Member(1)[2]),
            (Ports{{"Port2A", "2"}, {"Port2B", "2"}, {"Port2C", "2"}, {"Port2D", "2"}, {"Port2E", "8"}}));
  EXPECT_EQ(PortsOf(Member(3)[0]), (Ports{{"Port0A", "16"}}));
  EXPECT_EQ(PortsOf(Member(3)[1]), (Ports{{"Port1A", "8"}, {"Port1E", "8"}}));

  // IioInfo fills on the fill trigger, VmdInfo on the late one before the
  // forced upload looks.
  size_t Iio0 = Result.DebugLog.find("QorUpdateIioInfo ---start\n");
  size_t Vmd0 = Result.DebugLog.find("QorFillVmdInfo ---start\n");
  size_t Force = Result.DebugLog.find("QorForceUploadCallBack ---start\n");
  ASSERT_NE(Iio0, std::string::npos);
  ASSERT_NE(Vmd0, std::string::npos);
  EXPECT_LT(Iio0, Vmd0);
  EXPECT_LT(Vmd0, Force);
}

TEST(IioTrainingBoot, MissingSourcesGiveTheirDefaults) {
  // No IIO port HOB: IioInfo stays unfilled and goes out as {}. No iio sys
  // protocol: VMD is reported off. No system information: CpuBitMap 0.
  BootResult Result = RunBoot(ParseBoard(R"({"iio": {"portHob": null},
      "faults": {"missingProtocols": ["iioSys", "systemInformation"]}})"));
  ASSERT_EQ(Result.EntryStatus, EFI_SUCCESS);
  Document D(Result);
  EXPECT_TRUE(D.Section("IioInfo").IsObject());
  EXPECT_TRUE(MemberNames(D.Section("IioInfo")).empty());
  EXPECT_NE(Result.DebugLog.find("[13] [IioInfo] [0]\n"), std::string::npos);
  EXPECT_TRUE(D.Section("VmdInfo")["Enable"].IsFalse());
  EXPECT_NE(Result.DebugLog.find("[5] [VmdInfo] [1]\n"), std::string::npos);
  EXPECT_EQ(D.Section("DimmResultInfo")["CpuBitMap"].GetUint(), 0u);
  EXPECT_EQ(D.Section("DimmResultInfo")["SocketResult"].Size(), 2u);
}

}  // namespace
