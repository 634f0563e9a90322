// TpmInfo section: the TPM settings of the platform's setup configuration
// plus one live probe of the TPM interface.
#include "core/section_fillers.h"
#include "json/text_appender.h"
#include "platform/base_lib.h"
#include "platform/cpu_access.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/tpm_setup.h"
#include "platform/uefi_lib.h"

namespace {

// Where a member's value comes from.
enum TPM_MEMBER_SOURCE : UINT8 {
  TpmFromSetup,      // one byte of "Setup" at the offset in Argument
  TpmConstant,       // Argument itself
  TpmPcrBanks,       // the PCR bank mask
  TpmDevicePresent,  // 1 when the probe found a device
};

struct TPM_MEMBER {
  CONST CHAR8 *Key;
  TPM_MEMBER_SOURCE Source;
  UINT16 Argument;
};

// Member order of the section.
CONST TPM_MEMBER kTpmMembers[] = {
    {"TpmSupport", TpmFromSetup, QOR_SETUP_TPM_SUPPORT},
    {"TpmEnable", TpmFromSetup, QOR_SETUP_TPM_ENABLE},
    {"TpmAuthenticate", TpmFromSetup, QOR_SETUP_TPM_AUTHENTICATE},
    {"TpmOperation", TpmFromSetup, QOR_SETUP_TPM_OPERATION},
    {"DisallowTpm", TpmConstant, 0},
    {"Tcg2SpecVersion", TpmFromSetup, QOR_SETUP_TCG2_SPEC_VERSION},
    {"DeviceType", TpmFromSetup, QOR_SETUP_DEVICE_TYPE},
    {"TpmHardware", TpmConstant, 1},
    {"TpmEnaDisable", TpmFromSetup, QOR_SETUP_TPM_ENA_DISABLE},
    {"TpmActDeact", TpmFromSetup, QOR_SETUP_TPM_ACT_DEACT},
    {"TpmOwnedUnowned", TpmFromSetup, QOR_SETUP_TPM_OWNED_UNOWNED},
    {"TcgSupportEnabled", TpmFromSetup, QOR_SETUP_TCG_SUPPORT_ENABLED},
    {"TcmSupportEnabled", TpmFromSetup, QOR_SETUP_TCM_SUPPORT_ENABLED},
    {"TpmError", TpmFromSetup, QOR_SETUP_TPM_ERROR},
    {"PpiSetupSyncFlag", TpmConstant, 0},
    {"Reserved3", TpmFromSetup, QOR_SETUP_RESERVED3},
    {"Reserved4", TpmConstant, 0},
    {"Reserved5", TpmConstant, 0},
    {"Tpm20Device", TpmFromSetup, QOR_SETUP_TPM20_DEVICE},
    {"EndorsementHierarchy", TpmFromSetup, QOR_SETUP_ENDORSEMENT_HIERARCHY},
    {"StorageHierarchy", TpmFromSetup, QOR_SETUP_STORAGE_HIERARCHY},
    {"PlatformHierarchy", TpmFromSetup, QOR_SETUP_PLATFORM_HIERARCHY},
    {"InterfaceSel", TpmFromSetup, QOR_SETUP_INTERFACE_SEL},
    {"PcrBanks", TpmPcrBanks, 0},
    {"DevicePresent", TpmDevicePresent, 0},
    {"QorTpmTcmDeviceType", TpmFromSetup, QOR_SETUP_TPM_TCM_DEVICE_TYPE},
};

UINT32 PcrBankMask(CONST UINT8 *Setup) {
  UINT32 Mask = 0;
  for (UINT32 Bank = 0; Bank < QOR_SETUP_PCR_BANK_COUNT; Bank++) {
    Mask |= Setup[QOR_SETUP_PCR_BANK_FIRST + Bank] & (1U << Bank);
  }
  return Mask;
}

}  // namespace

EFI_STATUS QorFillTpmInfo(UPLOAD_SECTION *Section) {
  // A variable shorter than the buffer leaves the rest of it zero.
  UINT8 Setup[QOR_SETUP_VARIABLE_READ_SIZE];
  QorZeroMem(Setup, sizeof(Setup));

  QorDebugPrint(DEBUG_INFO, "QorFillTpmInfo ---start\n");
  UINTN DataSize = sizeof(Setup);
  EFI_STATUS Status =
      gRT->GetVariable((CHAR16 *)u"Setup", (EFI_GUID *)&gQorSetupVariableGuid, nullptr, &DataSize, Setup);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_INFO, "Get Setup Variable Error,Status=%r\n", Status);
    return Status;
  }

  UINT8 Probe = QorMmioRead8(QOR_TPM_ACCESS_REGISTER_ADDRESS);
  UINT32 PcrBanks = PcrBankMask(Setup);

  QOR_TEXT_WRITER W;
  QorWriterInit(&W, Section->Buffer, Section->MaxSize);
  QorWriterAppend(&W, "{");
  for (CONST TPM_MEMBER &Member : kTpmMembers) {
    UINT32 Value = 0;
    switch (Member.Source) {
      case TpmFromSetup: Value = Setup[Member.Argument]; break;
      case TpmConstant: Value = Member.Argument; break;
      case TpmPcrBanks: Value = PcrBanks; break;
      case TpmDevicePresent: Value = Probe != QOR_TPM_NO_DEVICE ? 1 : 0; break;
    }
    QorWriterAppend(&W, QOR_FMT_KEY_U32, Member.Key, Value);
  }
  QorWriterDropComma(&W);
  QorWriterAppend(&W, "}");
  return QorFinishSection(Section, W.Length);
}
