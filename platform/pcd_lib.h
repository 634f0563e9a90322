// Access to platform configuration values through the two PCD protocols.
// A missing protocol reads as 0 / NULL and a Set reports EFI_NOT_FOUND.
#ifndef QOR_PLATFORM_PCD_LIB_H_
#define QOR_PLATFORM_PCD_LIB_H_

#include "platform/uefi_base.h"

// Token numbers of the platform PCD database used by the driver.
#define QOR_PCD_TOKEN_SOCKET_COUNT 22
#define QOR_PCD_TOKEN_VMD_FW_VERSION_SWITCH 31
#define QOR_PCD_TOKEN_EXT_VERSION 36
#define QOR_PCD_TOKEN_HIDE_VERSION 37
#define QOR_PCD_TOKEN_INT_VERSION 39
#define QOR_PCD_TOKEN_CODE 44
#define QOR_PCD_TOKEN_EXT_VERSION_ALT 48
#define QOR_PCD_TOKEN_SATA_DRIVE_COUNT 351
// Bus partition: divisor (32-bit) and mode (3 or 15) that map buses to sockets.
#define QOR_PCD_TOKEN_BUS_PARTITION_DIVISOR 320
#define QOR_PCD_TOKEN_BUS_PARTITION_MODE 347
// Dynamic-ex tokens of the CustomerId token space.
#define QOR_PCD_EX_TOKEN_CUSTOMER_ID 2
#define QOR_PCD_EX_TOKEN_MAX_SATA 169

// Forgets the located protocols; called by the library constructors.
VOID QorPcdLibInit(VOID);

UINT8 QorPcdGet8(UINTN TokenNumber);
UINT32 QorPcdGet32(UINTN TokenNumber);
VOID *QorPcdGetPtr(UINTN TokenNumber);
EFI_STATUS QorPcdSet8(UINTN TokenNumber, UINT8 Value);
UINT8 QorPcdGet8Ex(CONST EFI_GUID *TokenSpace, UINTN TokenNumber);

// CustomerId: selects customer-specific behaviour.
UINT8 QorGetCustomerId(VOID);

#endif  // QOR_PLATFORM_PCD_LIB_H_
