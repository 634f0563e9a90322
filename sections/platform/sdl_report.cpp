// SDL messages to the BMC: a typed field list packed behind a fixed header
// and submitted with one IPMI command.
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/guids.h"
#include "platform/memory_lib.h"
#include "platform/uefi_lib.h"
#include "platform/vendor_protocols.h"
#include "sections/platform/reset_sdl_report.h"

namespace {

// Header bytes that are not zero.
struct SDL_HEADER_BYTE {
  UINT8 Offset;
  UINT8 Value;
};
CONST SDL_HEADER_BYTE kSdlHeader[] = {
    {0, 0xA2}, {1, 0x63}, {2, 0x00}, {3, 0x02}, {4, 0xA8}, {5, 0xFF},
    {6, 0x00}, {7, 0x20}, {10, 0x02}, {12, 0x50}, {13, 0x01},
};

// The request size of the IPMI submission is one byte.
constexpr UINTN kIpmiMaxRequestSize = 0xFF;
constexpr UINTN kPointerSize = 8;

UINTN PackedSize(CONST UINT8 *Data) {
  UINT8 FieldCount = Data[1];
  UINTN Size = 2;
  for (UINT32 Field = 0; Field < FieldCount; Field++) Size += 2 + Data[2 + 2 * Field + 1];
  return Size;
}

// Packs the field list into Payload (PackedSize bytes): the leading byte,
// the count, then per field its type, length and value. A pointer-valued
// field has its flag cleared, in Data too. Fails on a null value pointer.
EFI_STATUS PackFieldList(UINT8 *Data, UINT8 *Payload) {
  UINT8 FieldCount = Data[1];
  CONST UINT8 *Value = Data + 2 + 2 * (UINTN)FieldCount;
  UINTN Out = 0;
  Payload[Out++] = Data[0];
  Payload[Out++] = FieldCount;
  for (UINT32 Field = 0; Field < FieldCount; Field++) {
    UINT8 *Descriptor = Data + 2 + 2 * Field;
    UINT8 Length = Descriptor[1];
    CONST UINT8 *Source = Value;
    if ((Descriptor[0] & QOR_SDL_TYPE_POINTER_VALUE) != 0) {
      Descriptor[0] &= (UINT8)~QOR_SDL_TYPE_POINTER_VALUE;
      QorCopyMem(&Source, Value, kPointerSize);
      Value += kPointerSize;
      if (Source == nullptr && Length != 0) return EFI_INVALID_PARAMETER;
    } else {
      Value += Length;
    }
    Payload[Out++] = Descriptor[0];
    Payload[Out++] = Length;
    QorCopyMem(Payload + Out, Source, Length);
    Out += Length;
  }
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS QorSdlReport(UINT8 *Data) {
  if (Data == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "DXE SdlReport EFI_INVALID_PARAMETER\n");
    return EFI_INVALID_PARAMETER;
  }
  UINTN PayloadSize = PackedSize(Data);
  if (PayloadSize > QOR_SDL_MAX_PAYLOAD_SIZE) {
    QorDebugPrint(DEBUG_ERROR, "DXE SdlReport: %u bytes of fields, at most %u fit\n", (UINT32)PayloadSize,
                  (UINT32)QOR_SDL_MAX_PAYLOAD_SIZE);
    return EFI_INVALID_PARAMETER;
  }

  UINT8 *Payload = (UINT8 *)QorAllocateZeroPool(PayloadSize);
  if (Payload == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "DXE SdlReport %r\n", EFI_OUT_OF_RESOURCES);
    return EFI_OUT_OF_RESOURCES;
  }
  EFI_STATUS Status = PackFieldList(Data, Payload);
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "DXE SdlReport: a pointer-valued field has no value\n");
    QorFreePool(Payload);
    return Status;
  }

  UINTN MessageSize = QOR_SDL_HEADER_SIZE + PayloadSize;
  UINT8 *Message = (UINT8 *)QorAllocateZeroPool(MessageSize);
  if (Message == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "DXE SdlReport %r\n", EFI_OUT_OF_RESOURCES);
    QorFreePool(Payload);
    return EFI_OUT_OF_RESOURCES;
  }
  for (CONST SDL_HEADER_BYTE &Byte : kSdlHeader) Message[Byte.Offset] = Byte.Value;
  QorCopyMem(Message + QOR_SDL_HEADER_SIZE, Payload, PayloadSize);
  Status = QorSendSdlMsgWorker(Message, MessageSize);

  QorFreePool(Message);
  QorFreePool(Payload);
  return Status;
}

EFI_STATUS QorSendSdlMsgWorker(UINT8 *Message, UINTN Size) {
  if (Message == nullptr || Size == 0) {
    QorDebugPrint(DEBUG_ERROR, "DXE SendSdlMsgWorker EFI_INVALID_PARAMETER\n");
    return EFI_INVALID_PARAMETER;
  }
  // A longer message would go out cut to its size modulo 256.
  if (Size > kIpmiMaxRequestSize) {
    QorDebugPrint(DEBUG_ERROR, "DXE SendSdlMsgWorker: message of %u bytes, at most %u fit one request\n",
                  (UINT32)Size, (UINT32)kIpmiMaxRequestSize);
    return EFI_BAD_BUFFER_SIZE;
  }
  QOR_IPMI_PROTOCOL *Ipmi = nullptr;
  EFI_STATUS Status = QorLocateProtocol(&gQorIpmiProtocolGuid, (VOID **)&Ipmi);
  if (EFI_ERROR(Status) || Ipmi == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Failed to locate qor ipmi protocol %r\n", Status);
    return EFI_ERROR(Status) ? Status : EFI_NOT_FOUND;
  }
  UINT8 Response[QOR_SDL_IPMI_RESPONSE_SIZE];
  UINT8 ResponseSize = sizeof(Response);
  Status = Ipmi->SubmitCommand(Ipmi, QOR_SDL_IPMI_NET_FUNCTION, QOR_SDL_IPMI_LUN, QOR_SDL_IPMI_COMMAND, Message,
                               (UINT8)Size, Response, &ResponseSize);
  QorDebugPrint(DEBUG_INFO, "DXE Send Sdl message status: %r\n", Status);
  return Status;
}
