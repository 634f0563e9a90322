// Walks over firmware data that end only by a marker the data may lack: the
// HOB list (an end HOB) and an SMBIOS record's string area (a double NUL).
// Each stops at its bound instead of reading on; run under ASan, a read past
// the data fails the test.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "driver_fixture.h"
#include "platform/guids.h"
#include "platform/hob.h"
#include "platform/hob_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {

class HobListWalk : public DriverOnEmulator {
 protected:
  // Serves Hobs as the HOB list of the configuration table.
  void UseHobList(std::vector<uint64_t> &Hobs) {
    Fw->AddConfigurationTable(gEfiHobListGuid, Hobs.data());
    QorHobLibInit();
  }
};

uint64_t GenericHob(uint16_t Type, uint16_t Length) { return static_cast<uint64_t>(Type) | (uint64_t{Length} << 16); }

const EFI_GUID kWanted = {0x9B28FEDE, 0xACBB, 0x478E, {0x8A, 0xD6, 0x48, 0x8C, 0xDE, 0x18, 0x00, 0xF8}};

TEST_F(HobListWalk, AHobShorterThanItsHeaderEndsTheWalk) {
  Start();
  // A HOB of length 4, shorter than its own header, whose second half looks
  // like another 4-byte HOB; walked on, they would lead to the wanted GUID
  // HOB behind them. The walk ends at the first.
  std::vector<uint64_t> Hobs = {GenericHob(EFI_HOB_TYPE_GUID_EXTENSION, 4) | GenericHob(EFI_HOB_TYPE_UNUSED, 4) << 32,
                                GenericHob(EFI_HOB_TYPE_GUID_EXTENSION, 24), 0, 0,
                                GenericHob(EFI_HOB_TYPE_END_OF_HOB_LIST, 8)};
  std::memcpy(&Hobs[2], &kWanted, sizeof(kWanted));
  UseHobList(Hobs);
  EXPECT_EQ(QorGetFirstGuidHob(&kWanted), nullptr);
  // Without the short HOB the same GUID HOB is found.
  Hobs.erase(Hobs.begin());
  UseHobList(Hobs);
  EXPECT_EQ(QorGetFirstGuidHob(&kWanted), Hobs.data());
}

TEST_F(HobListWalk, AListWithoutItsEndHobIsWalkedAtMost0x100000Hobs) {
  Start();
  std::vector<uint64_t> Hobs(0x100000, GenericHob(EFI_HOB_TYPE_UNUSED, 8));
  UseHobList(Hobs);
  EXPECT_EQ(QorGetFirstGuidHob(&kWanted), nullptr);
}

TEST(SmbiosStringArea, IsReadAtMost0xFFFFBytesFarWithoutItsDoubleNul) {
  // A record whose first string runs 0x10000 characters, then a string "B".
  std::vector<uint8_t> Record = {17, 4, 0x20, 0x00};
  Record.insert(Record.end(), 0x10000, 'A');
  Record.insert(Record.end(), {0, 'B', 0, 0});
  const auto *Header = reinterpret_cast<const EFI_SMBIOS_TABLE_HEADER *>(Record.data());
  EXPECT_EQ(QorGetSmbiosString(Header, 1), reinterpret_cast<const char *>(Record.data() + 4));
  EXPECT_EQ(QorGetSmbiosString(Header, 2), nullptr);
}

}  // namespace
