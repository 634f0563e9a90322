// Firmware print library: formatted output into bounded ASCII or UCS-2
// buffers, with the conversions firmware code relies on (%a, %s, %g, %r...).
#include "platform/print_lib.h"

namespace {

CONST CHAR8 *const kErrorStatusText[] = {
    "Load Error",          "Invalid Parameter",    "Unsupported",        "Bad Buffer Size",
    "Buffer Too Small",    "Not Ready",            "Device Error",       "Write Protected",
    "Out of Resources",    "Volume Corrupt",       "Volume Full",        "No Media",
    "Media changed",       "Not Found",            "Access Denied",      "No Response",
    "No mapping",          "Time out",             "Not started",        "Already started",
    "Aborted",             "ICMP Error",           "TFTP Error",         "Protocol Error",
    "Incompatible Version", "Security Violation",  "CRC Error",          "End of Media",
    "Reserved (29)",       "Reserved (30)",        "End of File",        "Invalid Language",
    "Compromised Data",    "IP Address Conflict",  "HTTP Error",
};

CONST CHAR8 *const kWarningStatusText[] = {
    "Success",          "Warning Unknown Glyph", "Warning Delete Failure", "Warning Write Failure",
    "Warning Buffer Too Small", "Warning Stale Data", "Warning File System", "Warning Reset Required",
};

// Output sink: ASCII or UCS-2 characters into a bounded buffer.
struct Sink {
  CHAR8 *Ascii;
  CHAR16 *Wide;
  UINTN Capacity;  // characters that may be written, terminator excluded
  UINTN Count;

