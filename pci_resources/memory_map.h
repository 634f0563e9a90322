// The MemoryMap section: the UEFI memory map as the firmware holds it when
// the section's filler runs, one entry per descriptor, with per-type byte
// totals. The filler itself (QorFillMemoryMap) is declared with the others
// in core/section_fillers.h.
#ifndef QOR_PCI_RESOURCES_MEMORY_MAP_H_
#define QOR_PCI_RESOURCES_MEMORY_MAP_H_

#include "platform/uefi_base.h"

// One listed memory descriptor.
struct MEM_MAP_INFO {
  UINT64 StartAddress;  // PhysicalStart
  UINT64 EndAddress;    // last byte: PhysicalStart + NumberOfPages * 4096 - 1
  CONST CHAR8 *Type;    // list name of the memory type (a constant, not a copy)
  UINT64 Pages;         // NumberOfPages
  UINT64 Attribute;
};

// Takes a snapshot of the memory map, lists every descriptor of a type up to
// EfiPersistentMemory and recomputes the per-type byte totals. On a failed
// GetMemoryMap the list stays empty and the totals keep their last values.
EFI_STATUS QorCollectMemMap(VOID);

// Appends one item to the memory-map list; without pool the item is dropped
// (EFI_OUT_OF_RESOURCES).
EFI_STATUS QorAddMemMapItemToList(UINT64 StartAddress, UINT64 EndAddress, CONST CHAR8 *TypeName, UINT64 Pages,
                                  UINT64 Attribute);

#endif  // QOR_PCI_RESOURCES_MEMORY_MAP_H_
