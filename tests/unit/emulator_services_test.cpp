// The emulated boot and runtime services keep the semantics a driver relies
// on: variables, the accounting pool, multiple-interface installation, the
// CRC service, and ResetSystem ending the boot.
#include <gtest/gtest.h>

#include <csetjmp>
#include <cstring>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/firmware.h"

namespace {

const EFI_GUID kVendor = {0x3A1B2C3D, 0x4E5F, 0x6071, {0x82, 0x93, 0xA4, 0xB5, 0xC6, 0xD7, 0xE8, 0xF9}};
const EFI_GUID kProtocolA = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
const EFI_GUID kProtocolB = {0x66666666, 0x7777, 0x8888, {0x99, 0x99, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA}};
constexpr UINT32 kNvBsRt = EFI_VARIABLE_NON_VOLATILE | EFI_VARIABLE_BOOTSERVICE_ACCESS | EFI_VARIABLE_RUNTIME_ACCESS;

class EmulatorServices : public ::testing::Test {
 protected:
  EFI_STATUS SetVar(const char16_t *Name, UINT32 Attributes, std::vector<uint8_t> Data) {
    return Fw.RuntimeServices()->SetVariable(const_cast<CHAR16 *>(Name), const_cast<EFI_GUID *>(&kVendor), Attributes,
                                             Data.size(), Data.empty() ? nullptr : Data.data());
  }
  EFI_STATUS GetVar(const char16_t *Name, UINTN *Size, void *Data, UINT32 *Attributes = nullptr) {
    return Fw.RuntimeServices()->GetVariable(const_cast<CHAR16 *>(Name), const_cast<EFI_GUID *>(&kVendor),
                                             Attributes, Size, Data);
  }
  qor::emu::Firmware Fw;
};

TEST_F(EmulatorServices, GetVariableReportsTheNeededSizeAndReturnsDataWithAttributes) {
  ASSERT_EQ(SetVar(u"Mode", kNvBsRt, {1, 2, 3}), EFI_SUCCESS);
  UINTN Size = 2;
  uint8_t Data[8] = {};
  EXPECT_EQ(GetVar(u"Mode", &Size, Data), EFI_BUFFER_TOO_SMALL);
  EXPECT_EQ(Size, 3u);
  UINT32 Attributes = 0;
  Size = sizeof(Data);
  EXPECT_EQ(GetVar(u"Mode", &Size, Data, &Attributes), EFI_SUCCESS);
  EXPECT_EQ(Size, 3u);
  EXPECT_EQ(Attributes, kNvBsRt);
  EXPECT_EQ(std::vector<uint8_t>(Data, Data + 3), (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_EQ(GetVar(u"Absent", &Size, Data), EFI_NOT_FOUND);
}

TEST_F(EmulatorServices, SetVariableDeletesBySizeZeroAndRefusesBadAttributes) {
  ASSERT_EQ(SetVar(u"Mode", kNvBsRt, {1}), EFI_SUCCESS);
  EXPECT_EQ(SetVar(u"Mode", EFI_VARIABLE_BOOTSERVICE_ACCESS, {2}), EFI_INVALID_PARAMETER);  // attributes differ
  EXPECT_EQ(SetVar(u"Other", EFI_VARIABLE_RUNTIME_ACCESS, {2}), EFI_INVALID_PARAMETER);     // runtime without BS
  EXPECT_EQ(SetVar(u"Mode", kNvBsRt, {}), EFI_SUCCESS);
  UINTN Size = 8;
  uint8_t Data[8];
  EXPECT_EQ(GetVar(u"Mode", &Size, Data), EFI_NOT_FOUND);
  EXPECT_EQ(SetVar(u"Mode", kNvBsRt, {}), EFI_NOT_FOUND);  // nothing left to delete
  // Every write is recorded with its outcome.
  ASSERT_EQ(Fw.Variables().Writes().size(), 5u);
  EXPECT_EQ(Fw.Variables().Writes()[1].Status, EFI_INVALID_PARAMETER);
}

TEST_F(EmulatorServices, InjectedVariableFaultsFailWithDeviceError) {
  Fw.Variables().FailGet(u"Setup");
  Fw.Variables().FailSet(u"Setup");
  EXPECT_EQ(SetVar(u"Setup", kNvBsRt, {1}), EFI_DEVICE_ERROR);
  UINTN Size = 8;
  uint8_t Data[8];
  EXPECT_EQ(GetVar(u"Setup", &Size, Data), EFI_DEVICE_ERROR);
}

TEST_F(EmulatorServices, PoolFailsTheKthAllocationAndAccountsEveryByte) {
  Fw.GetPool().FailAllocation(2);
  EFI_BOOT_SERVICES *Bs = Fw.BootServices();
  void *First = nullptr;
  void *Second = nullptr;
  void *Third = nullptr;
  EXPECT_EQ(Bs->AllocatePool(EfiBootServicesData, 100, &First), EFI_SUCCESS);
  EXPECT_EQ(Bs->AllocatePool(EfiBootServicesData, 200, &Second), EFI_OUT_OF_RESOURCES);
  EXPECT_EQ(Second, nullptr);
  EXPECT_EQ(Bs->AllocatePool(EfiBootServicesData, 300, &Third), EFI_SUCCESS);
  EXPECT_EQ(Bs->FreePool(First), EFI_SUCCESS);
  EXPECT_EQ(Bs->FreePool(First), EFI_INVALID_PARAMETER);  // already returned
  const qor::emu::PoolCounters &Counters = Fw.GetPool().Counters();
  EXPECT_EQ(Counters.Allocations, 2u);
  EXPECT_EQ(Counters.FailedAllocations, 1u);
  EXPECT_EQ(Counters.BadFrees, 1u);
  EXPECT_EQ(Counters.PeakBytesHeld, 400u);
  EXPECT_EQ(Counters.BytesHeld, 300u);
  EXPECT_EQ(Bs->FreePool(Third), EFI_SUCCESS);
}

TEST_F(EmulatorServices, InstallMultipleProtocolInterfacesPutsEveryPairOnOneHandle) {
  int A = 1;
  int B = 2;
  EFI_HANDLE Handle = nullptr;
  ASSERT_EQ(Fw.BootServices()->InstallMultipleProtocolInterfaces(&Handle, &kProtocolA, &A, &kProtocolB, &B, nullptr),
            EFI_SUCCESS);
  void *Found = nullptr;
  EXPECT_EQ(Fw.BootServices()->HandleProtocol(Handle, const_cast<EFI_GUID *>(&kProtocolB), &Found), EFI_SUCCESS);
  EXPECT_EQ(Found, &B);
  UINTN Count = 0;
  EFI_HANDLE *Handles = nullptr;
  ASSERT_EQ(Fw.BootServices()->LocateHandleBuffer(ByProtocol, const_cast<EFI_GUID *>(&kProtocolA), nullptr, &Count,
                                                  &Handles),
            EFI_SUCCESS);
  EXPECT_EQ(Count, 1u);
  EXPECT_EQ(Handles[0], Handle);
  Fw.BootServices()->FreePool(Handles);
}

TEST_F(EmulatorServices, CalculateCrc32IsTheStandardCrc) {
  char Check[] = "123456789";
  UINT32 Crc = 0;
  ASSERT_EQ(Fw.BootServices()->CalculateCrc32(Check, 9, &Crc), EFI_SUCCESS);
  EXPECT_EQ(Crc, 0xCBF43926u);
}

TEST_F(EmulatorServices, ResetSystemNeverReturnsAndIsRecorded) {
  std::jmp_buf Target;
  volatile bool Returned = false;
  Fw.ArmResetTarget(&Target);
  if (setjmp(Target) == 0) {
    Fw.RuntimeServices()->ResetSystem(EfiResetWarm, EFI_SUCCESS, 0, nullptr);
    Returned = true;
  }
  Fw.ArmResetTarget(nullptr);
  EXPECT_FALSE(Returned);
  ASSERT_EQ(Fw.Resets().size(), 1u);
  EXPECT_EQ(Fw.Resets()[0].Type, EfiResetWarm);
}

TEST(EmulatorBoots, ABootSequenceKeepsNonVolatileVariablesAndDropsVolatileOnes) {
  qor::emu::Board Board = qor::emu::ParseBoard(R"({
    "variables": [
      {"name": "Kept", "guid": "3A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9", "attributes": 7, "data": "01"},
      {"name": "Dropped", "guid": "3A1B2C3D-4E5F-6071-8293-A4B5C6D7E8F9", "attributes": 6, "data": "02"}
    ]})");
  auto Boots = qor::emu::RunBoots(Board, 2);
  ASSERT_EQ(Boots.size(), 2u);
  auto Names = [](const qor::emu::BootResult &Result) {
    std::vector<std::u16string> Out;
    for (const auto &Value : Result.VariablesAfter) {
      if (std::memcmp(&Value.Guid, &kVendor, sizeof(EFI_GUID)) == 0) Out.push_back(Value.Name);
    }
    return Out;
  };
  EXPECT_EQ(Names(Boots[0]), (std::vector<std::u16string>{u"Dropped", u"Kept"}));
  EXPECT_EQ(Names(Boots[1]), (std::vector<std::u16string>{u"Kept"}));
}

}  // namespace
