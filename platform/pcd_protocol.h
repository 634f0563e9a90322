// The two PCD access protocols: the EDK2 PCD_PROTOCOL (token numbers of the
// platform database) and the PI EFI_PCD_PROTOCOL (tokens by token space).
// Member order follows their published definitions.
#ifndef QOR_PLATFORM_PCD_PROTOCOL_H_
#define QOR_PLATFORM_PCD_PROTOCOL_H_

#include "platform/uefi_base.h"

typedef VOID(EFIAPI *PCD_PROTOCOL_CALLBACK)(CONST EFI_GUID *CallBackGuid, UINTN CallBackToken, VOID *TokenData,
                                            UINTN TokenDataSize);

typedef struct {
  VOID(EFIAPI *SetSku)(UINTN SkuId);
  UINT8(EFIAPI *Get8)(UINTN TokenNumber);
  UINT16(EFIAPI *Get16)(UINTN TokenNumber);
  UINT32(EFIAPI *Get32)(UINTN TokenNumber);
  UINT64(EFIAPI *Get64)(UINTN TokenNumber);
  VOID *(EFIAPI *GetPtr)(UINTN TokenNumber);
  BOOLEAN(EFIAPI *GetBool)(UINTN TokenNumber);
  UINTN(EFIAPI *GetSize)(UINTN TokenNumber);
  UINT8(EFIAPI *Get8Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINT16(EFIAPI *Get16Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINT32(EFIAPI *Get32Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINT64(EFIAPI *Get64Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  VOID *(EFIAPI *GetPtrEx)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  BOOLEAN(EFIAPI *GetBoolEx)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINTN(EFIAPI *GetSizeEx)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  EFI_STATUS(EFIAPI *Set8)(UINTN TokenNumber, UINT8 Value);
  EFI_STATUS(EFIAPI *Set16)(UINTN TokenNumber, UINT16 Value);
  EFI_STATUS(EFIAPI *Set32)(UINTN TokenNumber, UINT32 Value);
  EFI_STATUS(EFIAPI *Set64)(UINTN TokenNumber, UINT64 Value);
  EFI_STATUS(EFIAPI *SetPtr)(UINTN TokenNumber, UINTN *SizeOfBuffer, VOID *Buffer);
  EFI_STATUS(EFIAPI *SetBool)(UINTN TokenNumber, BOOLEAN Value);
  EFI_STATUS(EFIAPI *Set8Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT8 Value);
  EFI_STATUS(EFIAPI *Set16Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT16 Value);
  EFI_STATUS(EFIAPI *Set32Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT32 Value);
  EFI_STATUS(EFIAPI *Set64Ex)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT64 Value);
  EFI_STATUS(EFIAPI *SetPtrEx)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINTN *SizeOfBuffer, VOID *Buffer);
  EFI_STATUS(EFIAPI *SetBoolEx)(CONST EFI_GUID *Guid, UINTN TokenNumber, BOOLEAN Value);
  EFI_STATUS(EFIAPI *CallbackOnSet)(CONST EFI_GUID *Guid, UINTN TokenNumber, PCD_PROTOCOL_CALLBACK CallBackFunction);
  EFI_STATUS(EFIAPI *CancelCallback)(CONST EFI_GUID *Guid, UINTN TokenNumber, PCD_PROTOCOL_CALLBACK CallBackFunction);
  EFI_STATUS(EFIAPI *GetNextToken)(CONST EFI_GUID *Guid, UINTN *TokenNumber);
  EFI_STATUS(EFIAPI *GetNextTokenSpace)(CONST EFI_GUID **Guid);
} PCD_PROTOCOL;

typedef VOID(EFIAPI *EFI_PCD_PROTOCOL_CALLBACK)(CONST EFI_GUID *Guid, UINTN CallBackToken, VOID *TokenData,
                                                UINTN TokenDataSize);

typedef struct {
  VOID(EFIAPI *SetSku)(UINTN SkuId);
  UINT8(EFIAPI *Get8)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINT16(EFIAPI *Get16)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINT32(EFIAPI *Get32)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINT64(EFIAPI *Get64)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  VOID *(EFIAPI *GetPtr)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  BOOLEAN(EFIAPI *GetBool)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  UINTN(EFIAPI *GetSize)(CONST EFI_GUID *Guid, UINTN TokenNumber);
  EFI_STATUS(EFIAPI *Set8)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT8 Value);
  EFI_STATUS(EFIAPI *Set16)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT16 Value);
  EFI_STATUS(EFIAPI *Set32)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT32 Value);
  EFI_STATUS(EFIAPI *Set64)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINT64 Value);
  EFI_STATUS(EFIAPI *SetPtr)(CONST EFI_GUID *Guid, UINTN TokenNumber, UINTN *SizeOfValue, VOID *Buffer);
  EFI_STATUS(EFIAPI *SetBool)(CONST EFI_GUID *Guid, UINTN TokenNumber, BOOLEAN Value);
  EFI_STATUS(EFIAPI *CallbackOnSet)(CONST EFI_GUID *Guid, UINTN TokenNumber,
                                    EFI_PCD_PROTOCOL_CALLBACK CallBackFunction);
  EFI_STATUS(EFIAPI *CancelCallback)(CONST EFI_GUID *Guid, UINTN TokenNumber,
                                     EFI_PCD_PROTOCOL_CALLBACK CallBackFunction);
  EFI_STATUS(EFIAPI *GetNextToken)(CONST EFI_GUID *Guid, UINTN *TokenNumber);
  EFI_STATUS(EFIAPI *GetNextTokenSpace)(CONST EFI_GUID **Guid);
} EFI_PCD_PROTOCOL;

static_assert(offsetof(PCD_PROTOCOL, GetPtr) == 5 * 8, "PCD_PROTOCOL.GetPtr");
static_assert(offsetof(PCD_PROTOCOL, Set8) == 15 * 8, "PCD_PROTOCOL.Set8");
static_assert(offsetof(EFI_PCD_PROTOCOL, Get8) == 1 * 8, "EFI_PCD_PROTOCOL.Get8");
static_assert(offsetof(EFI_PCD_PROTOCOL, Set8) == 8 * 8, "EFI_PCD_PROTOCOL.Set8");

#endif  // QOR_PLATFORM_PCD_PROTOCOL_H_
