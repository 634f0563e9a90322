// Layout of the system topology data (a platform protocol whose interface
// is the data itself): one record per socket.
#ifndef QOR_PLATFORM_SYSTEM_TOPOLOGY_H_
#define QOR_PLATFORM_SYSTEM_TOPOLOGY_H_

#define QOR_TOPOLOGY_SOCKET_VALID_OFFSET 1508
#define QOR_TOPOLOGY_SOCKET_CHOP_TYPE_OFFSET 1509
#define QOR_TOPOLOGY_SOCKET_STRIDE 922
#define QOR_TOPOLOGY_MAX_SOCKETS 4
#define QOR_TOPOLOGY_DATA_SIZE (QOR_TOPOLOGY_SOCKET_VALID_OFFSET + QOR_TOPOLOGY_SOCKET_STRIDE * QOR_TOPOLOGY_MAX_SOCKETS)

#include "platform/uefi_base.h"

// Locates the system topology data; without the protocol an equivalent
// block with no valid socket is used. Called by the library constructors.
VOID QorSystemTopologyLibInit(VOID);
CONST UINT8 *QorSystemTopologyData(VOID);

#endif  // QOR_PLATFORM_SYSTEM_TOPOLOGY_H_
