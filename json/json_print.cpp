// Printing a JSON_NODE tree into text, in two modes that write the same
// characters: unbuffered (every value into its own pool text, joined by its
// container) and buffered (everything into one PRINT_BUFFER that grows to
// powers of two). Formatted output breaks objects into lines indented by
// tabs; arrays always stay on one line.
//
// Kept on purpose:
// - a number prints its fraction digits as a decimal integer, so 3.05 cannot
//   be expressed (it would print as 3.5);
// - a control character other than \b \t \n \f \r is escaped with a print
//   limited to 4 bytes, which lands only "u00" and a terminator, so the
//   printed string ends there; the section then fails validation and is
//   uploaded as "{}" instead of carrying a damaged string.
#include "json/json_tree.h"
#include "platform/base_lib.h"
#include "platform/memory_lib.h"
#include "platform/print_lib.h"

namespace {

// Buffered mode never grows past this, so the power-of-two size stays a
// positive INT32.
constexpr INT32 kPrintBufferLimit = 0x40000000;

constexpr UINTN kIntegerTextSize = 21;  // "-9223372036854775808" and a terminator
constexpr UINTN kNumberTextSize = 64;

CHAR8 *PrintValue(JSON_NODE *Node, INT32 Depth, BOOLEAN Formatted, PRINT_BUFFER *Print);

// Room for Size bytes: a fresh zero-filled pool text (unbuffered) or the
// buffer at its offset (buffered).
CHAR8 *Reserve(PRINT_BUFFER *Print, UINTN Size) {
  if (Print == nullptr) return (CHAR8 *)QorAllocateZeroPool(Size);
  if (Size > (UINTN)kPrintBufferLimit) return JsonEnsurePrintBuffer(Print, -1);
  return JsonEnsurePrintBuffer(Print, (INT32)Size);
}

// Buffered mode: moves the offset over the text last written there. The
// length is that of the terminated text, so a string cut by an escape moves
// the offset only to the cut.
VOID Advance(PRINT_BUFFER *Print) {
  Print->Offset += (INT32)QorAsciiStrnLen(Print->Buffer + Print->Offset, (UINTN)(Print->Size - Print->Offset));
}

CHAR8 *PrintLiteral(CONST CHAR8 *Text, PRINT_BUFFER *Print) {
  UINTN Length = QorAsciiStrLen(Text);
  CHAR8 *Out = Reserve(Print, Length + 1);
  if (Out == nullptr) return nullptr;
  QorCopyMem(Out, Text, Length);
  Out[Length] = '\0';
  return Out;
}

CHAR8 *PrintNumber(CONST JSON_NODE *Node, PRINT_BUFFER *Print) {
  if (Node->Fraction == 0 && Node->Exponent == 0) {
    if (Node->Integer == 0) return PrintLiteral("0", Print);
    CHAR8 *Out = Reserve(Print, kIntegerTextSize);
    if (Out != nullptr) AsciiSPrint(Out, kIntegerTextSize, "%ld", Node->Integer);
    return Out;
  }
  CHAR8 *Out = Reserve(Print, kNumberTextSize);
  if (Out == nullptr) return nullptr;
  if (Node->Exponent == 0) {
    AsciiSPrint(Out, kNumberTextSize, "%ld.%d", Node->Integer, Node->Fraction);
  } else if (Node->Fraction == 0) {
    AsciiSPrint(Out, kNumberTextSize, "%ldE%d", Node->Integer, Node->Exponent);
  } else {
    AsciiSPrint(Out, kNumberTextSize, "%ld.%dE%d", Node->Integer, Node->Fraction, Node->Exponent);
  }
  return Out;
}

BOOLEAN IsNumberCharacter(CHAR8 Character) {
  return (Character >= '0' && Character <= '9') || Character == '-' || Character == '.' || Character == 'E' ||
         Character == 'e';
}

// A string node flagged IsRawNumber: its text unquoted when it looks like a
// number, else 0.
CHAR8 *PrintRawNumber(CONST CHAR8 *Text, PRINT_BUFFER *Print) {
  if (Text == nullptr) Text = "";
  for (CONST CHAR8 *P = Text; *P != '\0'; P++) {
    if (!IsNumberCharacter(*P)) return PrintLiteral("0", Print);
  }
  return PrintLiteral(Text, Print);
}

BOOLEAN NeedsEscape(UINT8 Character) { return Character < 0x20 || Character == '"' || Character == '\\'; }

// Escapes with one letter after the backslash.
BOOLEAN IsShortEscape(UINT8 Character) {
  return Character == '"' || Character == '\\' || Character == '\b' || Character == '\f' || Character == '\n' ||
         Character == '\r' || Character == '\t';
}

CHAR8 ShortEscapeLetter(UINT8 Character) {
  switch (Character) {
    case '\b': return 'b';
    case '\f': return 'f';
    case '\n': return 'n';
    case '\r': return 'r';
    case '\t': return 't';
    default: return (CHAR8)Character;  // '"' and '\\' stand for themselves
  }
}

// A string in double quotes (values and keys alike); null prints as "".
CHAR8 *PrintString(CONST CHAR8 *Text, PRINT_BUFFER *Print) {
  if (Text == nullptr) return PrintLiteral("\"\"", Print);
  UINTN Length = 0;
  BOOLEAN Escaped = FALSE;
  for (CONST CHAR8 *P = Text; *P != '\0'; P++, Length++) {
    if (NeedsEscape((UINT8)*P)) Escaped = TRUE;
  }
  if (!Escaped) {
    CHAR8 *Out = Reserve(Print, Length + 3);
    if (Out == nullptr) return nullptr;
    Out[0] = '"';
    QorCopyMem(Out + 1, Text, Length);
    Out[Length + 1] = '"';
    Out[Length + 2] = '\0';
    return Out;
  }

  UINTN Size = 0;
  for (CONST CHAR8 *P = Text; *P != '\0'; P++) {
    UINT8 Character = (UINT8)*P;
    Size++;
    if (IsShortEscape(Character)) {
      Size++;
    } else if (Character < 0x20) {
      Size += 5;
    }
  }
  CHAR8 *Out = Reserve(Print, Size + 3);
  if (Out == nullptr) return nullptr;
  CHAR8 *Write = Out;
  *Write++ = '"';
  for (CONST CHAR8 *P = Text; *P != '\0'; P++) {
    UINT8 Character = (UINT8)*P;
    if (!NeedsEscape(Character)) {
      *Write++ = (CHAR8)Character;
      continue;
    }
    *Write++ = '\\';
    if (IsShortEscape(Character)) {
      *Write++ = ShortEscapeLetter(Character);
    } else {
      // Only "u00" and the terminator fit the limit of 4; the write position
      // still moves past the full five-character escape.
      AsciiSPrint(Write, 4, "u%04x", (UINT32)Character);
      Write += 5;
    }
  }
  *Write++ = '"';
  *Write = '\0';
  return Out;
}

UINTN CountChildren(CONST JSON_NODE *Node) {
  UINTN Count = 0;
  for (CONST JSON_NODE *Child = Node->Child; Child != nullptr; Child = Child->Next) Count++;
  return Count;
}

VOID FreeTexts(CHAR8 **Texts, UINTN Count) {
  if (Texts == nullptr) return;
  for (UINTN I = 0; I < Count; I++) QorFreePool(Texts[I]);
  QorFreePool(Texts);
}

CHAR8 *Append(CHAR8 *Write, CONST CHAR8 *Text, UINTN Length) {
  QorCopyMem(Write, Text, Length);
  return Write + Length;
}

CHAR8 *AppendTabs(CHAR8 *Write, INT32 Count) {
  for (INT32 I = 0; I < Count; I++) *Write++ = '\t';
  return Write;
}

// ---------------------------------------------------------------- unbuffered

CHAR8 *PrintArrayJoined(JSON_NODE *Node, INT32 Depth, BOOLEAN Formatted) {
  UINTN Count = CountChildren(Node);
  if (Count == 0) return PrintLiteral("[]", nullptr);
  CHAR8 **Entries = (CHAR8 **)QorAllocateZeroPool(Count * sizeof(CHAR8 *));
  if (Entries == nullptr) return nullptr;
  UINTN SeparatorLength = Formatted ? 2 : 1;
  UINTN Size = 3;  // brackets and terminator
  UINTN Index = 0;
  for (JSON_NODE *Child = Node->Child; Child != nullptr; Child = Child->Next, Index++) {
    Entries[Index] = PrintValue(Child, Depth + 1, Formatted, nullptr);
    if (Entries[Index] == nullptr) {
      FreeTexts(Entries, Count);
      return nullptr;
    }
    Size += QorAsciiStrLen(Entries[Index]) + SeparatorLength;
  }
  CHAR8 *Out = (CHAR8 *)QorAllocateZeroPool(Size);
  if (Out != nullptr) {
    CHAR8 *Write = Out;
    *Write++ = '[';
    for (UINTN I = 0; I < Count; I++) {
      Write = Append(Write, Entries[I], QorAsciiStrLen(Entries[I]));
      if (I + 1 < Count) Write = Append(Write, ", ", SeparatorLength);
    }
    *Write++ = ']';
    *Write = '\0';
  }
  FreeTexts(Entries, Count);
  return Out;
}

CHAR8 *PrintEmptyObject(INT32 Depth, BOOLEAN Formatted, PRINT_BUFFER *Print) {
  CHAR8 *Out = Reserve(Print, Formatted ? (UINTN)Depth + 4 : 3);
  if (Out == nullptr) return nullptr;
  CHAR8 *Write = Out;
  *Write++ = '{';
  if (Formatted) {
    *Write++ = '\n';
    Write = AppendTabs(Write, Depth - 1);
  }
  *Write++ = '}';
  *Write = '\0';
  return Out;
}

CHAR8 *PrintObjectJoined(JSON_NODE *Node, INT32 Depth, BOOLEAN Formatted) {
  UINTN Count = CountChildren(Node);
  if (Count == 0) return PrintEmptyObject(Depth, Formatted, nullptr);
  CHAR8 **Names = (CHAR8 **)QorAllocateZeroPool(Count * sizeof(CHAR8 *));
  CHAR8 **Values = (CHAR8 **)QorAllocateZeroPool(Count * sizeof(CHAR8 *));
  if (Names == nullptr || Values == nullptr) {
    QorFreePool(Names);
    QorFreePool(Values);
    return nullptr;
  }
  INT32 Inner = Depth + 1;
  UINTN Size = Formatted ? (UINTN)Depth + 8 : 7;
  UINTN Index = 0;
  for (JSON_NODE *Child = Node->Child; Child != nullptr; Child = Child->Next, Index++) {
    Names[Index] = PrintString(Child->Key, nullptr);
    Values[Index] = Names[Index] != nullptr ? PrintValue(Child, Inner, Formatted, nullptr) : nullptr;
    if (Values[Index] == nullptr) {
      FreeTexts(Names, Count);
      FreeTexts(Values, Count);
      return nullptr;
    }
    Size += QorAsciiStrLen(Names[Index]) + QorAsciiStrLen(Values[Index]) + 2;
    if (Formatted) Size += (UINTN)Depth + 3;
  }
  CHAR8 *Out = (CHAR8 *)QorAllocateZeroPool(Size);
  if (Out != nullptr) {
    CHAR8 *Write = Out;
    *Write++ = '{';
    if (Formatted) *Write++ = '\n';
    for (UINTN I = 0; I < Count; I++) {
      if (Formatted) Write = AppendTabs(Write, Inner);
      Write = Append(Write, Names[I], QorAsciiStrLen(Names[I]));
      *Write++ = ':';
      if (Formatted) *Write++ = '\t';
      Write = Append(Write, Values[I], QorAsciiStrLen(Values[I]));
      if (I + 1 < Count) *Write++ = ',';
      if (Formatted) *Write++ = '\n';
    }
    if (Formatted) Write = AppendTabs(Write, Depth);
    *Write++ = '}';
    *Write = '\0';
  }
  FreeTexts(Names, Count);
  FreeTexts(Values, Count);
  return Out;
}

// ---------------------------------------------------------------- buffered
// A container writes its opening and inner text, advancing the offset, and
// leaves its closing bracket at the offset for the caller to advance over,
// exactly as a leaf value is left.

// Writes Text at the offset and advances over it.
BOOLEAN PutText(PRINT_BUFFER *Print, CONST CHAR8 *Text, UINTN Length) {
  CHAR8 *Out = Reserve(Print, Length + 1);
  if (Out == nullptr) return FALSE;
  QorCopyMem(Out, Text, Length);
  Out[Length] = '\0';
  Print->Offset += (INT32)Length;
  return TRUE;
}

BOOLEAN PutTabs(PRINT_BUFFER *Print, INT32 Count) {
  CHAR8 *Out = Reserve(Print, (UINTN)Count + 1);
  if (Out == nullptr) return FALSE;
  Out = AppendTabs(Out, Count);
  *Out = '\0';
  Print->Offset += Count;
  return TRUE;
}

CHAR8 *PrintArrayStreamed(JSON_NODE *Node, INT32 Depth, BOOLEAN Formatted, PRINT_BUFFER *Print) {
  if (Node->Child == nullptr) return PrintLiteral("[]", Print);
  INT32 Start = Print->Offset;
  if (!PutText(Print, "[", 1)) return nullptr;
  for (JSON_NODE *Child = Node->Child; Child != nullptr; Child = Child->Next) {
    if (PrintValue(Child, Depth + 1, Formatted, Print) == nullptr) return nullptr;
    Advance(Print);
    if (Child->Next != nullptr && !PutText(Print, ", ", Formatted ? 2 : 1)) return nullptr;
  }
  if (PrintLiteral("]", Print) == nullptr) return nullptr;
  return Print->Buffer + Start;
}

CHAR8 *PrintObjectStreamed(JSON_NODE *Node, INT32 Depth, BOOLEAN Formatted, PRINT_BUFFER *Print) {
  if (Node->Child == nullptr) return PrintEmptyObject(Depth, Formatted, Print);
  INT32 Start = Print->Offset;
  INT32 Inner = Depth + 1;
  if (!PutText(Print, "{\n", Formatted ? 2 : 1)) return nullptr;
  for (JSON_NODE *Child = Node->Child; Child != nullptr; Child = Child->Next) {
    if (Formatted && !PutTabs(Print, Inner)) return nullptr;
    if (PrintString(Child->Key, Print) == nullptr) return nullptr;
    Advance(Print);
    if (!PutText(Print, ":\t", Formatted ? 2 : 1)) return nullptr;
    if (PrintValue(Child, Inner, Formatted, Print) == nullptr) return nullptr;
    Advance(Print);
    CONST CHAR8 *Tail = Child->Next != nullptr ? ",\n" : "\n";
    UINTN TailLength = (Child->Next != nullptr ? 1 : 0) + (Formatted ? 1 : 0);
    if (TailLength != 0 && !PutText(Print, Tail, TailLength)) return nullptr;
  }
  CHAR8 *Out = Reserve(Print, Formatted ? (UINTN)Depth + 2 : 2);
  if (Out == nullptr) return nullptr;
  if (Formatted) Out = AppendTabs(Out, Depth);
  Out[0] = '}';
  Out[1] = '\0';
  return Print->Buffer + Start;
}

// ---------------------------------------------------------------- dispatch

CHAR8 *PrintValue(JSON_NODE *Node, INT32 Depth, BOOLEAN Formatted, PRINT_BUFFER *Print) {
  if (Node == nullptr || Depth > JSON_PRINT_MAX_DEPTH) return nullptr;
  switch (Node->Kind & JSON_KIND_MASK) {
    case JsonKindFalse: return PrintLiteral("false", Print);
    case JsonKindTrue: return PrintLiteral("true", Print);
    case JsonKindNull: return PrintLiteral("null", Print);
    case JsonKindNumber: return PrintNumber(Node, Print);
    case JsonKindString:
      return Node->IsRawNumber != 0 ? PrintRawNumber(Node->ValueString, Print) : PrintString(Node->ValueString, Print);
    case JsonKindArray:
      return Print == nullptr ? PrintArrayJoined(Node, Depth, Formatted)
                              : PrintArrayStreamed(Node, Depth, Formatted, Print);
    case JsonKindObject:
      return Print == nullptr ? PrintObjectJoined(Node, Depth, Formatted)
                              : PrintObjectStreamed(Node, Depth, Formatted, Print);
    default: return nullptr;
  }
}

}  // namespace

