#include "uefi/rig/json_text.h"

namespace {

constexpr UINTN kIndentWidth = 4;

// Output with a hard bound; once full, further characters are only
// counted, so a too-small buffer is told apart from invalid text.
struct Output {
  CHAR8 *Buffer;  // NULL: validate only
  UINTN Size;
  UINTN Used;
  BOOLEAN Overflow;

  void Put(CHAR8 Character) {
    if (Buffer == nullptr) return;
    if (Used + 1 >= Size) {  // one byte stays free for the terminator
      Overflow = TRUE;
      return;
    }
    Buffer[Used++] = Character;
  }
  void Put(CONST CHAR8 *Text) {
    while (*Text != '\0') Put(*Text++);
  }
  void Indent(UINTN Depth) {
    for (UINTN I = 0; I < Depth * kIndentWidth; I++) Put(' ');
  }
  void Terminate() {
    if (Buffer != nullptr && Used < Size) Buffer[Used] = '\0';
  }
};

struct Level {
  BOOLEAN InArray;
  UINT32 Count;  // values written so far; in an object keys count too
};

class Reformatter {
 public:
  Reformatter(CONST CHAR8 *Text, Output *Out) : P_((CONST UINT8 *)Text), Out_(Out) {}

  EFI_STATUS Run();

 private:
  BOOLEAN IsDigit(UINT8 C) const { return C >= '0' && C <= '9'; }
  VOID SkipWhiteSpace() {
    while (*P_ == ' ' || *P_ == '\t' || *P_ == '\n' || *P_ == '\r') P_++;
  }
  // Separator and indentation in front of a value or key at the current
  // level, counting it.
  VOID Prefix();
  BOOLEAN Consume(CONST CHAR8 *Literal);
  BOOLEAN String();
  BOOLEAN Number();
  // Writes one decoded byte of a string, escaped as the output requires.
  VOID PutStringByte(UINT8 Byte);
  BOOLEAN Hex4(UINT32 *Value);
  VOID PutCodePoint(UINT32 CodePoint);
  VOID Close(CHAR8 Bracket);

