// The qor-emu command and its board reader: bad boards are refused with a
// message that names the field and what was expected there; a good run
// writes what the BMC received, byte for byte.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

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

TEST_F(QorEmuCommand, HelpExplainsTheUsageAndEveryExitStatus) {
  EXPECT_EQ(Run("--help"), 0);
  EXPECT_NE(Out.find("Usage: qor-emu"), std::string::npos) << Out;
  EXPECT_NE(Out.find("--board"), std::string::npos);
  EXPECT_NE(Out.find("outputs cannot be written"), std::string::npos) << Out;
}

TEST_F(QorEmuCommand, AnOutputThatCannotBeWrittenEndsWithStatus1) {
  std::ofstream(Dir / "plain-file") << "not a folder";
  EXPECT_EQ(Run("--out '" + (Dir / "plain-file").string() + "'"), 1);
  EXPECT_NE(Err.find("plain-file"), std::string::npos) << Err;
}

TEST_F(QorEmuCommand, RefusesADirectoryAsBoardSayingSo) {
  EXPECT_EQ(Run("--board '" + Dir.string() + "'"), 1);
  EXPECT_NE(Err.find("is a directory, not a board file"), std::string::npos) << Err;
}

// Nesting this deep overflowed the stack of a recursive reader.
TEST_F(QorEmuCommand, RefusesBoardsNestedTooDeepWithStatus1) {
  const size_t Depth = 100000;
  for (const auto &[Open, Close] : {std::pair<std::string, std::string>{"[", "]"}, {"{\"a\":", "}"}}) {
    std::string Json = "{\"pci\":";
    for (size_t I = 0; I < Depth; I++) Json += Open;
    for (size_t I = 0; I < Depth; I++) Json += Close;
    EXPECT_EQ(Run("--board " + WriteBoard(Json + "}") + " --out '" + (Dir / "out").string() + "'"), 1) << Open;
    EXPECT_NE(Err.find("nest more than 1024 levels deep"), std::string::npos) << Err;
  }
}

// Outputs of an earlier run must not look like this run's; what the user put
// beside them stays.
TEST_F(QorEmuCommand, RemovesOnlyItsOwnOutputsOfEarlierRunsBeforeABoot) {
  const fs::path OutDir = Dir / "out";
  const std::vector<std::string> Stale = {
      "push_BiosBeforeBoot.json", "push_BiosBeforeBoot.2.json", "push_FlashInfo.json", "push_FlashInfo.13.json",
      "debug.log", "boot.json", "variables.json", "smbios.bin", "boot-2/push_BiosBeforeBoot.json", "boot-2/boot.json",
      "boot-1/debug.log"};
  const std::vector<std::string> Users = {
      "notes.txt", "push_BiosBeforeBoot.json.bak", "push_BiosBeforeBoot.1.json", "push_FlashInfo.02.json",
      "push_Other.json", "boot-1/my-notes.txt", "boot-01/debug.log", "boot-x/boot.json", "debug.log.old",
      "push_FlashInfo.2.json/keep.txt"};
  for (const auto &Name : Stale) {
    fs::create_directories((OutDir / Name).parent_path());
    std::ofstream(OutDir / Name) << "stale";
  }
  for (const auto &Name : Users) {
    fs::create_directories((OutDir / Name).parent_path());
    std::ofstream(OutDir / Name) << "the user's";
  }

  // A refused board boots nothing and removes nothing.
  ASSERT_EQ(Run("--board " + WriteBoard(R"({"pch":{"deviceId":"0x10000"}})") + " --out '" + OutDir.string() + "'"), 1);
  for (const auto &Name : Stale) EXPECT_TRUE(fs::exists(OutDir / Name)) << Name;

  // Without the quick trans protocol nothing is sent.
  ASSERT_EQ(Run("--board " + WriteBoard(R"({"faults":{"missingProtocols":["quickTrans"]}})") + " --out '" +
                OutDir.string() + "'"),
            0)
      << Err;
  for (const auto &Name : {"push_BiosBeforeBoot.json", "push_BiosBeforeBoot.2.json", "push_FlashInfo.json",
                           "push_FlashInfo.13.json", "boot-2"}) {
    EXPECT_FALSE(fs::exists(OutDir / Name)) << Name;
  }
  for (const auto &Name : Users) EXPECT_EQ(ReadFile(OutDir / Name), "the user's") << Name;
  EXPECT_FALSE(fs::exists(OutDir / "boot-1" / "debug.log"));
  for (const char *Name : {"debug.log", "boot.json", "variables.json", "smbios.bin"}) {
    EXPECT_NE(ReadFile(OutDir / Name), "stale") << Name;
  }
  EXPECT_NE(Out.find("not sent: push_BiosBeforeBoot.json"), std::string::npos) << Out;
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
  EXPECT_EQ(qortest::WithoutPointers(ReadFile(OutDir / "debug.log")), qortest::WithoutPointers(Expected.DebugLog));
}

TEST_F(QorEmuCommand, NamesTheBoardOfEachBootThatChangesAndTheTypeOfEachReset) {
  fs::path OutDir = Dir / "out";
  ASSERT_EQ(Run("--board '" QOR_SOURCE_DIR "/boards/examples/customer-3-jd-nic.json' --boots 3 --out '" +
                OutDir.string() + "'"),
            0)
      << Err;
  const std::string Boot1 = "== boot 1 ==\nboard: CustomerId 3, boots 1-2: JD NIC in slot 5\n";
  const std::string Boot3 = "== boot 3 ==\nboard: CustomerId 3, boots 3-4: JD NIC moved to slot 9\n";
  EXPECT_NE(Out.find(Boot1), std::string::npos) << Out;
  EXPECT_NE(Out.find(Boot3), std::string::npos) << Out;
  EXPECT_NE(Out.find("\nreset: cold, by the driver; the boot ended there\n"), std::string::npos) << Out;
  rapidjson::Document Report;
  std::string Text = ReadFile(OutDir / "boot-3" / "boot.json");
  Report.Parse(Text.c_str(), Text.size());
  ASSERT_FALSE(Report.HasParseError());
  EXPECT_STREQ(Report["board"].GetString(), "CustomerId 3, boots 3-4: JD NIC moved to slot 9");
  EXPECT_STREQ(Report["reset"]["type"].GetString(), "cold");

  // A board that stays the same names itself once, above the boots.
  ASSERT_EQ(Run("--boots 2 --out '" + OutDir.string() + "'"), 0) << Err;
  EXPECT_EQ(Out.find("== boot 1 ==\nboard:"), std::string::npos) << Out;
  EXPECT_EQ(Out.rfind("board: Qor built-in board: 2-socket server\n", 0), 0u) << Out;
}
