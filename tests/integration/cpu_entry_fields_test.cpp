// CpuInfo entries field by field from SMBIOS type 4 records whose
// neighbouring fields all differ, so that a field read at the wrong offset or
// width shows: counts are bytes (0x23-0x25) except threads enabled (the word
// at 0x30), family 2 is a word, and the SMBIOS 3.0 two-byte counts are never
// read.
#include <gtest/gtest.h>

#include <string>

#include "boot_helpers.h"

using namespace qortest;

namespace {

struct CpuFields {
  unsigned TotalCores, EnableCores, TotalThreads, EnableThreads, Type, Family, Family2, Upgrade, DimmTech,
      CurrentSpeed, ExternalClock;
};

void ExpectFields(const rapidjson::Value &Entry, const CpuFields &Expected) {
  EXPECT_EQ(Entry["TotalCores"].GetUint(), Expected.TotalCores);
  EXPECT_EQ(Entry["EnableCores"].GetUint(), Expected.EnableCores);
  EXPECT_EQ(Entry["TotalThreads"].GetUint(), Expected.TotalThreads);
  EXPECT_EQ(Entry["EnableThreads"].GetUint(), Expected.EnableThreads);
  EXPECT_EQ(Entry["Type"].GetUint(), Expected.Type);
  EXPECT_EQ(Entry["Family"].GetUint(), Expected.Family);
  EXPECT_EQ(Entry["Family2"].GetUint(), Expected.Family2);
  EXPECT_EQ(Entry["Upgrade"].GetUint(), Expected.Upgrade);
  EXPECT_EQ(Entry["DimmTech"].GetUint(), Expected.DimmTech);
  EXPECT_EQ(Entry["CurrentSpeed"].GetUint(), Expected.CurrentSpeed);
  EXPECT_EQ(Entry["ExternalClock"].GetUint(), Expected.ExternalClock);
}

TEST(CpuInfoFields, EachMemberReadsItsOwnSmbiosFieldAtItsOwnWidth) {
  // Record 1 (status 0x41, so Upgrade must not come from the status byte):
  //   0x05 type 0x04, 0x06 family 0xB3, 0x12 clock 133, 0x16 speed 2250,
  //   0x19 upgrade 0x3F, 0x23/0x24/0x25 counts 33/31/66, 0x26 characteristics
  //   0xEC, 0x28 family 2 0x0118, 0x30 threads enabled 318 (above a byte).
  // Record 2: counts above 255, which SMBIOS puts in the two-byte fields at
  //   0x2A-0x2E with 0xFF in the byte fields: the driver reports the bytes.
  qor::emu::BootResult Result = Boot(R"({"smbios": {"processors": [
      {"socket": "CPU0", "type": 4, "family": "0xB3", "family2": "0x0118", "upgrade": "0x3F",
       "coreCount": 33, "coresEnabled": 31, "threadCount": 66, "threadsEnabled": 318,
       "characteristics": "0xEC", "externalClock": 133, "currentSpeed": 2250},
      {"socket": "CPU1", "family2": "0x0200", "upgrade": 6, "coreCount": 300, "coresEnabled": 290,
       "threadCount": 600, "threadsEnabled": 580, "externalClock": 100, "currentSpeed": 1900}]}})");
  rapidjson::Document Document = OnlyDocument(Result);
  ASSERT_TRUE(Document.IsObject());
  const rapidjson::Value &List = Document["CpuInfo"]["InfoList"];
  ASSERT_EQ(List.Size(), 2u);
  ExpectFields(List[0], {33, 31, 66, 318, 4, 0xB3, 0x0118, 0x3F, 0xEC, 2250, 133});
  // Family 0xFE: "see family 2".
  ExpectFields(List[1], {255, 255, 255, 580, 3, 0xFE, 0x0200, 6, 0xFC, 1900, 100});
}

}  // namespace
