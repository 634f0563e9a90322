// The driver's memory library, written as x86-64 firmware memory libraries
// are: string instructions for long ranges, eight bytes per step once the
// destination is aligned to eight; a few wide moves for short ones. A boot
// clears about 35 MB of pool, so this is the floor of its cost.
//
// Inline assembly rather than C loops on purpose: a compiler may turn such
// loops into calls of memset, memcpy or memmove, which the host image must
// not import and which the firmware image has only as the forwarders in
// uefi/freestanding_support.cpp that call back in here.
#include "platform/base_lib.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QOR_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(QOR_ADDRESS_SANITIZER)
#define QOR_ADDRESS_SANITIZER 1
#endif

#if defined(QOR_ADDRESS_SANITIZER)
#include <sanitizer/asan_interface.h>
#endif

// Both images are x86-64 code (the host one too: firmware calls use the
// Microsoft x64 convention).
#if !defined(__x86_64__)
#error "the memory library is written for x86-64"
#endif

namespace {

// Below this length two to four possibly overlapping word moves cover the
// range from both ends; string instructions do not pay for their start-up.
constexpr UINTN kShortLength = 32;

#if defined(QOR_ADDRESS_SANITIZER)
// The sanitizer does not see the memory a string instruction touches, so a
// sanitizer build checks each range first, as the C library's interceptors
// do: an overflow through these routines is reported at the caller.
void CheckRange(CONST VOID *Start, UINTN Length, bool IsWrite) {
  if (Length == 0) return;
  VOID *Poisoned = __asan_region_is_poisoned(const_cast<VOID *>(Start), Length);
  if (Poisoned == nullptr) return;
  __asan_report_error(__builtin_return_address(0), __builtin_frame_address(0), __builtin_frame_address(0), Poisoned,
                      IsWrite ? 1 : 0, Length);
}
#else
inline void CheckRange(CONST VOID *, UINTN, bool) {}
#endif

// Unaligned, aliasing accesses: the short paths read and write words at any
// address. A packed member is the access compilers emit as one unaligned
// move (an alignment attribute on a typedef does not survive a template).
template <typename Word>
struct __attribute__((packed, may_alias)) UNALIGNED {
  Word Value;
};

template <typename Word>
Word Load(UINTN Address) {
  return ((CONST UNALIGNED<Word> *)Address)->Value;
}

template <typename Word>
void Store(UINTN Address, Word Value) {
  ((UNALIGNED<Word> *)Address)->Value = Value;
}

// One word at each end of the range; for Length from sizeof(Word) to twice
// that the two cover it, overlapping in the middle.
template <typename Word>
void StoreEnds(UINTN To, UINTN Length, UINT64 Pattern) {
  Store<Word>(To, (Word)Pattern);
  Store<Word>(To + Length - sizeof(Word), (Word)Pattern);
}

// Both loads come before either store, so the ranges may overlap.
template <typename Word>
void MoveEnds(UINTN To, UINTN From, UINTN Length) {
  const Word Head = Load<Word>(From);
  const Word Tail = Load<Word>(From + Length - sizeof(Word));
  Store<Word>(To, Head);
  Store<Word>(To + Length - sizeof(Word), Tail);
}

void SetShort(UINTN To, UINTN Length, UINT64 Pattern) {
  if (Length >= 16) {
    StoreEnds<UINT64>(To, 16, Pattern);
    StoreEnds<UINT64>(To + Length - 16, 16, Pattern);
  } else if (Length >= 8) {
    StoreEnds<UINT64>(To, Length, Pattern);
  } else if (Length >= 4) {
    StoreEnds<UINT32>(To, Length, Pattern);
  } else if (Length >= 2) {
    StoreEnds<UINT16>(To, Length, Pattern);
  } else if (Length == 1) {
    Store<UINT8>(To, (UINT8)Pattern);
  }
}

void CopyShort(UINTN To, UINTN From, UINTN Length) {
  if (Length >= 16) {
    // Four loads before any store, as in MoveEnds.
    const UINT64 A = Load<UINT64>(From);
    const UINT64 B = Load<UINT64>(From + 8);
    const UINT64 C = Load<UINT64>(From + Length - 16);
    const UINT64 D = Load<UINT64>(From + Length - 8);
    Store<UINT64>(To, A);
    Store<UINT64>(To + 8, B);
    Store<UINT64>(To + Length - 16, C);
    Store<UINT64>(To + Length - 8, D);
  } else if (Length >= 8) {
    MoveEnds<UINT64>(To, From, Length);
  } else if (Length >= 4) {
    MoveEnds<UINT32>(To, From, Length);
  } else if (Length >= 2) {
    MoveEnds<UINT16>(To, From, Length);
  } else if (Length == 1) {
    Store<UINT8>(To, Load<UINT8>(From));
  }
}

// Addresses are carried as integers: the backward copy steps below the start
// of a range, which pointer arithmetic may not.

inline void StoreWords(UINTN &To, UINTN Count, UINT64 Pattern) {
  __asm__ volatile("rep stosq" : "+D"(To), "+c"(Count) : "a"(Pattern) : "memory");
}

inline void MoveBytesUp(UINTN &To, UINTN &From, UINTN Count) {
  __asm__ volatile("rep movsb" : "+D"(To), "+S"(From), "+c"(Count) : : "memory");
}

inline void MoveWordsUp(UINTN &To, UINTN &From, UINTN Count) {
  __asm__ volatile("rep movsq" : "+D"(To), "+S"(From), "+c"(Count) : : "memory");
}

// Downward moves: To and From address the last element; the direction flag
// is set only for the one instruction, since compiled code and the firmware
// expect it clear.
inline void MoveBytesDown(UINTN &To, UINTN &From, UINTN Count) {
  __asm__ volatile("std\n\trep movsb\n\tcld" : "+D"(To), "+S"(From), "+c"(Count) : : "memory", "cc");
}

inline void MoveWordsDown(UINTN &To, UINTN &From, UINTN Count) {
  __asm__ volatile("std\n\trep movsq\n\tcld" : "+D"(To), "+S"(From), "+c"(Count) : : "memory", "cc");
}

// Compares Count elements (Count > 0) while they are equal; true when one
// differed, with Left and Right just past it.
inline bool BytesDiffer(UINTN &Left, UINTN &Right, UINTN Count) {
  bool Differs;
  __asm__ volatile("repe cmpsb" : "+S"(Left), "+D"(Right), "+c"(Count), "=@ccne"(Differs) : : "memory");
  return Differs;
}

inline bool WordsDiffer(UINTN &Left, UINTN &Right, UINTN Count) {
  bool Differs;
  __asm__ volatile("repe cmpsq" : "+S"(Left), "+D"(Right), "+c"(Count), "=@ccne"(Differs) : : "memory");
  return Differs;
}

// The long paths (Length >= kShortLength) move eight-byte words to an
// 8-aligned destination; the ragged ends go as unaligned words where the
// ranges are apart, as bytes where they overlap.

void SetLong(UINTN To, UINTN Length, UINT64 Pattern) {
  // The ends by unaligned stores, then the aligned words between them.
  StoreEnds<UINT64>(To, Length, Pattern);
  UINTN First = (To + 7) & ~(UINTN)7;
  StoreWords(First, (((To + Length) & ~(UINTN)7) - First) >> 3, Pattern);
}

// Ranges apart: the ends by unaligned moves, the aligned words between.
void CopyApart(UINTN To, UINTN From, UINTN Length) {
  MoveEnds<UINT64>(To, From, Length);
  UINTN First = (To + 7) & ~(UINTN)7;
  UINTN Source = From + (First - To);
  MoveWordsUp(First, Source, (((To + Length) & ~(UINTN)7) - First) >> 3);
}

// Upwards, for a destination that overlaps the start of its source.
void CopyUp(UINTN To, UINTN From, UINTN Length) {
  UINTN Head = (0 - To) & 7;
  MoveBytesUp(To, From, Head);
  Length -= Head;
  MoveWordsUp(To, From, Length >> 3);
  MoveBytesUp(To, From, Length & 7);
}

// From the last byte down, for a destination that overlaps the end of its
// source: the destination's ragged end, the words, then its head.
void CopyDown(UINTN To, UINTN From, UINTN Length) {
  UINTN LastTo = To + Length - 1;
  UINTN LastFrom = From + Length - 1;
  UINTN Tail = (LastTo + 1) & 7;
  MoveBytesDown(LastTo, LastFrom, Tail);
  Length -= Tail;
  LastTo -= 7;
  LastFrom -= 7;
  MoveWordsDown(LastTo, LastFrom, Length >> 3);
  LastTo += 7;
  LastFrom += 7;
  MoveBytesDown(LastTo, LastFrom, Length & 7);
}

INTN CompareBytes(UINTN Left, UINTN Right, UINTN Length) {
  if (Length >= 8) {
    if (WordsDiffer(Left, Right, Length >> 3)) {
      // The first difference is inside the word just compared.
      Left -= 8;
      Right -= 8;
      Length = 8;
    } else {
      Length &= 7;
    }
  }
  if (Length == 0 || !BytesDiffer(Left, Right, Length)) return 0;
  return (INTN)((CONST UINT8 *)Left)[-1] - (INTN)((CONST UINT8 *)Right)[-1];
}

}  // namespace

