// HOBs shorter than the layout the driver reads: nothing beyond a HOB's data
// is read as if it were there.
#include <gtest/gtest.h>

#include "boot_helpers.h"
#include "emulator/boot_report.h"

using namespace qortest;

namespace {

std::string SectionState(const qor::emu::BootResult &Result, const std::string &Name) {
  for (const auto &State : qor::emu::SectionStates(Result)) {
    if (State.Name == Name) return State.State;
  }
  return "";
}

TEST(ShortHobs, AProcessorSpeedHobWithoutASocketsRatioGivesItMaxSpeedZero) {
  // Ratios for socket 0 only; both sockets are populated.
  qor::emu::BootResult Result = Boot(R"({"hobs": {"processorSpeed": [38]}})");
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  const rapidjson::Value &List = Document["CpuInfo"]["InfoList"];
  ASSERT_EQ(List.Size(), 2u);
  EXPECT_EQ(List[0]["MaxSpeed"].GetUint(), 3800u);
  EXPECT_EQ(List[1]["Index"].GetUint(), 1u);
  EXPECT_EQ(List[1]["MaxSpeed"].GetUint(), 0u);
}

TEST(ShortHobs, AMemoryMapHobTooShortForItsPointerCountsAsMissing) {
  // The memory map HOB holds a 64-bit pointer; a HOB with no data has none.
  // (HOB lengths are multiples of 8, so no HOB holds a part of a pointer.)
  qor::emu::BootResult Result = Boot(R"({"hobs": {"memoryMap": null,
      "guidHobs": [{"guid": "F8870015-6994-4B98-95A2-BD56DA91C07F", "data": ""}]}})");
  EXPECT_EQ(SectionState(Result, "DimmInfo"), "unfilled");
  EXPECT_EQ(LevelOf(Result, "No memory map found\n"), 0x80000000u);
  EXPECT_EQ(SectionState(Result, "CpuInfo"), "filled");
}

}  // namespace
