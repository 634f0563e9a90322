// Writes the rig's frames (rig_channel.h) to the second serial port of the
// machine, a 16550 UART at I/O port 0x2F8. The first port carries the
// firmware's own console, so the two never mix.
#ifndef QOR_UEFI_RIG_SERIAL_CHANNEL_H_
#define QOR_UEFI_RIG_SERIAL_CHANNEL_H_

#include "platform/uefi_base.h"

typedef struct {
  CONST VOID *Data;
  UINTN Length;
} QOR_RIG_PIECE;

// The firmware puts a console terminal on every serial port it finds; the
// terminal above this port is disconnected so that no console text lands
// between frames. TRUE when a terminal was released.
BOOLEAN QorRigChannelClaim(VOID);
// Sets the UART to 8 data bits, no parity, FIFO on.
VOID QorRigChannelInit(VOID);

// One frame whose data is the pieces one after another. Frames never
// interleave: the TPL is raised while one is written.
VOID QorRigSendFrame(UINT8 Kind, CONST CHAR8 *Name, CONST QOR_RIG_PIECE *Pieces, UINTN PieceCount);

// Helpers for the common shapes.
VOID QorRigSendBytes(UINT8 Kind, CONST CHAR8 *Name, CONST VOID *Data, UINTN Length);
// A boot-report value as text: QorRigReport("entryStatus", "%r", Status).
VOID EFIAPI QorRigReport(CONST CHAR8 *Key, CONST CHAR8 *Format, ...);
// A problem of the rig itself.
VOID EFIAPI QorRigWarn(CONST CHAR8 *Format, ...);

#endif  // QOR_UEFI_RIG_SERIAL_CHANNEL_H_
