// A tree of JSON values in pool memory, and its printer. The PcieResource,
// MemoryMap and PcieTopology sections are too nested to write key by key, so
// their fillers build a tree, print it and copy the text into their buffer.
//
// The tree needs no floating point: a number is an integer part, fraction
// digits and a decimal exponent, each printed as an integer (so leading zeros
// of a fraction cannot be expressed).
#ifndef QOR_JSON_JSON_TREE_H_
#define QOR_JSON_JSON_TREE_H_

#include "platform/uefi_base.h"

// Node kinds, in the low byte of JSON_NODE.Kind.
enum JSON_NODE_KIND : UINT32 {
  JsonKindFalse = 0,
  JsonKindTrue = 1,
  JsonKindNull = 2,
  JsonKindNumber = 3,
  JsonKindString = 4,
  JsonKindArray = 5,
  JsonKindObject = 6,
};
#define JSON_KIND_MASK 0xFFU

// Flags above the kind.
enum JSON_NODE_FLAG : UINT32 {
  IsReference = 0x100,  // Child and ValueString belong to someone else
  KeyIsConst = 0x200,   // Key belongs to someone else
};

struct JSON_NODE {
  JSON_NODE *Next;       // next sibling, null for the last
  JSON_NODE *Prev;       // previous sibling
  JSON_NODE *Child;      // first child of an array or object
  UINT32 Kind;           // JSON_NODE_KIND in the low byte, JSON_NODE_FLAG above
  UINT32 NumberMark;     // set to 1 by JsonCreateNumber; the printer ignores it
  UINT32 IsRawNumber;    // string node: 1 prints the text as a bare number
  CHAR8 *ValueString;    // text of a string node, owned unless IsReference
  INT64 Integer;         // number: integer part
  UINT32 Fraction;       // number: fraction digits, printed as a decimal integer
  INT32 Exponent;        // number: decimal exponent
  CHAR8 *Key;            // member name inside an object, owned unless KeyIsConst
};

// Output of the buffered printing mode: one growing pool buffer.
struct PRINT_BUFFER {
  CHAR8 *Buffer;
  INT32 Size;
  INT32 Offset;
};

// The deepest nesting the printer follows; a deeper tree prints as none.
// The driver's own trees are a few levels deep; the bound keeps a runaway
// tree from exhausting the firmware stack.
#define JSON_PRINT_MAX_DEPTH 128

// Creation. Each returns a zero-filled node from pool, or null when the pool
// is exhausted.
JSON_NODE *JsonNewNode(VOID);
JSON_NODE *JsonCreateObject(VOID);
JSON_NODE *JsonCreateArray(VOID);
// A string node holding a copy of Text (of "" when Text is null).
JSON_NODE *JsonCreateString(CONST CHAR8 *Text);
// A number node: Integer = Value, no fraction, no exponent.
JSON_NODE *JsonCreateNumber(INT64 Value);

// Linking. Item is appended as the last child. The call always takes Item
// over: when it cannot be linked (no container, or no pool for the key copy)
// Item is deleted and an error returned, so a caller never leaks a node.
// A null Item is ignored (EFI_INVALID_PARAMETER).
EFI_STATUS JsonAddItemToObject(JSON_NODE *Object, CONST CHAR8 *Key, JSON_NODE *Item);
EFI_STATUS JsonAddItemToArray(JSON_NODE *Array, JSON_NODE *Item);

// Frees Node and every sibling after it with everything they own.
VOID JsonDelete(JSON_NODE *Node);

// Prints Root at depth 0 into a new pool text (free it with QorFreePool), or
// returns null when the pool runs out or the tree is malformed (unknown kind,
// nesting beyond JSON_PRINT_MAX_DEPTH). Formatted output puts each object
// member on its own line, indented by tabs; arrays stay on one line.
CHAR8 *JsonPrint(JSON_NODE *Root, BOOLEAN Formatted);

// The same text produced in buffered mode: one buffer of InitialSize bytes
// (at least 1) that grows to powers of two as needed. Returns the buffer
// (free it with QorFreePool) or null on failure.
CHAR8 *JsonPrintBuffered(JSON_NODE *Root, INT32 InitialSize, BOOLEAN Formatted);

// Makes room for Needed more bytes at the buffer's offset and returns that
// position. A buffer too small grows to the next power of two not below
// Offset + Needed, keeping its content; if that allocation fails the buffer
// is freed, Buffer and Size are reset and null is returned.
CHAR8 *JsonEnsurePrintBuffer(PRINT_BUFFER *Print, INT32 Needed);

#endif  // QOR_JSON_JSON_TREE_H_
