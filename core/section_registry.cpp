// The fourteen sections in upload order. A section without a filler yet has
// no Fill; its event then logs "Invalid Type" and it is uploaded as "{}".
#include "core/upload_section.h"
#include "core/section_fillers.h"

UPLOAD_SECTION gQorUploadSections[QOR_SECTION_COUNT] = {
    {"BiosVersion", 0x2000, QorFillBiosVersion, FALSE, nullptr, 0, 0},
    {"PchInfo", 0x10000, QorFillPchInfo, FALSE, nullptr, 0, 0},
    {"CpuInfo", 0x80000, QorFillCpuInfo, FALSE, nullptr, 0, 0},
    {"DimmResultInfo", 0x100000, QorFillDimmResult, FALSE, nullptr, 0, 0},
    {"DimmInfo", 0x100000, QorFillDimmInfo, FALSE, nullptr, 0, 0},
    {"VmdInfo", 0x2000, QorFillVmdInfo, FALSE, nullptr, 0, 0},
    {"TpmInfo", 0x2000, QorFillTpmInfo, FALSE, nullptr, 0, 0},
    {"OnBoardSataInfo", 0x80000, QorFillSataInfo, FALSE, nullptr, 0, 0},
    {"PcieDevice", 0x80000, QorFillPcieDevice, FALSE, nullptr, 0, 0},
    {"PcieTopology", 0x80000, QorFillPcieTopology, FALSE, nullptr, 0, 0},
    {"MiscInfo", 0x80000, QorFillMiscInfo, FALSE, nullptr, 0, 0},
    {"PcieResource", 0x80000, QorFillPcieResource, FALSE, nullptr, 0, 0},
    {"MemoryMap", 0x80000, QorFillMemoryMap, FALSE, nullptr, 0, 0},
    {"IioInfo", 0x10000, QorUpdateIioInfo, FALSE, nullptr, 0, 0},
};

UINT64 TotalBufferSize = 0;
VOID *MrcHobData = nullptr;
BOOLEAN DataUploaded = FALSE;
