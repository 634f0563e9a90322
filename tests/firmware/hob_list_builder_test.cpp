// The HOB list the rig hands the driver: the firmware's list kept as it was,
// the new GUID HOBs behind it, one end HOB, and a PHIT that points at it.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "uefi/rig/hob_list_builder.h"

namespace {

constexpr EFI_GUID kFirst = {0x11111111, 0x2222, 0x3333, {4, 4, 4, 4, 4, 4, 4, 4}};
constexpr EFI_GUID kSecond = {0x55555555, 0x6666, 0x7777, {8, 8, 8, 8, 8, 8, 8, 8}};

// A firmware list: PHIT, one resource descriptor HOB (48 bytes), end.
std::vector<uint64_t> FirmwareList() {
  std::vector<uint64_t> Words((sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + 48 + 8) / 8, 0);
  uint8_t *Bytes = reinterpret_cast<uint8_t *>(Words.data());
  auto *Phit = reinterpret_cast<EFI_HOB_HANDOFF_INFO_TABLE *>(Bytes);
  Phit->Header = {EFI_HOB_TYPE_HANDOFF, sizeof(EFI_HOB_HANDOFF_INFO_TABLE), 0};
  Phit->Version = 9;
  auto *Resource = reinterpret_cast<EFI_HOB_GENERIC_HEADER *>(Bytes + sizeof(EFI_HOB_HANDOFF_INFO_TABLE));
  *Resource = {EFI_HOB_TYPE_RESOURCE_DESCRIPTOR, 48, 0};
  std::memset(Resource + 1, 0xA5, 40);
  auto *End = reinterpret_cast<EFI_HOB_GENERIC_HEADER *>(Bytes + sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + 48);
  *End = {EFI_HOB_TYPE_END_OF_HOB_LIST, sizeof(EFI_HOB_GENERIC_HEADER), 0};
  return Words;
}

TEST(RigHobList, AppendsGuidHobsBehindTheFirmwaresAndEndsOnce) {
  std::vector<uint64_t> Original = FirmwareList();
  const UINTN OriginalSize = QorRigHobListSize(Original.data(), 4096);
  ASSERT_EQ(OriginalSize, sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + 48 + 8);

  const uint8_t Five[5] = {1, 2, 3, 4, 5};
  const uint64_t Pointer = 0x123456789ULL;
  QOR_RIG_GUID_HOB Hobs[] = {{&kFirst, Five, sizeof(Five)}, {&kSecond, &Pointer, sizeof(Pointer)}};
  const UINTN Size = QorRigExtendedHobListSize(OriginalSize, Hobs, 2);
  // 24-byte GUID HOB headers; 5 data bytes pad to 32 in all, 8 to 32.
  EXPECT_EQ(Size, OriginalSize + 32 + 32);
  std::vector<uint64_t> Out(Size / 8 + 4, ~0ULL);
  ASSERT_EQ(QorRigBuildHobList(Original.data(), OriginalSize, Hobs, 2, Out.data(), Size), Size);

  const uint8_t *Bytes = reinterpret_cast<const uint8_t *>(Out.data());
  const UINTN Kept = OriginalSize - 8;
  // The firmware's HOBs are unchanged but for the PHIT's end pointer.
  EXPECT_EQ(std::memcmp(Bytes + sizeof(EFI_HOB_HANDOFF_INFO_TABLE),
                        reinterpret_cast<const uint8_t *>(Original.data()) + sizeof(EFI_HOB_HANDOFF_INFO_TABLE),
                        Kept - sizeof(EFI_HOB_HANDOFF_INFO_TABLE)),
            0);
  auto *First = reinterpret_cast<const EFI_HOB_GUID_TYPE *>(Bytes + Kept);
  EXPECT_EQ(First->Header.HobType, EFI_HOB_TYPE_GUID_EXTENSION);
  EXPECT_EQ(First->Header.HobLength, 32);
  EXPECT_EQ(std::memcmp(&First->Name, &kFirst, sizeof(EFI_GUID)), 0);
  EXPECT_EQ(std::memcmp(Bytes + Kept + 24, Five, 5), 0);
  EXPECT_EQ(Bytes[Kept + 29], 0) << "padding is zero";
  auto *Second = reinterpret_cast<const EFI_HOB_GUID_TYPE *>(Bytes + Kept + 32);
  EXPECT_EQ(std::memcmp(&Second->Name, &kSecond, sizeof(EFI_GUID)), 0);
  uint64_t Carried;
  std::memcpy(&Carried, Bytes + Kept + 32 + 24, 8);
  EXPECT_EQ(Carried, Pointer);

  auto *End = reinterpret_cast<const EFI_HOB_GENERIC_HEADER *>(Bytes + Size - 8);
  EXPECT_EQ(End->HobType, EFI_HOB_TYPE_END_OF_HOB_LIST);
  EXPECT_EQ(QorRigHobListSize(Bytes, Size), Size);
  auto *Phit = reinterpret_cast<const EFI_HOB_HANDOFF_INFO_TABLE *>(Bytes);
  EXPECT_EQ(Phit->EfiEndOfHobList, reinterpret_cast<uintptr_t>(End));
  EXPECT_EQ(Out[Size / 8], ~0ULL) << "nothing written past the list";
}

TEST(RigHobList, RefusesListsWithoutAnEndOrWithAnEmptyHob) {
  std::vector<uint64_t> List = FirmwareList();
  uint8_t *Bytes = reinterpret_cast<uint8_t *>(List.data());
  auto *End = reinterpret_cast<EFI_HOB_GENERIC_HEADER *>(Bytes + sizeof(EFI_HOB_HANDOFF_INFO_TABLE) + 48);
  End->HobType = EFI_HOB_TYPE_UNUSED;  // the walk would run off the list
  EXPECT_EQ(QorRigHobListSize(Bytes, List.size() * 8), 0u);
  End->HobType = EFI_HOB_TYPE_END_OF_HOB_LIST;
  auto *Resource = reinterpret_cast<EFI_HOB_GENERIC_HEADER *>(Bytes + sizeof(EFI_HOB_HANDOFF_INFO_TABLE));
  Resource->HobLength = 0;  // would never advance
  EXPECT_EQ(QorRigHobListSize(Bytes, List.size() * 8), 0u);
}

TEST(RigHobList, RefusesDataBeyondTheHobLengthAndTooSmallBuffers) {
  std::vector<uint64_t> Original = FirmwareList();
  const UINTN OriginalSize = QorRigHobListSize(Original.data(), 4096);
  std::vector<uint8_t> Big(QOR_RIG_MAX_GUID_HOB_DATA + 1);
  QOR_RIG_GUID_HOB TooBig = {&kFirst, Big.data(), Big.size()};
  EXPECT_EQ(QorRigExtendedHobListSize(OriginalSize, &TooBig, 1), 0u);
  QOR_RIG_GUID_HOB Largest = {&kFirst, Big.data(), QOR_RIG_MAX_GUID_HOB_DATA};
  EXPECT_EQ(QorRigExtendedHobListSize(OriginalSize, &Largest, 1), OriginalSize + 0xFFF8);

  const uint8_t One = 1;
  QOR_RIG_GUID_HOB Small = {&kFirst, &One, 1};
  const UINTN Size = QorRigExtendedHobListSize(OriginalSize, &Small, 1);
  std::vector<uint64_t> Out(Size / 8);
  EXPECT_EQ(QorRigBuildHobList(Original.data(), OriginalSize, &Small, 1, Out.data(), Size - 8), 0u);
  EXPECT_EQ(QorRigBuildHobList(Original.data(), OriginalSize - 8, &Small, 1, Out.data(), Size), 0u)
      << "a size that does not end at the end HOB";
}

}  // namespace
