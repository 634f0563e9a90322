// A mutator that keeps boards well-formed JSON: the input is parsed, one to
// three of its values or members are changed, and the tree is written back.
// Byte-level mutation of the whole text would mostly produce syntax errors
// the board loader refuses at once; this one reaches the board's meaning
// and, through it, the driver. One input in eight still gets libFuzzer's
// byte mutation, so the JSON reader itself stays fuzzed too.
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "emulator/board.h"
#include "emulator/board_json.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t *Data, size_t Size, size_t MaxSize);

namespace {

using Value = rapidjson::Value;
using Allocator = rapidjson::Document::AllocatorType;
using Random = std::minstd_rand;

// Boundaries of the fields boards carry: bytes, words, PCI and status values.
const uint64_t kInterestingNumbers[] = {
    0, 1, 2, 3, 4, 7, 8, 13, 14, 15, 16, 17, 31, 32, 63, 64, 90, 127, 128, 254, 255, 256, 1023, 1024, 4095, 4096,
    0x7FFF, 0x8000, 0xFFFF, 0x10000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0x100000000, 0x7FFFFFFFFFFFFFFF,
    0x8000000000000000, 0xFFFFFFFFFFFFFFFF};

bool ParseBoardText(const uint8_t *Data, size_t Size, rapidjson::Document *Document) {
  try {
    qor::emu::ParseBoardDocument(std::string(reinterpret_cast<const char *>(Data), Size), Document);
    return true;
  } catch (const qor::emu::BoardError &) {
    return false;
  }
}

// Every value of the tree, root first, with its parent (null for the root).
struct Slot {
  Value *Node;
  Value *Parent;
};

std::vector<Slot> Slots(Value &Root) {
  std::vector<Slot> Out{{&Root, nullptr}};
  for (size_t I = 0; I < Out.size(); I++) {
    Value &Node = *Out[I].Node;
    if (Node.IsObject()) {
      for (auto It = Node.MemberBegin(); It != Node.MemberEnd(); ++It) Out.push_back({&It->value, &Node});
    } else if (Node.IsArray()) {
      for (auto &Element : Node.GetArray()) Out.push_back({&Element, &Node});
    }
  }
  return Out;
}

uint64_t InterestingNumber(Random &Rng) {
  uint64_t Number = kInterestingNumbers[Rng() % (sizeof(kInterestingNumbers) / sizeof(kInterestingNumbers[0]))];
  switch (Rng() % 4) {
    case 0: return Number + 1;
    case 1: return Number - 1;
    default: return Number;
  }
}

void SetNumber(Value &Node, Random &Rng, Allocator &Alloc) {
  uint64_t Number = InterestingNumber(Rng);
  if (Rng() % 3 == 0) {
    char Text[24];
    std::snprintf(Text, sizeof(Text), "0x%llX", static_cast<unsigned long long>(Number));
    Node.SetString(Text, Alloc);
  } else {
    Node.SetUint64(Number);
  }
}

void MutateString(Value &Node, Random &Rng, Allocator &Alloc) {
  std::string Text(Node.GetString(), Node.GetStringLength());
  if (Text.rfind("0x", 0) == 0 || Rng() % 4 == 0) {
    SetNumber(Node, Rng, Alloc);
    return;
  }
  switch (Rng() % 4) {
    case 0: Text.clear(); break;
    case 1: Text += Text.empty() ? std::string(64, 'A') : Text; break;
    default: {
      Text.resize(Text.size() * 2 + 16);
      size_t Size = LLVMFuzzerMutate(reinterpret_cast<uint8_t *>(Text.data()), Text.size() / 2 - 8, Text.size());
      Text.resize(Size);
    }
  }
  Node.SetString(Text.data(), static_cast<rapidjson::SizeType>(Text.size()), Alloc);
}

// Copies Source into Target; a copy is taken first, since Source may lie
// inside Target.
void Replace(Value &Target, const Value &Source, Allocator &Alloc) {
  Value Copy(Source, Alloc);
  Target = Copy;
}

void MutateOnce(rapidjson::Document &Document, Random &Rng) {
  Allocator &Alloc = Document.GetAllocator();
  std::vector<Slot> All = Slots(Document);
  Slot &Target = All[Rng() % All.size()];
  Value &Node = *Target.Node;
  const Value &Other = *All[Rng() % All.size()].Node;
  if (Rng() % 8 == 0 && Target.Parent != nullptr) {  // graft another part of the board here
    Replace(Node, Other, Alloc);
    return;
  }
  if (Node.IsNumber()) {
    SetNumber(Node, Rng, Alloc);
  } else if (Node.IsString()) {
    MutateString(Node, Rng, Alloc);
  } else if (Node.IsBool()) {
    Node.SetBool(!Node.GetBool());
  } else if (Node.IsNull()) {
    Node.SetUint64(InterestingNumber(Rng));
  } else if (Node.IsArray()) {
    const rapidjson::SizeType Size = Node.Size();
    switch (Rng() % 4) {
      case 0:
        if (Size > 0) Node.Erase(Node.Begin() + Rng() % Size);
        break;
      case 1:
        if (Size > 0) {
          Value Copy(Node[static_cast<rapidjson::SizeType>(Rng() % Size)], Alloc);
          Node.PushBack(Copy, Alloc);
        }
        break;
      case 2: Node.Clear(); break;
      default: {
        Value Copy(Other, Alloc);
        Node.PushBack(Copy, Alloc);
      }
    }
  } else if (Node.IsObject()) {
    const rapidjson::SizeType Size = Node.MemberCount();
    auto Member = Node.MemberBegin() + (Size > 0 ? Rng() % Size : 0);
    switch (Rng() % 3) {
      case 0:
        if (Size > 0) Node.EraseMember(Member);
        break;
      case 1:
        if (Size > 0) Member->value.SetNull();  // null removes a member of the built-in board
        break;
      default: {
        // A member named like one found elsewhere in the board.
        std::vector<const Value *> Names;
        for (const Slot &Each : All) {
          if (!Each.Node->IsObject()) continue;
          for (auto It = Each.Node->MemberBegin(); It != Each.Node->MemberEnd(); ++It) Names.push_back(&It->name);
        }
        if (Names.empty()) break;
        Value Name(*Names[Rng() % Names.size()], Alloc);
        Value Copy(Other, Alloc);
        Node.AddMember(Name, Copy, Alloc);
      }
    }
  }
}

size_t WriteOut(const rapidjson::Document &Document, uint8_t *Out, size_t MaxSize) {
  rapidjson::StringBuffer Buffer;
  rapidjson::Writer<rapidjson::StringBuffer> Writer(Buffer);
  if (!Document.Accept(Writer) || Buffer.GetSize() > MaxSize) return 0;
  std::memcpy(Out, Buffer.GetString(), Buffer.GetSize());
  return Buffer.GetSize();
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *Data, size_t Size, size_t MaxSize, unsigned int Seed) {
  Random Rng(Seed);
  rapidjson::Document Document;
  if (Rng() % 8 == 0 || !ParseBoardText(Data, Size, &Document)) return LLVMFuzzerMutate(Data, Size, MaxSize);
  for (unsigned Steps = 1 + Rng() % 3; Steps > 0; Steps--) MutateOnce(Document, Rng);
  size_t Written = WriteOut(Document, Data, MaxSize);
  return Written != 0 ? Written : LLVMFuzzerMutate(Data, Size, MaxSize);
}

// Grafts a random part of the second board into a random place of the first.
extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t *Data1, size_t Size1, const uint8_t *Data2, size_t Size2,
                                            uint8_t *Out, size_t MaxOutSize, unsigned int Seed) {
  Random Rng(Seed);
  rapidjson::Document First, Second;
  if (!ParseBoardText(Data1, Size1, &First) || !ParseBoardText(Data2, Size2, &Second)) return 0;
  std::vector<Slot> Targets = Slots(First);
  std::vector<Slot> Sources = Slots(Second);
  Value &Target = *Targets[Rng() % Targets.size()].Node;
  Replace(Target, *Sources[Rng() % Sources.size()].Node, First.GetAllocator());
  if (!First.IsObject()) return 0;
  return WriteOut(First, Out, MaxOutSize);
}
