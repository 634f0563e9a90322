#include "uefi/rig/serial_channel.h"

#include "platform/base_lib.h"
#include "platform/device_path_lib.h"
#include "platform/cpu_access.h"
#include "platform/guids.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"
#include "uefi/rig/rig_channel.h"

namespace {

// 16550 registers of the second serial port.
constexpr UINT16 kPortBase = 0x2F8;
constexpr UINT16 kTransmit = kPortBase + 0;      // THR (DLAB 0) / divisor low (DLAB 1)
constexpr UINT16 kInterruptEnable = kPortBase + 1;
constexpr UINT16 kFifoControl = kPortBase + 2;
constexpr UINT16 kLineControl = kPortBase + 3;
constexpr UINT16 kModemControl = kPortBase + 4;
constexpr UINT16 kLineStatus = kPortBase + 5;
constexpr UINT8 kTransmitHoldingEmpty = 0x20;
// A UART that never drains must not hang the boot: after this many polls
// the byte is written anyway (the emulated UART is always ready).
constexpr UINTN kMaxPolls = 100000;

UINT32 gCrcTable[256];
BOOLEAN gCrcTableReady = FALSE;

VOID BuildCrcTable() {
  for (UINT32 N = 0; N < 256; N++) {
    UINT32 C = N;
    for (int K = 0; K < 8; K++) C = (C & 1) ? 0xEDB88320U ^ (C >> 1) : C >> 1;
    gCrcTable[N] = C;
  }
  gCrcTableReady = TRUE;
}

// CRC-32 (IEEE 802.3, reflected), continued over several pieces: start with
// 0xFFFFFFFF, finish by inverting.
UINT32 CrcUpdate(UINT32 Crc, CONST VOID *Data, UINTN Length) {
  CONST UINT8 *Bytes = (CONST UINT8 *)Data;
  for (UINTN I = 0; I < Length; I++) Crc = gCrcTable[(Crc ^ Bytes[I]) & 0xFF] ^ (Crc >> 8);
  return Crc;
}

VOID PutByte(UINT8 Byte) {
  for (UINTN Poll = 0; Poll < kMaxPolls; Poll++) {
    if ((QorIoRead8(kLineStatus) & kTransmitHoldingEmpty) != 0) break;
  }
  QorIoWrite8(kTransmit, Byte);
}

VOID PutBytes(CONST VOID *Data, UINTN Length) {
  CONST UINT8 *Bytes = (CONST UINT8 *)Data;
  for (UINTN I = 0; I < Length; I++) PutByte(Bytes[I]);
}

VOID PutLittleEndian(UINT64 Value, UINTN Size, UINT8 *Out) {
  for (UINTN I = 0; I < Size; I++) Out[I] = (UINT8)(Value >> (8 * I));
}

VOID SendText(UINT8 Kind, CONST CHAR8 *Name, CONST CHAR8 *Format, VA_LIST Marker) {
  CHAR8 Text[512];
  UINTN Length = AsciiVSPrint(Text, sizeof(Text), Format, Marker);
  QorRigSendBytes(Kind, Name, Text, Length);
}

// The firmware's serial I/O instance of this port: its device path holds
// the ACPI node of the second 16550 (PNP0501, UID 1).
CONST EFI_GUID kSerialIoGuid = {0xBB25CF6F, 0xF1D4, 0x11D2, {0x9A, 0x0C, 0x00, 0x90, 0x27, 0x3F, 0xC1, 0xFD}};

BOOLEAN IsSecondUart(EFI_HANDLE Handle) {
  CONST EFI_DEVICE_PATH_PROTOCOL *Node = nullptr;
  if (EFI_ERROR(gBS->HandleProtocol(Handle, (EFI_GUID *)&gEfiDevicePathProtocolGuid, (VOID **)&Node))) return FALSE;
  for (; !QorIsDevicePathEnd(Node); Node = QorNextDevicePathNode(Node)) {
    if (Node->Type == ACPI_DEVICE_PATH && Node->SubType == ACPI_DP &&
        QorDevicePathNodeLength(Node) >= sizeof(ACPI_HID_DEVICE_PATH)) {
      CONST ACPI_HID_DEVICE_PATH *Acpi = (CONST ACPI_HID_DEVICE_PATH *)Node;
      if (Acpi->HID == EISA_PNP_ID(0x0501) && Acpi->UID == 1) return TRUE;
    }
  }
  return FALSE;
}

}  // namespace

