// Members of the tree-built sections: every value but a count is a string
// printed from a number, and a finished tree is printed into a section.
#ifndef QOR_JSON_JSON_MEMBERS_H_
#define QOR_JSON_JSON_MEMBERS_H_

#include "core/upload_section.h"
#include "json/json_tree.h"

// Adds Key with the string Format gives (at most 63 characters). FALSE when
// the pool ran out (the member is then missing).
BOOLEAN EFIAPI JsonAddFormatted(JSON_NODE *Object, CONST CHAR8 *Key, CONST CHAR8 *Format, ...);
// Adds Key with a copy of Text.
BOOLEAN JsonAddText(JSON_NODE *Object, CONST CHAR8 *Key, CONST CHAR8 *Text);

// Prints Root formatted; when the text is strictly shorter than the
// section's MaxSize it is copied (no terminator) and becomes the section's
// Length, otherwise the buffer stays as it was. Frees the text and the tree.
VOID QorPrintTreeIntoSection(UPLOAD_SECTION *Section, JSON_NODE *Root);

#endif  // QOR_JSON_JSON_MEMBERS_H_
