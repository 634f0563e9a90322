// qor-emu: boots QorUploadDataDxe on a board description in the host
// firmware emulator and writes what the BMC would receive.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/boot_report.h"
#include "platform/print_lib.h"

namespace {

const char kHelp[] =
    "Usage: qor-emu [--board FILE] [--out DIR] [--boots N]\n"
    "\n"
    "Boots the QorUploadDataDxe driver in the host firmware emulator on a board\n"
    "description and writes what the BMC would receive.\n"
    "\n"
    "  --board FILE  board description (JSON, see docs/board-format.md). Without\n"
    "                it the built-in board is used: a 2-socket server.\n"
    "  --out DIR     output folder (default: out). Created if missing.\n"
    "  --boots N     boots in a row (default 1). Non-volatile variables carry over\n"
    "                from one boot to the next, volatile ones are dropped, as after\n"
    "                a reset. With N > 1 each boot writes into DIR/boot-K.\n"
    "  --help        this text.\n"
    "\n"
    "Outputs, per boot:\n"
    "  push_BiosBeforeBoot.json, push_FlashInfo.json\n"
    "                 the files sent to the BMC, byte for byte; a second send of\n"
    "                 the same name is kept as NAME.2.json, NAME.3.json, ...\n"
    "  debug.log      everything the driver printed through the debug service\n"
    "  boot.json      uploads with size and CRC32, IPMI requests to the BMC (SDL\n"
    "                 messages), section states, reset, variables written,\n"
    "                 allocation and service-call counters, warnings\n"
    "  variables.json the variable store after the boot\n"
    "  lspci.txt      the PCI configuration space before the driver's entry, in\n"
    "                 the lspci -xxxx format `lspci -F lspci.txt -vvv` decodes\n"
    "  smbios.bin     the SMBIOS table the firmware served, with its entry point,\n"
    "                 in the dump format `dmidecode --from-dump smbios.bin` decodes\n"
    "\n"
    "Exit status: 0 after the boots ran, 1 when the board cannot be read or is\n"
    "not valid (the message names the field and what was expected), 2 on bad\n"
    "command-line arguments.\n";

int Usage(const std::string &Message) {
  std::fprintf(stderr, "qor-emu: %s\nTry 'qor-emu --help'.\n", Message.c_str());
  return 2;
}

void PrintSummary(const qor::emu::BootResult &Result, const std::string &Directory, int BootNumber, int Boots) {
  if (Boots > 1) std::printf("== boot %d ==\n", BootNumber);
  const char *EntryText = QorStatusText(Result.EntryStatus);
  std::printf("driver entry: %s\n", EntryText != nullptr ? EntryText : "unknown status");
  int Filled = 0;
  std::string Missing;
  auto States = qor::emu::SectionStates(Result);
  for (const auto &State : States) {
    if (State.State == "filled") {
      Filled++;
    } else {
      Missing += " " + State.Name + "(" + State.State + ")";
    }
  }
  std::printf("sections filled: %d of %zu%s%s\n", Filled, States.size(), Missing.empty() ? "" : ", not:",
              Missing.c_str());
  if (Result.Uploads.empty()) std::printf("uploads: none\n");
  for (const auto &Entry : Result.Uploads) {
    std::printf("upload: %-28s %8zu bytes  crc32 0x%08X\n", Entry.StoredName.c_str(), Entry.Bytes.size(),
                qor::emu::Crc32Of(Entry.Bytes));
  }
  if (!Result.Resets.empty()) std::printf("reset: the driver reset the machine; the boot ended there\n");
  // Error-level lines, each distinct text once with its count, in order.
  std::vector<std::pair<std::string, size_t>> Warnings;
  for (const auto &Line : Result.DebugLines) {
    if ((Line.Level & 0x80000000ULL) == 0) continue;
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
    std::printf("warning: %s\n", Text.c_str());
  }
  if (Warnings.size() > 10) std::printf("warning: ... %zu more kinds in debug.log\n", Warnings.size() - 10);
  std::printf("outputs: %s\n", Directory.c_str());
}

}  // namespace

int main(int Argc, char **Argv) {
  std::string BoardPath;
  std::string OutDir = "out";
  int Boots = 1;
  for (int I = 1; I < Argc; I++) {
    std::string Arg = Argv[I];
    auto Value = [&](const char *Name) -> const char * {
      if (I + 1 >= Argc) return nullptr;
      (void)Name;
      return Argv[++I];
    };
    if (Arg == "--help" || Arg == "-h") {
      std::fputs(kHelp, stdout);
      return 0;
    } else if (Arg == "--board") {
      const char *V = Value("--board");
      if (V == nullptr) return Usage("--board needs a file");
      BoardPath = V;
    } else if (Arg == "--out") {
      const char *V = Value("--out");
      if (V == nullptr) return Usage("--out needs a folder");
      OutDir = V;
    } else if (Arg == "--boots") {
      const char *V = Value("--boots");
      char *End = nullptr;
      long Count = V == nullptr ? 0 : std::strtol(V, &End, 10);
      if (V == nullptr || *End != '\0' || Count < 1 || Count > 100) return Usage("--boots needs a number from 1 to 100");
      Boots = static_cast<int>(Count);
    } else {
      return Usage("unknown argument '" + Arg + "'");
    }
  }

  qor::emu::Board Board;
  try {
    Board = BoardPath.empty() ? qor::emu::BuiltInBoard() : qor::emu::LoadBoardFile(BoardPath);
  } catch (const qor::emu::BoardError &Error) {
    std::fprintf(stderr, "qor-emu: invalid board: %s\n", Error.what());
    return 1;
  }

  try {
    std::printf("board: %s\n", Board.Name.c_str());
    auto Results = qor::emu::RunBoots(Board, Boots);
    for (size_t K = 0; K < Results.size(); K++) {
      std::string Directory = Boots == 1 ? OutDir : OutDir + "/boot-" + std::to_string(K + 1);
      qor::emu::WriteBootOutputs(Directory, Board, Results[K], static_cast<int>(K + 1));
      PrintSummary(Results[K], Directory, static_cast<int>(K + 1), Boots);
    }
  } catch (const qor::emu::BoardError &Error) {
    std::fprintf(stderr, "qor-emu: invalid board: %s\n", Error.what());
    return 1;
  } catch (const std::exception &Error) {
    std::fprintf(stderr, "qor-emu: %s\n", Error.what());
    return 1;
  }
  return 0;
}