  void Put(UINT32 Character) {
    if (Count >= Capacity) return;
    if (Ascii != nullptr) {
      Ascii[Count] = (CHAR8)Character;
    } else {
      Wide[Count] = (CHAR16)Character;
    }
    Count++;
  }
  void Terminate() {
    if (Ascii != nullptr) {
      Ascii[Count] = '\0';
    } else {
      Wide[Count] = 0;
    }
  }
};

enum : UINT32 {
  kLeftJustify = 0x1,
  kPrefixZero = 0x2,
  kPrefixSign = 0x4,
  kPrefixBlank = 0x8,
  kCommaType = 0x10,
  kLongType = 0x20,
  kPrecision = 0x40,
};

// Converts a value to digits, least significant first; returns the count.
UINTN ToDigits(UINT64 Value, UINT32 Radix, BOOLEAN Upper, CHAR8 *Digits) {
  CONST CHAR8 *Table = Upper ? "0123456789ABCDEF" : "0123456789abcdef";
  UINTN Count = 0;
  do {
    Digits[Count++] = Table[Value % Radix];
    Value /= Radix;
  } while (Value != 0);
  return Count;
}

// Writes a text of Length characters (ASCII or UCS-2 source) with padding.
void PutPadded(Sink *Out, CONST CHAR8 *AsciiText, CONST CHAR16 *WideText, UINTN Length, UINTN Width, UINT32 Flags) {
  UINTN Pad = Width > Length ? Width - Length : 0;
  if ((Flags & kLeftJustify) == 0) {
    for (UINTN I = 0; I < Pad; I++) Out->Put(' ');
  }
  for (UINTN I = 0; I < Length; I++) {
    Out->Put(AsciiText != nullptr ? (UINT8)AsciiText[I] : (UINT32)WideText[I]);
  }
  if ((Flags & kLeftJustify) != 0) {
    for (UINTN I = 0; I < Pad; I++) Out->Put(' ');
  }
}

void PutNumber(Sink *Out, UINT64 Magnitude, BOOLEAN Negative, UINT32 Radix, BOOLEAN Upper, UINTN Width,
               UINTN Precision, UINT32 Flags) {
  CHAR8 Digits[32];
  UINTN Count = ToDigits(Magnitude, Radix, Upper, Digits);
  // Thousands separators for decimal output.
  CHAR8 Body[48];
  UINTN BodyLength = 0;
  for (UINTN I = Count; I > 0; I--) {
    Body[BodyLength++] = Digits[I - 1];
    if ((Flags & kCommaType) != 0 && Radix == 10 && I > 1 && ((I - 1) % 3) == 0) Body[BodyLength++] = ',';
  }
  CHAR8 Sign = 0;
  if (Negative) {
    Sign = '-';
  } else if ((Flags & kPrefixSign) != 0 && Radix == 10) {
    Sign = '+';
  } else if ((Flags & kPrefixBlank) != 0 && Radix == 10) {
    Sign = ' ';
  }
  UINTN Zeros = 0;
  if ((Flags & kPrecision) != 0 && Precision > BodyLength) Zeros = Precision - BodyLength;
  UINTN Length = BodyLength + Zeros + (Sign != 0 ? 1 : 0);
  if ((Flags & kPrefixZero) != 0 && (Flags & kLeftJustify) == 0 && (Flags & kPrecision) == 0 && Width > Length) {
    Zeros += Width - Length;
    Length = Width;
  }
  UINTN Pad = Width > Length ? Width - Length : 0;
  if ((Flags & kLeftJustify) == 0) {
    for (UINTN I = 0; I < Pad; I++) Out->Put(' ');
  }
  if (Sign != 0) Out->Put((UINT8)Sign);
  for (UINTN I = 0; I < Zeros; I++) Out->Put('0');
  for (UINTN I = 0; I < BodyLength; I++) Out->Put((UINT8)Body[I]);
  if ((Flags & kLeftJustify) != 0) {
    for (UINTN I = 0; I < Pad; I++) Out->Put(' ');
  }
}

UINTN FormatInto(Sink *Out, CONST CHAR8 *Format, VA_LIST Marker) {
  if (Format == nullptr) {
    Out->Terminate();
    return 0;
  }
  for (CONST CHAR8 *P = Format; *P != '\0'; P++) {
    if (*P != '%') {
      Out->Put((UINT8)*P);
      continue;
    }
    CONST CHAR8 *Start = P;
    UINT32 Flags = 0;
    UINTN Width = 0;
    UINTN Precision = 0;
    // Flags, width, precision and size prefixes, in any order as firmware does.
    BOOLEAN Done = FALSE;
    while (!Done) {
      P++;
      switch (*P) {
        case '-': Flags |= kLeftJustify; break;
        case '+': Flags |= kPrefixSign; break;
        case ' ': Flags |= kPrefixBlank; break;
        case ',': Flags |= kCommaType; break;
        case 'l':
        case 'L': Flags |= kLongType; break;
        case '.': Flags |= kPrecision; break;
        case '*':
          if ((Flags & kPrecision) != 0) {
            Precision = VA_ARG(Marker, UINTN);
          } else {
            Width = VA_ARG(Marker, UINTN);
          }
          break;
        case '0':
          if ((Flags & kPrecision) == 0 && Width == 0) {
            Flags |= kPrefixZero;
            break;
          }
          [[fallthrough]];
        case '1': case '2': case '3': case '4': case '5': case '6': case '7': case '8': case '9': {
          UINTN Number = 0;
          while (*P >= '0' && *P <= '9') {
            Number = Number * 10 + (UINTN)(*P - '0');
            P++;
          }
          P--;
          if ((Flags & kPrecision) != 0) {
            Precision = Number;
          } else {
            Width = Number;
          }
          break;
        }
        default: Done = TRUE; break;
      }
    }
    switch (*P) {
      case 'd':
      case 'i': {
        INT64 Value = (Flags & kLongType) != 0 ? VA_ARG(Marker, INT64) : (INT64)VA_ARG(Marker, int);
        BOOLEAN Negative = Value < 0;
        UINT64 Magnitude = Negative ? (UINT64)0 - (UINT64)Value : (UINT64)Value;
        PutNumber(Out, Magnitude, Negative, 10, FALSE, Width, Precision, Flags);
        break;
      }
      case 'u': {
        UINT64 Value = (Flags & kLongType) != 0 ? VA_ARG(Marker, UINT64) : (UINT64)VA_ARG(Marker, unsigned int);
        PutNumber(Out, Value, FALSE, 10, FALSE, Width, Precision, Flags);
        break;
      }
      case 'x':
      case 'X': {
        UINT64 Value = (Flags & kLongType) != 0 ? VA_ARG(Marker, UINT64) : (UINT64)VA_ARG(Marker, unsigned int);
        PutNumber(Out, Value, FALSE, 16, *P == 'X', Width, Precision, Flags);
        break;
      }
      case 'p': {
        UINT64 Value = (UINT64)(UINTN)VA_ARG(Marker, VOID *);
        PutNumber(Out, Value, FALSE, 16, TRUE, 16, 0, Flags | kPrefixZero);
        break;
      }
      case 'c': {
        UINT32 Character = (UINT32)(VA_ARG(Marker, UINTN) & 0xFFFF);
        CHAR16 Wide[1] = {(CHAR16)Character};
        PutPadded(Out, nullptr, Wide, 1, Width, Flags);
        break;
      }
      case 'a': {
        CONST CHAR8 *Text = VA_ARG(Marker, CONST CHAR8 *);
        if (Text == nullptr) Text = "<null string>";
        UINTN Length = 0;
        while (Text[Length] != '\0' && ((Flags & kPrecision) == 0 || Length < Precision)) Length++;
        PutPadded(Out, Text, nullptr, Length, Width, Flags);
        break;
      }
      case 's':
      case 'S': {
        CONST CHAR16 *Text = VA_ARG(Marker, CONST CHAR16 *);
        if (Text == nullptr) {
          CONST CHAR8 *Null = "<null string>";
          UINTN Length = 13;
          if ((Flags & kPrecision) != 0 && Precision < Length) Length = Precision;
          PutPadded(Out, Null, nullptr, Length, Width, Flags);
          break;
        }
        UINTN Length = 0;
        while (Text[Length] != 0 && ((Flags & kPrecision) == 0 || Length < Precision)) Length++;
        PutPadded(Out, nullptr, Text, Length, Width, Flags);
        break;
      }
      case 'g': {
        CONST EFI_GUID *Guid = VA_ARG(Marker, CONST EFI_GUID *);
        CHAR8 Text[40];
        UINTN Length;
        if (Guid == nullptr) {
          Length = AsciiSPrint(Text, sizeof(Text), "<null guid>");
        } else {
          Length = AsciiSPrint(Text, sizeof(Text), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                               (UINT32)Guid->Data1, (UINT32)Guid->Data2, (UINT32)Guid->Data3,
                               (UINT32)Guid->Data4[0], (UINT32)Guid->Data4[1], (UINT32)Guid->Data4[2],
                               (UINT32)Guid->Data4[3], (UINT32)Guid->Data4[4], (UINT32)Guid->Data4[5],
                               (UINT32)Guid->Data4[6], (UINT32)Guid->Data4[7]);
        }
        PutPadded(Out, Text, nullptr, Length, Width, Flags);
        break;
      }
      case 'r': {
        EFI_STATUS Status = VA_ARG(Marker, EFI_STATUS);
        CONST CHAR8 *Text = QorStatusText(Status);
        CHAR8 Hex[24];
        if (Text == nullptr) {
          AsciiSPrint(Hex, sizeof(Hex), "%08lX", (UINT64)Status);
          Text = Hex;
        }
        UINTN Length = 0;
        while (Text[Length] != '\0') Length++;
        PutPadded(Out, Text, nullptr, Length, Width, Flags);
        break;
      }
      case '%':
        Out->Put('%');
        break;
      case '\0':
        // A lone '%' at the end: print what was seen and stop.
        for (CONST CHAR8 *Q = Start; Q < P; Q++) Out->Put((UINT8)*Q);
        P--;
        break;
      default:
        // Unknown conversion: copied as it stands.
        for (CONST CHAR8 *Q = Start; Q <= P; Q++) Out->Put((UINT8)*Q);
        break;
    }
  }
  Out->Terminate();
  return Out->Count;
}

}  // namespace

