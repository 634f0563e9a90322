// Trimming of SMBIOS texts: module vendors pad part and serial numbers with
// blanks to the field width.
#include "platform/base_lib.h"
#include "sections/cpu_memory/cpu_memory.h"

namespace {
BOOLEAN IsBlank(CHAR8 Character) { return Character == ' ' || Character == '\t'; }
}  // namespace

VOID QorTrimBlanks(CHAR8 *Text) {
  if (Text == nullptr) return;
  UINTN Length = QorAsciiStrLen(Text);
  while (Length > 0 && IsBlank(Text[Length - 1])) Length--;
  Text[Length] = '\0';
  UINTN Start = 0;
  while (Start < Length && IsBlank(Text[Start])) Start++;
  if (Start == 0) return;
  for (UINTN I = Start; I <= Length; I++) Text[I - Start] = Text[I];
}
