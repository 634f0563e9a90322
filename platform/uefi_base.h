// Base types, status codes and calling convention of the UEFI environment.
// Written from the UEFI specification; used by the driver and the host emulator.
#ifndef QOR_PLATFORM_UEFI_BASE_H_
#define QOR_PLATFORM_UEFI_BASE_H_

#include <stdint.h>
#include <stddef.h>

#if defined(_WIN32) || defined(__MINGW32__) || defined(QOR_FIRMWARE_BUILD)
// The firmware image is built for the Microsoft x64 convention natively.
#define EFIAPI
typedef __builtin_va_list VA_LIST;
#define VA_START(Marker, Parameter) __builtin_va_start(Marker, Parameter)
#define VA_ARG(Marker, TYPE) __builtin_va_arg(Marker, TYPE)
#define VA_END(Marker) __builtin_va_end(Marker)
#define VA_COPY(Dest, Start) __builtin_va_copy(Dest, Start)
#else
// On the Linux host every firmware interface still uses the Microsoft x64
// convention, so tables built by the emulator and the driver agree.
#define EFIAPI __attribute__((ms_abi))
typedef __builtin_ms_va_list VA_LIST;
#define VA_START(Marker, Parameter) __builtin_ms_va_start(Marker, Parameter)
#define VA_ARG(Marker, TYPE) __builtin_va_arg(Marker, TYPE)
#define VA_END(Marker) __builtin_ms_va_end(Marker)
#define VA_COPY(Dest, Start) __builtin_ms_va_copy(Dest, Start)
#endif

typedef uint8_t BOOLEAN;
typedef int8_t INT8;
typedef uint8_t UINT8;
typedef int16_t INT16;
typedef uint16_t UINT16;
typedef int32_t INT32;
typedef uint32_t UINT32;
typedef int64_t INT64;
typedef uint64_t UINT64;
typedef int64_t INTN;
typedef uint64_t UINTN;
typedef char CHAR8;
typedef char16_t CHAR16;
typedef void VOID;

#define CONST const
#define IN
#define OUT
#define OPTIONAL
#define TRUE ((BOOLEAN)1)
#define FALSE ((BOOLEAN)0)
#define NULL_PTR nullptr

typedef UINTN EFI_STATUS;
typedef UINTN RETURN_STATUS;
typedef VOID *EFI_HANDLE;
typedef VOID *EFI_EVENT;
typedef UINTN EFI_TPL;
typedef UINT64 EFI_PHYSICAL_ADDRESS;
typedef UINT64 EFI_VIRTUAL_ADDRESS;
typedef UINT64 EFI_LBA;

typedef struct {
  UINT32 Data1;
  UINT16 Data2;
  UINT16 Data3;
  UINT8 Data4[8];
} EFI_GUID;
static_assert(sizeof(EFI_GUID) == 16, "EFI_GUID is 16 bytes");

#define MAX_BIT 0x8000000000000000ULL
#define ENCODE_ERROR(Code) ((EFI_STATUS)(MAX_BIT | (Code)))
#define ENCODE_WARNING(Code) ((EFI_STATUS)(Code))
#define EFI_ERROR(Status) (((INTN)(EFI_STATUS)(Status)) < 0)

#define EFI_SUCCESS 0ULL
#define EFI_LOAD_ERROR ENCODE_ERROR(1)
#define EFI_INVALID_PARAMETER ENCODE_ERROR(2)
#define EFI_UNSUPPORTED ENCODE_ERROR(3)
#define EFI_BAD_BUFFER_SIZE ENCODE_ERROR(4)
#define EFI_BUFFER_TOO_SMALL ENCODE_ERROR(5)
#define EFI_NOT_READY ENCODE_ERROR(6)
#define EFI_DEVICE_ERROR ENCODE_ERROR(7)
#define EFI_WRITE_PROTECTED ENCODE_ERROR(8)
#define EFI_OUT_OF_RESOURCES ENCODE_ERROR(9)
#define EFI_VOLUME_CORRUPTED ENCODE_ERROR(10)
#define EFI_VOLUME_FULL ENCODE_ERROR(11)
#define EFI_NO_MEDIA ENCODE_ERROR(12)
#define EFI_MEDIA_CHANGED ENCODE_ERROR(13)
#define EFI_NOT_FOUND ENCODE_ERROR(14)
#define EFI_ACCESS_DENIED ENCODE_ERROR(15)
#define EFI_NO_RESPONSE ENCODE_ERROR(16)
#define EFI_NO_MAPPING ENCODE_ERROR(17)
#define EFI_TIMEOUT ENCODE_ERROR(18)
#define EFI_NOT_STARTED ENCODE_ERROR(19)
#define EFI_ALREADY_STARTED ENCODE_ERROR(20)
#define EFI_ABORTED ENCODE_ERROR(21)
#define EFI_ICMP_ERROR ENCODE_ERROR(22)
#define EFI_TFTP_ERROR ENCODE_ERROR(23)
#define EFI_PROTOCOL_ERROR ENCODE_ERROR(24)
#define EFI_INCOMPATIBLE_VERSION ENCODE_ERROR(25)
#define EFI_SECURITY_VIOLATION ENCODE_ERROR(26)
#define EFI_CRC_ERROR ENCODE_ERROR(27)
#define EFI_END_OF_MEDIA ENCODE_ERROR(28)
#define EFI_END_OF_FILE ENCODE_ERROR(31)
#define EFI_INVALID_LANGUAGE ENCODE_ERROR(32)
#define EFI_COMPROMISED_DATA ENCODE_ERROR(33)
#define EFI_IP_ADDRESS_CONFLICT ENCODE_ERROR(34)
#define EFI_HTTP_ERROR ENCODE_ERROR(35)

#define EFI_WARN_UNKNOWN_GLYPH ENCODE_WARNING(1)
#define EFI_WARN_DELETE_FAILURE ENCODE_WARNING(2)
#define EFI_WARN_WRITE_FAILURE ENCODE_WARNING(3)
#define EFI_WARN_BUFFER_TOO_SMALL ENCODE_WARNING(4)
#define EFI_WARN_STALE_DATA ENCODE_WARNING(5)
#define EFI_WARN_FILE_SYSTEM ENCODE_WARNING(6)
#define EFI_WARN_RESET_REQUIRED ENCODE_WARNING(7)

// Task priority levels.
#define TPL_APPLICATION 4
#define TPL_CALLBACK 8
#define TPL_NOTIFY 16
#define TPL_HIGH_LEVEL 31

#endif  // QOR_PLATFORM_UEFI_BASE_H_
