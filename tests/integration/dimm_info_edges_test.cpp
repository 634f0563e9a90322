// DimmInfo at the edges of its platform data: an ECC byte that is set but not
// 1, and the last slot position a DIMM map entry can name (socket 7,
// channel 7, DIMM 1), on a socket the memory map data does not describe.
#include <gtest/gtest.h>

#include "boot_helpers.h"

using namespace qortest;

namespace {

TEST(DimmInfoEdges, AnyNonZeroEccByteMeansEcc) {
  // The memory map's ECC byte at 32634 holds 0x80.
  qor::emu::BootResult Result = Boot(R"({"hobs": {"memoryMap": {"patches": [{"offset": 32634, "bytes": "80"}]}}})");
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  const rapidjson::Value &List = Document["DimmInfo"]["InfoList"];
  ASSERT_GT(List.Size(), 0u);
  for (const auto &Dimm : List.GetArray()) EXPECT_EQ(Dimm["DimmEcc"].GetUint(), 1u);
}

TEST(DimmInfoEdges, TheCursorReachesTheLastSlotAMapEntryCanName) {
  // Slot position 127 = socket 7 * 16 + channel 7 * 2 + DIMM 1. It is found,
  // but the memory map data describes four sockets, so socket 7 counts as not
  // enabled and the DIMM is left out.
  qor::emu::BootResult Result = Boot(R"({
    "hobs": {"dimmMap": {"slots": [{"socket": 7, "channel": 7, "dimm": 1, "index": 127, "number": 16,
                                    "label": "B16"}]}},
    "smbios": {"memoryDevices": [{"locator": "DIMM_B16", "sizeMb": 32768}]}})");
  EXPECT_NE(Result.DebugLog.find("QorIsDimmAvaliable: 7 7 1 1 Socket not enable\n"), std::string::npos)
      << Result.DebugLog;
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  EXPECT_EQ(Document["DimmInfo"]["MaxDimm"].GetUint(), 1u);
  EXPECT_TRUE(Document["DimmInfo"]["InfoList"].Empty());
}

}  // namespace
