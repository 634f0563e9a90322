// Size of a processor cache from its SMBIOS type 7 record.
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/uefi_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {
// More type 7 records than this is not a table but a loop.
constexpr UINTN kMaxCacheRecordsWalked = 0x10000;
}  // namespace

EFI_STATUS QorGetCacheSize(UINT16 Handle, UINT32 *SizeKb) {
  EFI_SMBIOS_PROTOCOL *Smbios = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gEfiSmbiosProtocolGuid, (VOID **)&Smbios);
  if (EFI_ERROR(Status) || Smbios == nullptr) return EFI_ERROR(Status) ? Status : EFI_NOT_FOUND;

  EFI_SMBIOS_HANDLE Cursor = SMBIOS_HANDLE_PI_RESERVED;
  for (UINTN Walked = 0; Walked < kMaxCacheRecordsWalked; Walked++) {
    EFI_SMBIOS_TYPE Type = SMBIOS_TYPE_CACHE_INFORMATION;
    EFI_SMBIOS_TABLE_HEADER *Record = nullptr;
    if (EFI_ERROR(Smbios->GetNext(Smbios, &Cursor, &Type, &Record, nullptr)) || Record == nullptr) break;
    if (Record->Handle != Handle) continue;
    UINT16 MaximumSize = QorSmbiosRead16(Record, SMBIOS_TYPE7_MAXIMUM_SIZE);
    UINT32 Size = MaximumSize & SMBIOS_CACHE_SIZE_MASK;
    if ((MaximumSize & SMBIOS_CACHE_SIZE_64K_GRANULARITY) != 0) Size *= 64;
    *SizeKb = Size;
    return EFI_SUCCESS;
  }
  QorDebugPrint(DEBUG_ERROR, "Failed to get cache smbios struct %u\n", (UINT32)Handle);
  return EFI_INVALID_PARAMETER;
}
