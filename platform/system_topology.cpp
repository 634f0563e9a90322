#include "platform/system_topology.h"

#include "platform/guids.h"
#include "platform/uefi_lib.h"

namespace {
// Stand-in when the platform publishes no topology: no socket is valid.
UINT8 gEmptyTopology[QOR_TOPOLOGY_DATA_SIZE];
CONST UINT8 *gTopology = gEmptyTopology;
}  // namespace

VOID QorSystemTopologyLibInit(VOID) {
  VOID *Interface = nullptr;
  gTopology = gEmptyTopology;
  if (!EFI_ERROR(QorLocateProtocol(&gQorSystemTopologyDataGuid, &Interface)) && Interface != nullptr) {
    gTopology = (CONST UINT8 *)Interface;
  }
}

CONST UINT8 *QorSystemTopologyData(VOID) { return gTopology; }
