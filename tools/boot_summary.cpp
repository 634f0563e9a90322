#include "tools/boot_summary.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "emulator/boot_report.h"
#include "platform/print_lib.h"

namespace qor::tool {

namespace {

constexpr uint64_t kErrorLevel = 0x80000000ULL;
const char *const kSentNames[] = {"push_BiosBeforeBoot.json", "push_FlashInfo.json"};

// The section index of the event-callback line for a section without a
// filler ("Invalid Type 8\n"), or -1 for any other line.
int NoFillerIndex(const qor::emu::DebugLine &Line) {
  unsigned Index = 0;
  int Consumed = 0;
  if ((Line.Level & kErrorLevel) == 0) return -1;
  if (std::sscanf(Line.Text.c_str(), "Invalid Type %u%n", &Index, &Consumed) != 1) return -1;
  if (Line.Text.compare(static_cast<size_t>(Consumed), std::string::npos, "\n") != 0) return -1;
  return Index < qor::emu::kSectionNames.size() ? static_cast<int>(Index) : -1;
}

std::string Format(const char *Format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char *Format, ...) {
  char Line[512];
  va_list Args;
  va_start(Args, Format);
  std::vsnprintf(Line, sizeof(Line), Format, Args);
  va_end(Args);
  return Line;
}

std::string StatusText(EFI_STATUS Status) {
  const char *Text = QorStatusText(Status);
  return Text != nullptr ? Text : Format("0x%llX", static_cast<unsigned long long>(Status));
}

}  // namespace

std::vector<std::string> SectionsWithoutFiller(const qor::emu::BootResult &Result) {
  std::vector<bool> Reported(qor::emu::kSectionNames.size(), false);
  for (const auto &Line : Result.DebugLines) {
    int Index = NoFillerIndex(Line);
    if (Index >= 0) Reported[static_cast<size_t>(Index)] = true;
  }
  std::vector<std::string> Names;
  for (size_t I = 0; I < Reported.size(); I++) {
    if (Reported[I]) Names.push_back(qor::emu::kSectionNames[I]);
  }
  return Names;
}

std::string BootSummary(const qor::emu::BootResult &Result, const std::string &Directory, int BootNumber, int Boots,
                        const std::string &BoardName) {
  std::string Out;
  if (Boots > 1) Out += Format("== boot %d ==\n", BootNumber);
  if (!BoardName.empty()) Out += "board: " + BoardName + "\n";
  Out += "driver entry: " + StatusText(Result.EntryStatus) + "\n";

  int Filled = 0;
  std::string Missing;
  const auto States = qor::emu::SectionStates(Result);
  for (const auto &State : States) {
    if (State.State == "filled") {
      Filled++;
    } else {
      Missing += " " + State.Name + "(" + State.State + ")";
    }
  }
  Out += Format("sections filled: %d of %zu%s%s\n", Filled, States.size(), Missing.empty() ? "" : ", not:",
                Missing.c_str());
  const auto NoFiller = SectionsWithoutFiller(Result);
  if (!NoFiller.empty()) {
    std::string List;
    for (const auto &Name : NoFiller) List += (List.empty() ? "" : ", ") + Name;
    Out += "no filler yet in this driver: " + List + " (sent as {})\n";
  }

  for (const auto &Entry : Result.Uploads) {
    const bool Sent = !EFI_ERROR(Entry.Status);
    Out += Format("upload: %-28s %8zu bytes  crc32 0x%08X  %s%s\n", Entry.StoredName.c_str(), Entry.Bytes.size(),
                  qor::emu::Crc32Of(Entry.Bytes), Sent ? "sent: " : "send FAILED: ", StatusText(Entry.Status).c_str());
  }
  for (const char *Name : kSentNames) {
    if (Result.FindUpload(Name) == nullptr) Out += Format("not sent: %s\n", Name);
  }
  if (!Result.Resets.empty()) {
    Out += Format("reset: %s, by the driver; the boot ended there\n", qor::emu::ResetTypeName(Result.Resets.front().Type));
  }

  // Error-level lines, each distinct text once with its count, in order;
  // the no-filler lines are said above.
  std::vector<std::pair<std::string, size_t>> Warnings;
  for (const auto &Line : Result.DebugLines) {
    if ((Line.Level & kErrorLevel) == 0 || NoFillerIndex(Line) >= 0) continue;
    auto Same = std::find_if(Warnings.begin(), Warnings.end(), [&](const auto &W) { return W.first == Line.Text; });
    if (Same == Warnings.end()) {
      Warnings.emplace_back(Line.Text, 1);
    } else {
      Same->second++;
    }
  }
  for (size_t I = 0; I < Warnings.size() && I < 10; I++) {
    std::string Text = Warnings[I].first;
    if (!Text.empty() && Text.back() == '\n') Text.pop_back();
    if (Warnings[I].second > 1) Text += " (" + std::to_string(Warnings[I].second) + " times)";
    Out += "warning: " + Text + "\n";
  }
  if (Warnings.size() > 10) Out += Format("warning: ... %zu more kinds in debug.log\n", Warnings.size() - 10);
  Out += "outputs: " + Directory + "\n";
  return Out;
}

}  // namespace qor::tool