BOOLEAN QorRigChannelClaim(VOID) {
  EFI_HANDLE *Handles = nullptr;
  UINTN Count = 0;
  BOOLEAN Released = FALSE;
  if (EFI_ERROR(gBS->LocateHandleBuffer(ByProtocol, (EFI_GUID *)&kSerialIoGuid, nullptr, &Count, &Handles))) {
    return FALSE;
  }
  for (UINTN I = 0; I < Count; I++) {
    if (IsSecondUart(Handles[I]) && !EFI_ERROR(gBS->DisconnectController(Handles[I], nullptr, nullptr))) {
      Released = TRUE;
    }
  }
  gBS->FreePool(Handles);
  return Released;
}

VOID QorRigChannelInit(VOID) {
  if (!gCrcTableReady) BuildCrcTable();
  QorIoWrite8(kInterruptEnable, 0x00);
  QorIoWrite8(kLineControl, 0x80);  // divisor latch: 115200 baud
  QorIoWrite8(kTransmit, 0x01);
  QorIoWrite8(kInterruptEnable, 0x00);
  QorIoWrite8(kLineControl, 0x03);  // 8 data bits, no parity, 1 stop bit
  QorIoWrite8(kFifoControl, 0x07);
  QorIoWrite8(kModemControl, 0x03);
}

VOID QorRigSendFrame(UINT8 Kind, CONST CHAR8 *Name, CONST QOR_RIG_PIECE *Pieces, UINTN PieceCount) {
  if (!gCrcTableReady) BuildCrcTable();
  UINTN NameLength = QorAsciiStrnLen(Name, 0xFFFF);
  UINT64 DataLength = 0;
  for (UINTN I = 0; I < PieceCount; I++) DataLength += Pieces[I].Length;
  if (DataLength > QOR_RIG_FRAME_MAX_DATA) return;

  UINT8 Header[QOR_RIG_FRAME_HEADER_SIZE];
  QorCopyMem(Header, QOR_RIG_FRAME_MAGIC, 4);
  Header[4] = Kind;
  Header[5] = 0;
  PutLittleEndian(NameLength, 2, Header + 6);
  PutLittleEndian(DataLength, 4, Header + 8);

  UINT32 Crc = CrcUpdate(0xFFFFFFFFU, Header + 4, QOR_RIG_FRAME_HEADER_SIZE - 4);
  Crc = CrcUpdate(Crc, Name, NameLength);
  for (UINTN I = 0; I < PieceCount; I++) Crc = CrcUpdate(Crc, Pieces[I].Data, Pieces[I].Length);
  UINT8 Trailer[QOR_RIG_FRAME_TRAILER_SIZE];
  PutLittleEndian(Crc ^ 0xFFFFFFFFU, 4, Trailer);

  // Raising is only allowed upwards: a caller already above TPL_NOTIFY
  // keeps its level.
  EFI_TPL Current = gBS->RaiseTPL(TPL_HIGH_LEVEL);
  gBS->RestoreTPL(Current);
  BOOLEAN Raised = Current < TPL_NOTIFY;
  if (Raised) gBS->RaiseTPL(TPL_NOTIFY);
  PutBytes(Header, sizeof(Header));
  PutBytes(Name, NameLength);
  for (UINTN I = 0; I < PieceCount; I++) PutBytes(Pieces[I].Data, Pieces[I].Length);
  PutBytes(Trailer, sizeof(Trailer));
  if (Raised) gBS->RestoreTPL(Current);
}

VOID QorRigSendBytes(UINT8 Kind, CONST CHAR8 *Name, CONST VOID *Data, UINTN Length) {
  QOR_RIG_PIECE Piece = {Data, Length};
  QorRigSendFrame(Kind, Name, &Piece, 1);
}

VOID EFIAPI QorRigReport(CONST CHAR8 *Key, CONST CHAR8 *Format, ...) {
  VA_LIST Marker;
  VA_START(Marker, Format);
  SendText(QOR_RIG_FRAME_REPORT, Key, Format, Marker);
  VA_END(Marker);
}

VOID EFIAPI QorRigWarn(CONST CHAR8 *Format, ...) {
  VA_LIST Marker;
  VA_START(Marker, Format);
  SendText(QOR_RIG_FRAME_WARNING, "", Format, Marker);
  VA_END(Marker);
}
