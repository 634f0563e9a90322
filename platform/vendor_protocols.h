// Platform protocols produced by other drivers of the board. Each is a table
// of 8-byte members; only the members this driver calls are named, the rest
// are kept as opaque slots so every named member sits at its index.
#ifndef QOR_PLATFORM_VENDOR_PROTOCOLS_H_
#define QOR_PLATFORM_VENDOR_PROTOCOLS_H_

#include "platform/uefi_base.h"

// Debug print service: a leading 64-bit revision, then members 1 to 3.
#define QOR_DEBUG_PRINT_MODULE_REVISION 0x10000ULL
typedef VOID(EFIAPI *QOR_DEBUG_PRINT)(UINTN ErrorLevel, CONST CHAR8 *Format, VA_LIST Marker);
typedef VOID(EFIAPI *QOR_DEBUG_PRINT_WITH_MODULE)(UINTN ErrorLevel, CONST CHAR8 *ModuleName, CONST CHAR8 *Format,
                                                  VA_LIST Marker);
typedef struct {
  UINT64 Revision;                            // index 0
  QOR_DEBUG_PRINT DebugPrint;                 // index 1
  VOID *Member2;                              // index 2
  QOR_DEBUG_PRINT_WITH_MODULE DebugPrintModule;  // index 3
} QOR_DEBUG_PRINT_SERVICE;
static_assert(offsetof(QOR_DEBUG_PRINT_SERVICE, DebugPrintModule) == 3 * 8, "debug print member 3");

// json protocol: members 13 (PrettyPrint) and 14 (Validate).
struct QOR_JSON_PROTOCOL;
typedef EFI_STATUS(EFIAPI *QOR_JSON_PRETTY_PRINT)(QOR_JSON_PROTOCOL *This, CONST CHAR8 *Input, UINTN OutputSize,
                                                  CHAR8 *Output);
typedef EFI_STATUS(EFIAPI *QOR_JSON_VALIDATE)(QOR_JSON_PROTOCOL *This, CONST CHAR8 *Text);
struct QOR_JSON_PROTOCOL {
  VOID *Members0To12[13];
  QOR_JSON_PRETTY_PRINT PrettyPrint;  // index 13
  QOR_JSON_VALIDATE Validate;         // index 14
};
static_assert(offsetof(QOR_JSON_PROTOCOL, PrettyPrint) == 13 * 8, "json PrettyPrint");
static_assert(offsetof(QOR_JSON_PROTOCOL, Validate) == 14 * 8, "json Validate");

// quick trans protocol: member 3 sends a file to the BMC; it takes no
// interface pointer.
typedef EFI_STATUS(EFIAPI *QOR_QUICK_TRANS_SEND_FILE)(CONST CHAR8 *FileName, UINTN Reserved, UINT32 DataSize,
                                                      VOID *Data);
typedef struct {
  VOID *Members0To2[3];
  QOR_QUICK_TRANS_SEND_FILE SendFile;  // index 3
} QOR_QUICK_TRANS_PROTOCOL;
static_assert(offsetof(QOR_QUICK_TRANS_PROTOCOL, SendFile) == 3 * 8, "quick trans SendFile");

// Spi protocol: member 5 reads the flash identification bytes.
struct QOR_SPI_PROTOCOL;
typedef EFI_STATUS(EFIAPI *QOR_SPI_READ_ID)(QOR_SPI_PROTOCOL *This, UINTN Selector, UINTN Size, VOID *Buffer);
struct QOR_SPI_PROTOCOL {
  VOID *Members0To4[5];
  QOR_SPI_READ_ID ReadId;  // index 5
};
static_assert(offsetof(QOR_SPI_PROTOCOL, ReadId) == 5 * 8, "spi ReadId");

// qor ipmi protocol: member 2 submits one IPMI command.
struct QOR_IPMI_PROTOCOL;
typedef EFI_STATUS(EFIAPI *QOR_IPMI_SUBMIT_COMMAND)(QOR_IPMI_PROTOCOL *This, UINT8 NetFunction, UINT8 Lun,
                                                    UINT8 Command, UINT8 *RequestData, UINT8 RequestDataSize,
                                                    UINT8 *ResponseData, UINT8 *ResponseDataSize);
struct QOR_IPMI_PROTOCOL {
  VOID *Members0To1[2];
  QOR_IPMI_SUBMIT_COMMAND SubmitCommand;  // index 2
};
static_assert(offsetof(QOR_IPMI_PROTOCOL, SubmitCommand) == 2 * 8, "ipmi SubmitCommand");

// Protocols whose first member points to a platform data block.
typedef struct {
  VOID *DataBlock;
} QOR_SYSTEM_INFORMATION_PROTOCOL;

typedef struct {
  VOID *IioData;
} QOR_IIO_SYS_PROTOCOL;

typedef struct {
  VOID *PowerData;
} QOR_CPU_POWER_PROTOCOL;

// CPU CSR access protocol: member 1 reads a processor configuration
// register of a socket and box instance.
typedef UINT32(EFIAPI *QOR_CPU_CSR_READ)(UINT8 Socket, UINT8 BoxInstance, UINT32 RegisterAddress);
typedef struct {
  VOID *Member0;
  QOR_CPU_CSR_READ ReadCpuCsr;  // index 1
} QOR_CPU_CSR_ACCESS_PROTOCOL;
static_assert(offsetof(QOR_CPU_CSR_ACCESS_PROTOCOL, ReadCpuCsr) == 8, "CSR access member 1");

#endif  // QOR_PLATFORM_VENDOR_PROTOCOLS_H_
