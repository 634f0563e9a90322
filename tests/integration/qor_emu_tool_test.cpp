// The qor-emu command and its board reader: bad boards are refused with a
// message that names the field and what was expected there; a good run
// writes what the BMC received, byte for byte.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "boot_helpers.h"

namespace fs = std::filesystem;

namespace {

struct BadBoard {
  const char *Json;
  const char *Path;
  const char *Expectation;
};

std::string ErrorOf(const std::string &Json) {
  try {
    qor::emu::ParseBoard(Json);
  } catch (const qor::emu::BoardError &Error) {
    return Error.what();
  }
  return "<accepted>";
}

std::string ReadFile(const fs::path &Path) {
  std::ifstream In(Path, std::ios::binary);
  std::stringstream Text;
  Text << In.rdbuf();
  return Text.str();
}

// Runs the built qor-emu in a fresh folder; returns its exit status.
class QorEmuCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string Template = ::testing::TempDir() + "qor-emu-test-XXXXXX";
    ASSERT_NE(mkdtemp(Template.data()), nullptr);
    Dir = Template;
  }
  void TearDown() override { fs::remove_all(Dir); }

  int Run(const std::string &Arguments) {
    std::string Command = "'" QOR_BINARY_DIR "/qor-emu' " + Arguments + " >'" + (Dir / "stdout").string() +
                          "' 2>'" + (Dir / "stderr").string() + "'";
    int Status = std::system(Command.c_str());
    Out = ReadFile(Dir / "stdout");
    Err = ReadFile(Dir / "stderr");
    return WIFEXITED(Status) ? WEXITSTATUS(Status) : -1;
  }
  std::string WriteBoard(const std::string &Json) {
    fs::path Path = Dir / "board.json";
    std::ofstream(Path) << Json;
    return "'" + Path.string() + "'";
  }

  fs::path Dir;
  std::string Out;
  std::string Err;
};

}  // namespace

TEST(BoardErrors, NameTheFieldAndWhatWasExpected) {
  const BadBoard Cases[] = {
      {R"({"pch":{"deviceId":"0x10000"}})", "board.pch.deviceId", "at most 65535"},
      {R"({"pch":{"revision":1}})", "board.pch.revision", "expected one of: deviceId, revisionId"},
      {R"({"flash":{"id":"EF 40 1"}})", "board.flash.id", "even number of digits"},
      {R"({"pcd":{"customerId":"seventeen"}})", "board.pcd.customerId", "a number"},
      {R"({"hobs":{"mrcData":{"ppins":[1,2,3,4,5]}}})", "board.hobs.mrcData.ppins", "at most 4 PPINs"},
      {R"({"faults":{"missingProtocols":["jsn"]}})", "board.faults.missingProtocols[0]", "one of: json"},
      {R"({"triggers":{"order":["fill","early"]}})", "board.triggers.order[1]", "one of: fill, readyToLock, late"},
      {R"({"base":"other"})", "board.base", R"("builtin" or "empty")"},
      {R"({"pch":)", "board", "not valid JSON at offset"},
  };
  for (const BadBoard &Case : Cases) {
    std::string Message = ErrorOf(Case.Json);
    EXPECT_NE(Message.find(Case.Path), std::string::npos) << Case.Json << " -> " << Message;
    EXPECT_NE(Message.find(Case.Expectation), std::string::npos) << Case.Json << " -> " << Message;
  }
}

TEST_F(QorEmuCommand, RefusesABadBoardFileWithStatus1AndTheField) {
  EXPECT_EQ(Run("--board " + WriteBoard(R"({"pch":{"deviceId":"0x10000"}})") + " --out '" + (Dir / "out").string() +
                "'"),
            1);
  EXPECT_NE(Err.find("invalid board"), std::string::npos) << Err;
  EXPECT_NE(Err.find("board.pch.deviceId"), std::string::npos) << Err;
  EXPECT_FALSE(fs::exists(Dir / "out" / "push_BiosBeforeBoot.json"));
}

TEST_F(QorEmuCommand, RefusesAMissingBoardFileWithStatus1) {
  EXPECT_EQ(Run("--board '" + (Dir / "absent.json").string() + "'"), 1);
  EXPECT_NE(Err.find("absent.json"), std::string::npos) << Err;
  EXPECT_NE(Err.find("cannot be read"), std::string::npos) << Err;
}

TEST_F(QorEmuCommand, HelpExplainsTheUsageWithStatus0) {
  EXPECT_EQ(Run("--help"), 0);
  EXPECT_NE(Out.find("Usage: qor-emu"), std::string::npos) << Out;
  EXPECT_NE(Out.find("--board"), std::string::npos);
}

TEST_F(QorEmuCommand, RefusesAnUnknownArgumentWithStatus2) {
  EXPECT_EQ(Run("--bored x"), 2);
  EXPECT_NE(Err.find("--bored"), std::string::npos) << Err;
}

TEST_F(QorEmuCommand, WritesTheFilesTheBmcReceivedByteForByte) {
  fs::path OutDir = Dir / "out";
  ASSERT_EQ(Run("--out '" + OutDir.string() + "'"), 0) << Err;
  for (const char *Name : {"debug.log", "boot.json", "variables.json"}) EXPECT_TRUE(fs::exists(OutDir / Name)) << Name;

  qor::emu::BootResult Expected = qor::emu::RunBoot(qor::emu::BuiltInBoard());
  for (const char *Name : {qortest::kDocumentName, qortest::kFlashName}) {
    auto Sent = qortest::UploadsNamed(Expected.Uploads, Name);
    ASSERT_EQ(Sent.size(), 1u) << Name;
    EXPECT_EQ(ReadFile(OutDir / Name), qortest::Text(Sent[0]->Bytes)) << Name;
  }
  EXPECT_EQ(ReadFile(OutDir / "debug.log"), Expected.DebugLog);
}