CHAR8 *JsonPrint(JSON_NODE *Root, BOOLEAN Formatted) { return PrintValue(Root, 0, Formatted, nullptr); }

CHAR8 *JsonPrintBuffered(JSON_NODE *Root, INT32 InitialSize, BOOLEAN Formatted) {
  if (Root == nullptr || InitialSize < 1 || InitialSize > kPrintBufferLimit) return nullptr;
  PRINT_BUFFER Print = {(CHAR8 *)QorAllocateZeroPool((UINTN)InitialSize), InitialSize, 0};
  if (Print.Buffer == nullptr) return nullptr;
  if (PrintValue(Root, 0, Formatted, &Print) == nullptr) {
    QorFreePool(Print.Buffer);  // null when a failed growth already freed it
    return nullptr;
  }
  return Print.Buffer;
}

CHAR8 *JsonEnsurePrintBuffer(PRINT_BUFFER *Print, INT32 Needed) {
  if (Print == nullptr || Print->Buffer == nullptr) return nullptr;
  BOOLEAN Servable = Needed >= 0 && Print->Offset >= 0 && Print->Offset <= Print->Size &&
                     Needed <= kPrintBufferLimit - Print->Offset;
  if (Servable && Print->Offset + Needed <= Print->Size) return Print->Buffer + Print->Offset;

  CHAR8 *Grown = nullptr;
  INT32 GrownSize = 0;
  if (Servable) {
    // The next power of two not below Offset + Needed.
    UINT32 Wanted = (UINT32)(Print->Offset + Needed) - 1;
    Wanted |= Wanted >> 1;
    Wanted |= Wanted >> 2;
    Wanted |= Wanted >> 4;
    Wanted |= Wanted >> 8;
    Wanted |= Wanted >> 16;
    GrownSize = (INT32)(Wanted + 1);
    Grown = (CHAR8 *)QorAllocateZeroPool((UINTN)GrownSize);
  }
  if (Grown == nullptr) {
    QorFreePool(Print->Buffer);
    Print->Buffer = nullptr;
    Print->Size = 0;
    return nullptr;
  }
  QorCopyMem(Grown, Print->Buffer, (UINTN)Print->Size);
  QorFreePool(Print->Buffer);
  Print->Buffer = Grown;
  Print->Size = GrownSize;
  return Grown + Print->Offset;
}
