// MemoryMap section: a snapshot of the UEFI memory map through
// gBS->GetMemoryMap, turned into a JSON tree of the listed descriptors
// ("Count", "MemoryMap") and the bytes held by each memory type ("Summary").
//
// Behaviour the BMC side relies on, kept deliberately:
// - the list and the summary name types differently (type 12 is listed as
//   "MemoryMappedIOPortSpace" and summed as "MemoryMappedIOPort"), and the
//   UnusableMemory total is computed but never reported;
// - the attribute key is spelled "Attritudes";
// - types above EfiPersistentMemory are not listed but count in TotalMemory;
// - the snapshot buffer is not returned to the pool (one snapshot per boot).
#include "pci_resources/memory_map.h"

#include "core/section_fillers.h"
#include "json/json_tree.h"
#include "platform/base_lib.h"
#include "platform/debug_log.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"
#include "platform/uefi_lib.h"

namespace {

constexpr UINT32 kListedTypeCount = EfiPersistentMemory + 1;
constexpr UINTN kPageShift = 12;
// Room left for the pool allocations that change the map between the size
// query and the read.
constexpr UINTN kMapSlack = 1024;

struct MEM_TYPE_LIST_ENTRY {
  CONST CHAR8 *Name;  // "Type" of a listed entry
  BOOLEAN InTotal;    // counted in "TotalMemory"
};

// Indexed by EFI_MEMORY_TYPE.
CONST MEM_TYPE_LIST_ENTRY kMemTypeList[kListedTypeCount] = {
    {"Reserved", FALSE},
    {"LoaderCode", TRUE},
    {"LoaderData", TRUE},
    {"BootServiceCode", TRUE},
    {"BootServiceData", TRUE},
    {"RuntimeCode", TRUE},
    {"RuntimeData", TRUE},
    {"Available", TRUE},
    {"UnusableMemory", FALSE},
    {"ACPIReclaimMemory", TRUE},
    {"ACPIMemoryNVS", TRUE},
    {"MemoryMappedIO", FALSE},
    {"MemoryMappedIOPortSpace", FALSE},
    {"PalCode", TRUE},
    {"Persistent", TRUE},
};

struct MEM_TYPE_SUMMARY_ENTRY {
  CONST CHAR8 *Key;  // member of "Summary"
  UINT32 Type;
};

// "Summary" members in document order; EfiUnusableMemory has none.
CONST MEM_TYPE_SUMMARY_ENTRY kMemTypeSummary[] = {
    {"Reserved", EfiReservedMemoryType},
    {"LoaderCode", EfiLoaderCode},
    {"LoaderData", EfiLoaderData},
    {"BootServiceCode", EfiBootServicesCode},
    {"BootServiceData", EfiBootServicesData},
    {"RuntimeCode", EfiRuntimeServicesCode},
    {"RuntimeData", EfiRuntimeServicesData},
    {"ACPIReclaimMemory", EfiACPIReclaimMemory},
    {"ACPIMemoryNVS", EfiACPIMemoryNVS},
    {"MemoryMappedIO", EfiMemoryMappedIO},
    {"MemoryMappedIOPort", EfiMemoryMappedIOPortSpace},
    {"PalCode", EfiPalCode},
    {"Available", EfiConventionalMemory},
    {"Persistent", EfiPersistentMemory},
};

// The list of one filler run.
MEM_MAP_INFO *mMemMapList = nullptr;
UINTN mMemMapCount = 0;

// Page counters of the snapshot being walked, and the byte totals of the
// last successful walk (kept until the next one).
UINT64 mTypePages[kListedTypeCount];
UINT64 mTotalPages = 0;
UINT64 mTypeBytes[kListedTypeCount];
UINT64 mTotalMemoryBytes = 0;

// The type name in UCS-2 for the "%s" of the list log line.
VOID ToWideName(CONST CHAR8 *Name, CHAR16 *Wide, UINTN WideCount) {
  UINTN I = 0;
  for (; Name != nullptr && Name[I] != '\0' && I + 1 < WideCount; I++) Wide[I] = (CHAR16)(UINT8)Name[I];
  Wide[I] = 0;
}

// Adds Key: "0x<Value in hex>" to Object.
BOOLEAN AddHexMember(JSON_NODE *Object, CONST CHAR8 *Key, UINT64 Value) {
  CHAR8 Text[24];
  AsciiSPrint(Text, sizeof(Text), "0x%llx", Value);
  return !EFI_ERROR(JsonAddItemToObject(Object, Key, JsonCreateString(Text)));
}

JSON_NODE *BuildEntry(CONST MEM_MAP_INFO *Item) {
  JSON_NODE *Entry = JsonCreateObject();
  BOOLEAN Complete = Entry != nullptr;
  Complete = Complete && AddHexMember(Entry, "StartAddress", Item->StartAddress);
  Complete = Complete && AddHexMember(Entry, "EndAddress", Item->EndAddress);
  Complete = Complete && !EFI_ERROR(JsonAddItemToObject(Entry, "Type", JsonCreateString(Item->Type)));
  Complete = Complete && AddHexMember(Entry, "Pages", Item->Pages);
  Complete = Complete && AddHexMember(Entry, "Attritudes", Item->Attribute);
  if (!Complete) {
    JsonDelete(Entry);
    return nullptr;
  }
  return Entry;
}

JSON_NODE *BuildSummary(VOID) {
  JSON_NODE *Summary = JsonCreateObject();
  BOOLEAN Complete = Summary != nullptr;
  for (CONST MEM_TYPE_SUMMARY_ENTRY &Row : kMemTypeSummary) {
    Complete = Complete && AddHexMember(Summary, Row.Key, mTypeBytes[Row.Type]);
  }
  Complete = Complete && AddHexMember(Summary, "TotalMemory", mTotalMemoryBytes);
  if (!Complete) {
    JsonDelete(Summary);
    return nullptr;
  }
  return Summary;
}

// The whole document, or null when the pool ran out on the way (a document
// with members missing is never printed).
JSON_NODE *BuildMemMapDocument(VOID) {
  JSON_NODE *Root = JsonCreateObject();
  if (Root == nullptr) return nullptr;
  BOOLEAN Complete = !EFI_ERROR(JsonAddItemToObject(Root, "Count", JsonCreateNumber((INT64)mMemMapCount)));
  JSON_NODE *List = Complete ? JsonCreateArray() : nullptr;
  for (UINTN I = 0; List != nullptr && I < mMemMapCount; I++) {
    if (EFI_ERROR(JsonAddItemToArray(List, BuildEntry(&mMemMapList[I])))) {
      JsonDelete(List);
      List = nullptr;
    }
  }
  Complete = Complete && !EFI_ERROR(JsonAddItemToObject(Root, "MemoryMap", List));
  Complete = Complete && !EFI_ERROR(JsonAddItemToObject(Root, "Summary", BuildSummary()));
  if (!Complete) {
    JsonDelete(Root);
    return nullptr;
  }
  return Root;
}

VOID CountDescriptor(CONST EFI_MEMORY_DESCRIPTOR *Descriptor) {
  if (Descriptor->Type >= kListedTypeCount) {
    mTotalPages += Descriptor->NumberOfPages;
    return;
  }
  CONST MEM_TYPE_LIST_ENTRY &Type = kMemTypeList[Descriptor->Type];
  QorAddMemMapItemToList(Descriptor->PhysicalStart,
                         Descriptor->PhysicalStart + (Descriptor->NumberOfPages << kPageShift) - 1, Type.Name,
                         Descriptor->NumberOfPages, Descriptor->Attribute);
  mTypePages[Descriptor->Type] += Descriptor->NumberOfPages;
  if (Type.InTotal) mTotalPages += Descriptor->NumberOfPages;
}

}  // namespace

