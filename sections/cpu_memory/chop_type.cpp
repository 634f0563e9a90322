// Chop type of a socket from the system topology data.
#include "platform/system_topology.h"
#include "sections/cpu_memory/cpu_memory.h"

UINT8 QorGetChopType(UINT32 Socket) {
  if (Socket >= QOR_TOPOLOGY_MAX_SOCKETS) return 255;
  CONST UINT8 *Data = QorSystemTopologyData();
  if (Data[QOR_TOPOLOGY_SOCKET_VALID_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * Socket] != 1) return 255;
  return Data[QOR_TOPOLOGY_SOCKET_CHOP_TYPE_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * Socket];
}
