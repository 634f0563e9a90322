#include "emulator/boot.h"

#include <csetjmp>

#include "emulator/driver_image.h"
#include "emulator/pcd_database.h"
#include "emulator/pci/lspci_export.h"
#include "emulator/smbios_table.h"

namespace qor::emu {

const Upload *BootResult::FindUpload(const std::string &Name) const {
  const Upload *Found = nullptr;
  for (const Upload &Entry : Uploads) {
    if (Entry.Name == Name) Found = &Entry;
  }
  return Found;
}

namespace {

// Everything between here and a ResetSystem call may be abandoned by
// longjmp, so the steps run here keep no objects with destructors of their own.
struct BootSteps {
  Platform *Plat;
  const Board *B;
  ImageEntryPoint Entry;
  Firmware *Fw;
  EFI_STATUS EntryStatus;
};

bool RunSteps(BootSteps *Steps) {
  std::jmp_buf ResetTarget;
  Steps->Fw->ArmResetTarget(&ResetTarget);
  if (setjmp(ResetTarget) != 0) {
    Steps->Fw->ArmResetTarget(nullptr);
    return false;
  }
  for (const std::string &Name : Steps->B->Triggers.BeforeEntry) Steps->Plat->InstallTrigger(Name);
  Steps->EntryStatus = Steps->Entry(Steps->Fw->ImageHandle(), Steps->Fw->SystemTable());
  for (const std::string &Name : Steps->B->Triggers.Order) Steps->Plat->InstallTrigger(Name);
  Steps->Fw->ArmResetTarget(nullptr);
  return true;
}

}  // namespace

BootResult RunBoot(const Board &Board, const std::vector<Variable> *Variables, const std::string &DriverPath) {
  BootResult Result;
  DriverImage Image(DriverPath.empty() ? DriverImage::DefaultPath() : DriverPath);
  Firmware Fw;
  Platform Plat(Fw, Board);
  Plat.Install();
  Result.LspciDump = LspciDumpOf(Plat.Pci());
  if (Variables != nullptr) {
    Fw.Variables().Clear();
    for (const Variable &Value : *Variables) Fw.Variables().Put(Value);
  }

  BootSteps Steps{&Plat, &Board, Image.Entry(), &Fw, EFI_NOT_STARTED};
  RunSteps(&Steps);

  Result.EntryStatus = Steps.EntryStatus;
  Result.Uploads = Plat.Uploads();
  Result.IpmiRequests = Plat.IpmiRequests();
  Result.DebugLines = Plat.DebugLines();
  Result.DebugLog = Plat.DebugLog();
  Result.Resets = Fw.Resets();
  Result.TriggersInstalled = Plat.TriggersInstalled();
  Result.VariableWrites = Fw.Variables().Writes();
  Result.VariablesAfter = Fw.Variables().All();
  Result.Pool = Fw.GetPool().Counters();
  Result.AllocationsHeldAtEnd = Fw.GetPool().LiveAllocationCount();
  Result.ServiceCalls = Fw.Counters().Calls;
  Result.CpuAccesses = Plat.CpuAccessCount();
  Result.PciConfigReads = Plat.Pci().TotalReads();
  Result.PciConfigWrites = Plat.Pci().TotalWrites();
  Result.PciAbsentReads = Plat.Pci().AbsentCounts().Reads;
  for (const auto &[Location, Function] : Plat.Pci().Functions()) {
    Result.PciFunctionCosts.push_back({Location.Text(), Function->Counts().Reads, Function->Counts().Writes});
  }
  if (const SmbiosStore *Smbios = Plat.Smbios()) {
    Result.SmbiosDump = SmbiosDumpFile(Smbios->Records(), Smbios->MajorVersion(), Smbios->MinorVersion());
  }
  if (PcdDatabase::Current() != nullptr) Result.UnknownPcdTokens = PcdDatabase::Current()->UnknownTokens();
  return Result;
}

std::vector<BootResult> RunBoots(const Board &Board, int Count, const std::string &DriverPath) {
  std::vector<BootResult> Results;
  std::vector<Variable> Carried;
  for (int I = 0; I < Count; I++) {
    Results.push_back(RunBoot(Board, I == 0 ? nullptr : &Carried, DriverPath));
    Carried.clear();
    for (const Variable &Value : Results.back().VariablesAfter) {
      if ((Value.Attributes & EFI_VARIABLE_NON_VOLATILE) != 0) Carried.push_back(Value);
    }
  }
  return Results;
}

}  // namespace qor::emu