EFI_STATUS QorAddMemMapItemToList(UINT64 StartAddress, UINT64 EndAddress, CONST CHAR8 *TypeName, UINT64 Pages,
                                  UINT64 Attribute) {
  MEM_MAP_INFO *Grown = (MEM_MAP_INFO *)QorAllocateZeroPool((mMemMapCount + 1) * sizeof(MEM_MAP_INFO));
  if (Grown == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "%a: Failed to allocate memory for new memory map info.\n", "QorAddMemMapItemToList");
    return EFI_OUT_OF_RESOURCES;
  }
  MEM_MAP_INFO *Item = &Grown[mMemMapCount];
  Item->StartAddress = StartAddress;
  Item->EndAddress = EndAddress;
  Item->Type = TypeName;
  Item->Pages = Pages;
  Item->Attribute = Attribute;

  CHAR16 WideName[32];
  ToWideName(TypeName, WideName, sizeof(WideName) / sizeof(WideName[0]));
  QorDebugPrint(DEBUG_VERBOSE, "%a: Add new item to list: % -23s %016LX-%016LX %016LX %016LX\n",
                "QorAddMemMapItemToList", WideName, StartAddress, EndAddress, Pages, Attribute);

  if (mMemMapCount != 0) QorCopyMem(Grown, mMemMapList, mMemMapCount * sizeof(MEM_MAP_INFO));
  QorFreePool(mMemMapList);
  mMemMapList = Grown;
  mMemMapCount++;
  return EFI_SUCCESS;
}