  CONST UINT8 *P_;
  Output *Out_;
  Level Stack_[QOR_RIG_JSON_MAX_DEPTH];
  UINTN Depth_ = 0;
};

VOID Reformatter::Prefix() {
  if (Depth_ == 0) return;
  Level &Top = Stack_[Depth_ - 1];
  if (Top.InArray) {
    if (Top.Count > 0) Out_->Put(',');
    Out_->Put('\n');
    Out_->Indent(Depth_);
  } else {
    if (Top.Count > 0) {
      Out_->Put(Top.Count % 2 == 0 ? ",\n" : ": ");
    } else {
      Out_->Put('\n');
    }
    if (Top.Count % 2 == 0) Out_->Indent(Depth_);
  }
  Top.Count++;
}

VOID Reformatter::Close(CHAR8 Bracket) {
  BOOLEAN Empty = Stack_[Depth_ - 1].Count == 0;
  Depth_--;
  if (!Empty) {
    Out_->Put('\n');
    Out_->Indent(Depth_);
  }
  Out_->Put(Bracket);
}

BOOLEAN Reformatter::Consume(CONST CHAR8 *Literal) {
  CONST UINT8 *Q = P_;
  for (; *Literal != '\0'; Literal++, Q++) {
    if (*Q != (UINT8)*Literal) return FALSE;
  }
  P_ = Q;
  return TRUE;
}

VOID Reformatter::PutStringByte(UINT8 Byte) {
  static CONST CHAR8 kHex[] = "0123456789ABCDEF";
  switch (Byte) {
    case '"': Out_->Put("\\\""); return;
    case '\\': Out_->Put("\\\\"); return;
    case '\b': Out_->Put("\\b"); return;
    case '\t': Out_->Put("\\t"); return;
    case '\n': Out_->Put("\\n"); return;
    case '\f': Out_->Put("\\f"); return;
    case '\r': Out_->Put("\\r"); return;
    default: break;
  }
  if (Byte < 0x20) {
    Out_->Put("\\u00");
    Out_->Put(kHex[Byte >> 4]);
    Out_->Put(kHex[Byte & 0xF]);
    return;
  }
  Out_->Put((CHAR8)Byte);
}

BOOLEAN Reformatter::Hex4(UINT32 *Value) {
  UINT32 V = 0;
  for (int I = 0; I < 4; I++) {
    UINT8 C = *P_;
    UINT32 Digit;
    if (C >= '0' && C <= '9') {
      Digit = C - '0';
    } else if (C >= 'A' && C <= 'F') {
      Digit = C - 'A' + 10;
    } else if (C >= 'a' && C <= 'f') {
      Digit = C - 'a' + 10;
    } else {
      return FALSE;
    }
    V = V * 16 + Digit;
    P_++;
  }
  *Value = V;
  return TRUE;
}

// UTF-8 form of a code point (a lone low surrogate is encoded as it is).
VOID Reformatter::PutCodePoint(UINT32 CodePoint) {
  if (CodePoint < 0x80) {
    PutStringByte((UINT8)CodePoint);
  } else if (CodePoint < 0x800) {
    PutStringByte((UINT8)(0xC0 | (CodePoint >> 6)));
    PutStringByte((UINT8)(0x80 | (CodePoint & 0x3F)));
  } else if (CodePoint < 0x10000) {
    PutStringByte((UINT8)(0xE0 | (CodePoint >> 12)));
    PutStringByte((UINT8)(0x80 | ((CodePoint >> 6) & 0x3F)));
    PutStringByte((UINT8)(0x80 | (CodePoint & 0x3F)));
  } else {
    PutStringByte((UINT8)(0xF0 | (CodePoint >> 18)));
    PutStringByte((UINT8)(0x80 | ((CodePoint >> 12) & 0x3F)));
    PutStringByte((UINT8)(0x80 | ((CodePoint >> 6) & 0x3F)));
    PutStringByte((UINT8)(0x80 | (CodePoint & 0x3F)));
  }
}

// At the opening quote; escapes are decoded and the text re-escaped.
BOOLEAN Reformatter::String() {
  P_++;
  Out_->Put('"');
  for (;;) {
    UINT8 C = *P_;
    if (C == '"') {
      P_++;
      Out_->Put('"');
      return TRUE;
    }
    if (C < 0x20) return FALSE;  // control characters must be escaped; NUL ends the text early
    if (C != '\\') {
      PutStringByte(C);
      P_++;
      continue;
    }
    P_++;
    UINT8 E = *P_++;
    switch (E) {
      case '"': PutStringByte('"'); break;
      case '\\': PutStringByte('\\'); break;
      case '/': PutStringByte('/'); break;
      case 'b': PutStringByte('\b'); break;
      case 'f': PutStringByte('\f'); break;
      case 'n': PutStringByte('\n'); break;
      case 'r': PutStringByte('\r'); break;
      case 't': PutStringByte('\t'); break;
      case 'u': {
        UINT32 CodePoint;
        if (!Hex4(&CodePoint)) return FALSE;
        if (CodePoint >= 0xD800 && CodePoint <= 0xDBFF) {
          UINT32 Low;
          if (P_[0] != '\\' || P_[1] != 'u') return FALSE;
          P_ += 2;
          if (!Hex4(&Low) || Low < 0xDC00 || Low > 0xDFFF) return FALSE;
          CodePoint = (((CodePoint - 0xD800) << 10) | (Low - 0xDC00)) + 0x10000;
        }
        PutCodePoint(CodePoint);
        break;
      }
      default:
        return FALSE;
    }
  }
}

// -? (0 | [1-9][0-9]*) (. [0-9]+)? ([eE] [+-]? [0-9]+)?, copied as written.
BOOLEAN Reformatter::Number() {
  CONST UINT8 *Start = P_;
  if (*P_ == '-') P_++;
  if (*P_ == '0') {
    P_++;
  } else if (*P_ >= '1' && *P_ <= '9') {
    while (IsDigit(*P_)) P_++;
  } else {
    return FALSE;
  }
  if (*P_ == '.') {
    P_++;
    if (!IsDigit(*P_)) return FALSE;
    while (IsDigit(*P_)) P_++;
  }
  if (*P_ == 'e' || *P_ == 'E') {
    P_++;
    if (*P_ == '+' || *P_ == '-') P_++;
    if (!IsDigit(*P_)) return FALSE;
    while (IsDigit(*P_)) P_++;
  }
  for (CONST UINT8 *Q = Start; Q < P_; Q++) Out_->Put((CHAR8)*Q);
  return TRUE;
}

EFI_STATUS Reformatter::Run() {
  SkipWhiteSpace();
  // Each turn parses one value, then closes every container that ends
  // after it and moves to the next element or member.
  for (;;) {
    Prefix();
    UINT8 C = *P_;
    BOOLEAN Scalar = TRUE;
    if (C == '{' || C == '[') {
      if (Depth_ == QOR_RIG_JSON_MAX_DEPTH) return EFI_UNSUPPORTED;
      P_++;
      Out_->Put((CHAR8)C);
      Stack_[Depth_].InArray = C == '[';
      Stack_[Depth_].Count = 0;
      Depth_++;
      SkipWhiteSpace();
      Scalar = FALSE;
    } else if (C == '"') {
      if (!String()) return EFI_INVALID_PARAMETER;
    } else if (C == 't') {
      if (!Consume("true")) return EFI_INVALID_PARAMETER;
      Out_->Put("true");
    } else if (C == 'f') {
      if (!Consume("false")) return EFI_INVALID_PARAMETER;
      Out_->Put("false");
    } else if (C == 'n') {
      if (!Consume("null")) return EFI_INVALID_PARAMETER;
      Out_->Put("null");
    } else if (!Number()) {
      return EFI_INVALID_PARAMETER;
    }

    // After the value: close containers and find where the next value starts.
    BOOLEAN First = !Scalar;  // just opened: the container may be empty
    for (;;) {
      if (Depth_ == 0) {
        SkipWhiteSpace();
        return *P_ == '\0' ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
      }
      Level &Top = Stack_[Depth_ - 1];
      CHAR8 Closing = Top.InArray ? ']' : '}';
      SkipWhiteSpace();
      if (*P_ == (UINT8)Closing && (First || Top.Count > 0)) {
        P_++;
        Close(Closing);
        First = FALSE;
        continue;
      }
      if (!First) {
        if (*P_ != ',') return EFI_INVALID_PARAMETER;
        P_++;
        SkipWhiteSpace();
      }
      if (!Top.InArray) {
        // A member: key, colon, then its value in the next turn.
        if (*P_ != '"') return EFI_INVALID_PARAMETER;
        Prefix();
        if (!String()) return EFI_INVALID_PARAMETER;
        SkipWhiteSpace();
        if (*P_ != ':') return EFI_INVALID_PARAMETER;
        P_++;
        SkipWhiteSpace();
      }
      break;
    }
  }
}

EFI_STATUS Reformat(CONST CHAR8 *Text, CHAR8 *Buffer, UINTN Size) {
  if (Text == nullptr) return EFI_INVALID_PARAMETER;
  Output Out = {Buffer, Size, 0, FALSE};
  Reformatter Parser(Text, &Out);
  EFI_STATUS Status = Parser.Run();
  if (EFI_ERROR(Status)) return Status;
  if (Out.Overflow) return EFI_BUFFER_TOO_SMALL;
  Out.Terminate();
  return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS QorRigJsonValidate(CONST CHAR8 *Text) { return Reformat(Text, nullptr, 0); }

EFI_STATUS QorRigJsonPrettyPrint(CONST CHAR8 *Text, CHAR8 *Output, UINTN OutputSize) {
  if (Output == nullptr) return EFI_INVALID_PARAMETER;
  if (OutputSize == 0) return EFI_BUFFER_TOO_SMALL;
  return Reformat(Text, Output, OutputSize);
}