VOID *QorCopyMem(VOID *Destination, CONST VOID *Source, UINTN Length) {
  UINTN To = (UINTN)Destination;
  UINTN From = (UINTN)Source;
  if (To == From || Length == 0) return Destination;
  CheckRange(Source, Length, false);
  CheckRange(Destination, Length, true);
  // Unsigned distances: a destination below the source is far above it.
  if (Length < kShortLength) {
    CopyShort(To, From, Length);
  } else if (To - From >= Length && From - To >= Length) {
    CopyApart(To, From, Length);
  } else if (To - From >= Length) {
    CopyUp(To, From, Length);
  } else {
    CopyDown(To, From, Length);
  }
  return Destination;
}

VOID *QorSetMem(VOID *Buffer, UINTN Length, UINT8 Value) {
  CheckRange(Buffer, Length, true);
  const UINT64 Pattern = Value * 0x0101010101010101ULL;
  if (Length < kShortLength) {
    SetShort((UINTN)Buffer, Length, Pattern);
  } else {
    SetLong((UINTN)Buffer, Length, Pattern);
  }
  return Buffer;
}

VOID *QorZeroMem(VOID *Buffer, UINTN Length) { return QorSetMem(Buffer, Length, 0); }

INTN QorCompareMem(CONST VOID *Left, CONST VOID *Right, UINTN Length) {
  if (Left == Right || Length == 0) return 0;
  CheckRange(Left, Length, false);
  CheckRange(Right, Length, false);
  return CompareBytes((UINTN)Left, (UINTN)Right, Length);
}

BOOLEAN QorCompareGuid(CONST EFI_GUID *Left, CONST EFI_GUID *Right) {
  return QorCompareMem(Left, Right, sizeof(EFI_GUID)) == 0 ? TRUE : FALSE;
}
