// qor-emu: boots QorUploadDataDxe on a board description in the host
// firmware emulator and writes what the BMC would receive.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "emulator/board.h"
#include "emulator/boot.h"
#include "emulator/boot_report.h"
#include "tools/boot_summary.h"
#include "tools/output_folder.h"

namespace {

const char kHelp[] =
    "Usage: qor-emu [--board FILE] [--out DIR] [--boots N]\n"
    "\n"
    "Boots the QorUploadDataDxe driver in the host firmware emulator on a board\n"
    "description and writes what the BMC would receive.\n"
    "\n"
    "  --board FILE  board description (JSON, see docs/board-format.md). Without\n"
    "                it the built-in board is used: a 2-socket server.\n"
    "  --out DIR     output folder (default: out). Created if missing. Before the\n"
    "                boots, what qor-emu writes there (the files below and boot-K\n"
    "                folders) is removed, so nothing from an earlier run looks\n"
    "                sent; anything else in the folder is left alone.\n"
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
    "The terminal shows, per boot: the entry status, the sections filled, each\n"
    "send with its size, CRC32 and status, the documents not sent, the sections\n"
    "this driver has no filler for yet, and the error-level log lines.\n"
    "\n"
    "Exit status: 0 after the boots ran (whatever the driver did), 1 when the\n"
    "board cannot be read or is not valid (the message names the field and what\n"
    "was expected) or when the outputs cannot be written or old ones removed,\n"
    "2 on bad command-line arguments.\n";

int Usage(const std::string &Message) {
  std::fprintf(stderr, "qor-emu: %s\nTry 'qor-emu --help'.\n", Message.c_str());
  return 2;
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
    qor::tool::RemoveOwnedOutputs(OutDir);
    auto Results = qor::emu::RunBoots(Board, Boots);
    for (size_t K = 0; K < Results.size(); K++) {
      std::string Directory = Boots == 1 ? OutDir : OutDir + "/boot-" + std::to_string(K + 1);
      // A board that changes between boots names each boot's board.
      const qor::emu::Board &ThisBoot = qor::emu::BoardForBoot(Board, static_cast<int>(K + 1));
      qor::emu::WriteBootOutputs(Directory, ThisBoot, Results[K], static_cast<int>(K + 1));
      std::string BoardName = ThisBoot.Name != Board.Name ? ThisBoot.Name : "";
      std::fputs(qor::tool::BootSummary(Results[K], Directory, static_cast<int>(K + 1), Boots, BoardName).c_str(), stdout);
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
