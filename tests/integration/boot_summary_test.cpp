// What qor-emu tells on the terminal and in boot.json: every send with its
// status, the documents not sent, the sections without a filler (as the boot
// reported them), and a report that stays valid JSON whatever bytes the
// driver logged.
#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <zlib.h>

#include <cstdio>
#include <string>
#include <vector>

#include "boot_helpers.h"
#include "emulator/boot_report.h"
#include "tools/boot_summary.h"

namespace {

constexpr uint64_t kError = 0x80000000;
constexpr uint64_t kInfo = 0x40;

bool HasLine(const std::string &Text, const std::string &Line) {
  return ("\n" + Text).find("\n" + Line + "\n") != std::string::npos;
}

}  // namespace

TEST(BootSummary, ShowsEverySendWithItsStatusAndEachDocumentNotSent) {
  qor::emu::BootResult Result;
  Result.EntryStatus = EFI_SUCCESS;
  Result.Uploads.push_back({"push_BiosBeforeBoot.json", "push_BiosBeforeBoot.json", {'{', '}', '\n'}, EFI_SUCCESS});
  Result.Uploads.push_back({"push_BiosBeforeBoot.json", "push_BiosBeforeBoot.2.json", {'{', '}', '\n'},
                            EFI_DEVICE_ERROR});
  const std::string Summary = qor::tool::BootSummary(Result, "out", 1, 1);
  char Crc[16];
  std::snprintf(Crc, sizeof(Crc), "0x%08lX", crc32(0, reinterpret_cast<const Bytef *>("{}\n"), 3));
  EXPECT_TRUE(HasLine(Summary, std::string("upload: push_BiosBeforeBoot.json            3 bytes  crc32 ") + Crc +
                                   "  sent: Success"))
      << Summary;
  EXPECT_TRUE(HasLine(Summary, std::string("upload: push_BiosBeforeBoot.2.json          3 bytes  crc32 ") + Crc +
                                   "  send FAILED: Device Error"))
      << Summary;
  EXPECT_TRUE(HasLine(Summary, "not sent: push_FlashInfo.json")) << Summary;
  EXPECT_EQ(Summary.find("not sent: push_BiosBeforeBoot.json"), std::string::npos) << Summary;
}

TEST(BootSummary, NamesTheSectionsTheBootReportedWithoutFillerOnceInRegistryOrder) {
  qor::emu::BootResult Result;
  Result.DebugLines = {{kError, "Invalid Type 11\n"}, {kError, "Invalid Type 8\n"}, {kError, "Invalid Type 8\n"},
                       {kInfo, "Invalid Type 9\n"},   // not an error-level line
                       {kError, "Invalid Type 14\n"},  // not a section
                       {kError, "Invalid Type 2 and more\n"}};
  EXPECT_EQ(qor::tool::SectionsWithoutFiller(Result), (std::vector<std::string>{"PcieDevice", "PcieResource"}));
  const std::string Summary = qor::tool::BootSummary(Result, "out", 1, 1);
  EXPECT_TRUE(HasLine(Summary, "no filler yet in this driver: PcieDevice, PcieResource (sent as {})")) << Summary;
  // Said once, plainly, instead of as warnings; other error lines stay warnings.
  EXPECT_EQ(Summary.find("warning: Invalid Type 8"), std::string::npos) << Summary;
  EXPECT_TRUE(HasLine(Summary, "warning: Invalid Type 14")) << Summary;

  Result.DebugLines.clear();
  EXPECT_EQ(qor::tool::BootSummary(Result, "out", 1, 1).find("no filler"), std::string::npos);
}

// In a boot where every trigger comes and nothing fails, a section is left
// unfilled only when the driver has no filler for it.
TEST(BootSummary, TheSectionsWithoutFillerAreThoseAFullBootLeavesUnfilled) {
  qor::emu::BootResult Result = qortest::Boot();
  std::vector<std::string> Unfilled;
  const std::vector<std::string> Listing = qortest::ForceListing(Result);
  for (size_t I = 0; I < Listing.size(); I++) {
    if (Listing[I] == "0") Unfilled.push_back(qortest::kSectionOrder[I]);
  }
  EXPECT_EQ(qor::tool::SectionsWithoutFiller(Result), Unfilled);
}

TEST(BootReport, StaysValidJsonWhateverBytesTheDriverLogged) {
  qor::emu::BootResult Result;
  Result.DebugLines = {{kError, "model \xFF\xFE, cut \xC3, overlong \xC0\xAF, surrogate \xED\xA0\x80, ok \xC3\xBC\n"}};
  const std::string Report = qor::emu::BootReportJson(qor::emu::Board(), Result, 1);
  rapidjson::Document Document;
  Document.Parse<rapidjson::kParseValidateEncodingFlag>(Report.c_str(), Report.size());
  ASSERT_FALSE(Document.HasParseError()) << "offset " << Document.GetErrorOffset();
  // Each byte that starts no well-formed sequence becomes U+FFFD.
  const std::string R = "\xEF\xBF\xBD";
  EXPECT_EQ(std::string(Document["warnings"][0].GetString()),
            "model " + R + R + ", cut " + R + ", overlong " + R + R + ", surrogate " + R + R + R + ", ok \xC3\xBC\n");
}

TEST(BootSummary, SaysWhichResetEndedTheBoot) {
  qor::emu::BootResult Result;
  Result.Resets.push_back({EfiResetWarm, EFI_SUCCESS, {}});
  EXPECT_TRUE(HasLine(qor::tool::BootSummary(Result, "out", 1, 1), "reset: warm, by the driver; the boot ended there"));
  Result.Resets[0].Type = EfiResetCold;
  EXPECT_TRUE(HasLine(qor::tool::BootSummary(Result, "out", 2, 2), "reset: cold, by the driver; the boot ended there"));
  Result.Resets.clear();
  EXPECT_EQ(qor::tool::BootSummary(Result, "out", 1, 1).find("reset"), std::string::npos);
}
