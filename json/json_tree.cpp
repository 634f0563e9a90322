// Creating, linking and freeing JSON_NODE trees. Every node and text comes
// from boot-services pool, zero-filled.
#include "json/json_tree.h"

#include "platform/base_lib.h"
#include "platform/memory_lib.h"

namespace {

CHAR8 *CopyText(CONST CHAR8 *Text) {
  UINTN Length = QorAsciiStrLen(Text);
  CHAR8 *Copy = (CHAR8 *)QorAllocateZeroPool(Length + 1);
  if (Copy != nullptr && Length != 0) QorCopyMem(Copy, Text, Length);
  return Copy;
}

JSON_NODE *CreateNode(UINT32 Kind) {
  JSON_NODE *Node = JsonNewNode();
  if (Node != nullptr) Node->Kind = Kind;
  return Node;
}

// Appends Item (and any siblings it brings) at the end of Container's
// children. The first child's Prev, which has no previous sibling to hold,
// remembers the last child, so that an append does not walk the whole list:
// a section appends thousands of items to one array, and the walks would
// grow with the square of the list. Nothing reads a first child's Prev; the
// walk goes on from it, so a list linked by hand still ends right.
VOID AppendChild(JSON_NODE *Container, JSON_NODE *Item) {
  JSON_NODE *First = Container->Child;
  if (First == nullptr) {
    Container->Child = First = Item;
  } else {
    JSON_NODE *Last = First->Prev != nullptr ? First->Prev : First;
    while (Last->Next != nullptr) Last = Last->Next;
    Last->Next = Item;
    Item->Prev = Last;
  }
  JSON_NODE *End = Item;
  while (End->Next != nullptr) End = End->Next;
  First->Prev = End;
}

}  // namespace

JSON_NODE *JsonNewNode(VOID) { return (JSON_NODE *)QorAllocateZeroPool(sizeof(JSON_NODE)); }

JSON_NODE *JsonCreateObject(VOID) { return CreateNode(JsonKindObject); }

JSON_NODE *JsonCreateArray(VOID) { return CreateNode(JsonKindArray); }

JSON_NODE *JsonCreateString(CONST CHAR8 *Text) {
  JSON_NODE *Node = CreateNode(JsonKindString);
  if (Node == nullptr) return nullptr;
  Node->ValueString = CopyText(Text != nullptr ? Text : "");
  if (Node->ValueString == nullptr) {
    QorFreePool(Node);
    return nullptr;
  }
  return Node;
}

JSON_NODE *JsonCreateNumber(INT64 Value) {
  JSON_NODE *Node = CreateNode(JsonKindNumber);
  if (Node == nullptr) return nullptr;
  Node->NumberMark = 1;
  Node->Integer = Value;
  Node->Fraction = 0;
  Node->Exponent = 0;
  return Node;
}

EFI_STATUS JsonAddItemToObject(JSON_NODE *Object, CONST CHAR8 *Key, JSON_NODE *Item) {
  if (Item == nullptr) return EFI_INVALID_PARAMETER;
  if (Object == nullptr) {
    JsonDelete(Item);
    return EFI_INVALID_PARAMETER;
  }
  CHAR8 *KeyCopy = nullptr;
  if (Key != nullptr) {
    KeyCopy = CopyText(Key);
    if (KeyCopy == nullptr) {
      JsonDelete(Item);
      return EFI_OUT_OF_RESOURCES;
    }
  }
  if ((Item->Kind & KeyIsConst) == 0) QorFreePool(Item->Key);
  Item->Key = KeyCopy;
  Item->Kind &= ~(UINT32)KeyIsConst;
  AppendChild(Object, Item);
  return EFI_SUCCESS;
}

EFI_STATUS JsonAddItemToArray(JSON_NODE *Array, JSON_NODE *Item) {
  if (Item == nullptr) return EFI_INVALID_PARAMETER;
  if (Array == nullptr) {
    JsonDelete(Item);
    return EFI_INVALID_PARAMETER;
  }
  AppendChild(Array, Item);
  return EFI_SUCCESS;
}

// Walks without recursion: the owned children of a node are spliced in
// front of its remaining siblings before the node is freed, so any depth
// is freed in constant stack.
VOID JsonDelete(JSON_NODE *Node) {
  while (Node != nullptr) {
    JSON_NODE *Next = Node->Next;
    if ((Node->Kind & IsReference) == 0) {
      if (Node->Child != nullptr) {
        JSON_NODE *LastChild = Node->Child;
        while (LastChild->Next != nullptr) LastChild = LastChild->Next;
        LastChild->Next = Next;
        Next = Node->Child;
      }
      QorFreePool(Node->ValueString);
    }
    if ((Node->Kind & KeyIsConst) == 0) QorFreePool(Node->Key);
    QorFreePool(Node);
    Node = Next;
  }
}