CONST CHAR8 *QorStatusText(EFI_STATUS Status) {
  if (EFI_ERROR(Status)) {
    UINTN Index = (UINTN)(Status & ~MAX_BIT);
    if (Index > 0 && Index <= sizeof(kErrorStatusText) / sizeof(kErrorStatusText[0])) {
      return kErrorStatusText[Index - 1];
    }
    return nullptr;
  }
  if (Status < sizeof(kWarningStatusText) / sizeof(kWarningStatusText[0])) return kWarningStatusText[Status];
  return nullptr;
}

UINTN EFIAPI AsciiVSPrint(CHAR8 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString, VA_LIST Marker) {
  if (StartOfBuffer == nullptr || BufferSize == 0) return 0;
  Sink Out = {StartOfBuffer, nullptr, BufferSize - 1, 0};
  return FormatInto(&Out, FormatString, Marker);
}

UINTN EFIAPI AsciiSPrint(CHAR8 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString, ...) {
  VA_LIST Marker;
  VA_START(Marker, FormatString);
  UINTN Count = AsciiVSPrint(StartOfBuffer, BufferSize, FormatString, Marker);
  VA_END(Marker);
  return Count;
}

UINTN EFIAPI UnicodeVSPrintAsciiFormat(CHAR16 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString,
                                       VA_LIST Marker) {
  UINTN Characters = BufferSize / sizeof(CHAR16);
  if (StartOfBuffer == nullptr || Characters == 0) return 0;
  Sink Out = {nullptr, StartOfBuffer, Characters - 1, 0};
  return FormatInto(&Out, FormatString, Marker);
}

UINTN EFIAPI UnicodeSPrintAsciiFormat(CHAR16 *StartOfBuffer, UINTN BufferSize, CONST CHAR8 *FormatString, ...) {
  VA_LIST Marker;
  VA_START(Marker, FormatString);
  UINTN Count = UnicodeVSPrintAsciiFormat(StartOfBuffer, BufferSize, FormatString, Marker);
  VA_END(Marker);
  return Count;
}
