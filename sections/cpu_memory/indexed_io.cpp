// Index/data port access: the index is latched through two byte ports and
// the data port then returns the selected byte.
#include "sections/cpu_memory/indexed_io.h"

#include "platform/cpu_access.h"
#include "platform/debug_log.h"
#include "platform/indexed_io_ports.h"

EFI_STATUS QorReadIndexedIo(UINT16 Index, UINT8 *Byte) {
  if (Byte == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "Input null pointer.");
    return EFI_INVALID_PARAMETER;
  }
  QorIoWrite8(QOR_INDEXED_IO_INDEX_LOW_PORT, (UINT8)(Index & 0xFF));
  QorIoWrite8(QOR_INDEXED_IO_INDEX_HIGH_PORT, (UINT8)(Index >> 8));
  *Byte = QorIoRead8(QOR_INDEXED_IO_DATA_PORT);
  return EFI_SUCCESS;
}