EFI_STATUS QorCollectMemMap(VOID) {
  QorZeroMem(mTypePages, sizeof(mTypePages));
  mTotalPages = 0;

  UINTN MapSize = 0;
  UINTN MapKey = 0;
  UINTN DescriptorSize = 0;
  UINT32 DescriptorVersion = 0;
  UINT8 *Map = nullptr;
  UINTN BufferSize = 0;
  EFI_STATUS Status = gBS->GetMemoryMap(&MapSize, nullptr, &MapKey, &DescriptorSize, &DescriptorVersion);
  if (Status == EFI_BUFFER_TOO_SMALL) {
    MapSize += kMapSlack;
    BufferSize = MapSize;
    Map = (UINT8 *)QorAllocateZeroPool(BufferSize);
    Status = gBS->GetMemoryMap(&MapSize, (EFI_MEMORY_DESCRIPTOR *)Map, &MapKey, &DescriptorSize, &DescriptorVersion);
  }
  if (EFI_ERROR(Status)) {
    QorDebugPrint(DEBUG_ERROR, "%a: GetMemoryMap failed %r.\n", "QorCollectMemMap", Status);
    QorFreePool(Map);
    return Status;
  }
  if (DescriptorSize < sizeof(EFI_MEMORY_DESCRIPTOR)) {
    QorDebugPrint(DEBUG_ERROR, "%a: descriptor size %lu is below %lu, map not read.\n", "QorCollectMemMap",
                  (UINT64)DescriptorSize, (UINT64)sizeof(EFI_MEMORY_DESCRIPTOR));
    QorFreePool(Map);
    return EFI_INCOMPATIBLE_VERSION;
  }

  // Walk by the firmware's descriptor size, which may exceed the structure;
  // never past the buffer, whatever size the firmware reported.
  UINTN MapEnd = MapSize < BufferSize ? MapSize : BufferSize;
  for (UINTN Offset = 0; MapEnd - Offset >= sizeof(EFI_MEMORY_DESCRIPTOR);) {
    EFI_MEMORY_DESCRIPTOR Descriptor;
    QorCopyMem(&Descriptor, Map + Offset, sizeof(Descriptor));  // descriptors need not be aligned
    CountDescriptor(&Descriptor);
    if (MapEnd - Offset < DescriptorSize) break;
    Offset += DescriptorSize;
  }

  for (UINT32 Type = 0; Type < kListedTypeCount; Type++) mTypeBytes[Type] = mTypePages[Type] << kPageShift;
  mTotalMemoryBytes = mTotalPages << kPageShift;
  // Map stays allocated: one snapshot per boot.
  return EFI_SUCCESS;
}

EFI_STATUS QorFillMemoryMap(UPLOAD_SECTION *Section) {
  mMemMapList = nullptr;
  mMemMapCount = 0;
  QorCollectMemMap();

  JSON_NODE *Root = BuildMemMapDocument();
  CHAR8 *Text = Root != nullptr ? JsonPrint(Root, TRUE) : nullptr;
  if (Text == nullptr) {
    QorDebugPrint(DEBUG_ERROR, "%a: out of resources building the document.\n", "QorFillMemoryMap");
  } else {
    UINTN Length = QorAsciiStrLen(Text);
    if (Section->Buffer == nullptr) {
      QorDebugPrint(DEBUG_ERROR,
                    "%a: the section has no buffer (its allocation failed), document of %lu bytes dropped.\n",
                    "QorFillMemoryMap", (UINT64)Length);
    } else if (Length < Section->MaxSize) {
      QorCopyMem(Section->Buffer, Text, Length);
      Section->Length = Length;
    } else {
      QorDebugPrint(DEBUG_ERROR, "%a: document of %lu bytes does not fit the section (%lu bytes).\n",
                    "QorFillMemoryMap", (UINT64)Length, Section->MaxSize);
    }
  }
  QorFreePool(Text);
  JsonDelete(Root);
  QorFreePool(mMemMapList);
  mMemMapList = nullptr;
  mMemMapCount = 0;
  return QorSetSectionFilled(Section->Index);
}
