// The json protocol, backed by RapidJSON's SAX reader and pretty writer, so
// member order and duplicate keys pass through untouched.
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>

#include <cstring>

#include "emulator/platform.h"

namespace qor::emu {

namespace {
// Numbers are carried as their text, never re-rendered.
constexpr unsigned kParseFlags = rapidjson::kParseNumbersAsStringsFlag;

// Forwards the reader's events to the pretty writer; numbers go out as the
// exact text they came in (the writer's own RawNumber would quote them).
struct NumberPreservingHandler {
  rapidjson::PrettyWriter<rapidjson::StringBuffer> &Out;
  bool Null() { return Out.Null(); }
  bool Bool(bool Value) { return Out.Bool(Value); }
  bool Int(int Value) { return Out.Int(Value); }
  bool Uint(unsigned Value) { return Out.Uint(Value); }
  bool Int64(int64_t Value) { return Out.Int64(Value); }
  bool Uint64(uint64_t Value) { return Out.Uint64(Value); }
  bool Double(double Value) { return Out.Double(Value); }
  bool RawNumber(const char *Text, rapidjson::SizeType Length, bool) {
    return Out.RawValue(Text, Length, rapidjson::kNumberType);
  }
  bool String(const char *Text, rapidjson::SizeType Length, bool Copy) { return Out.String(Text, Length, Copy); }
  bool StartObject() { return Out.StartObject(); }
  bool Key(const char *Text, rapidjson::SizeType Length, bool Copy) { return Out.Key(Text, Length, Copy); }
  bool EndObject(rapidjson::SizeType Count) { return Out.EndObject(Count); }
  bool StartArray() { return Out.StartArray(); }
  bool EndArray(rapidjson::SizeType Count) { return Out.EndArray(Count); }
};

EFI_STATUS StatusOverride() {
  Platform *Current = Platform::Current();
  if (Current != nullptr && Current->GetBoard().Faults.JsonStatus) return *Current->GetBoard().Faults.JsonStatus;
  return EFI_SUCCESS;
}

EFI_STATUS EFIAPI PrettyPrint(QOR_JSON_PROTOCOL *, CONST CHAR8 *Input, UINTN OutputSize, CHAR8 *Output) {
  EFI_STATUS Forced = StatusOverride();
  if (EFI_ERROR(Forced)) return Forced;
  return JsonPrettyPrintText(Input, OutputSize, Output);
}

EFI_STATUS EFIAPI Validate(QOR_JSON_PROTOCOL *, CONST CHAR8 *Text) {
  EFI_STATUS Forced = StatusOverride();
  if (EFI_ERROR(Forced)) return Forced;
  return JsonValidateText(Text);
}
}  // namespace

EFI_STATUS JsonValidateText(const char *Text) {
  if (Text == nullptr) return EFI_INVALID_PARAMETER;
  rapidjson::Reader Reader;
  rapidjson::StringStream Stream(Text);
  rapidjson::BaseReaderHandler<> Handler;
  return Reader.Parse<kParseFlags>(Stream, Handler) ? EFI_SUCCESS : EFI_INVALID_PARAMETER;
}

EFI_STATUS JsonPrettyPrintText(const char *Text, size_t OutputSize, char *Output) {
  if (Text == nullptr || Output == nullptr) return EFI_INVALID_PARAMETER;
  rapidjson::Reader Reader;
  rapidjson::StringStream Stream(Text);
  rapidjson::StringBuffer Buffer;
  rapidjson::PrettyWriter<rapidjson::StringBuffer> Writer(Buffer);
  NumberPreservingHandler Handler{Writer};
  if (!Reader.Parse<kParseFlags>(Stream, Handler)) return EFI_INVALID_PARAMETER;
  if (Buffer.GetSize() + 1 > OutputSize) return EFI_BUFFER_TOO_SMALL;
  std::memcpy(Output, Buffer.GetString(), Buffer.GetSize() + 1);
  return EFI_SUCCESS;
}

void InitJsonProtocol(QOR_JSON_PROTOCOL *Protocol) {
  std::memset(Protocol, 0, sizeof(*Protocol));
  Protocol->PrettyPrint = PrettyPrint;
  Protocol->Validate = Validate;
}

}  // namespace qor::emu
