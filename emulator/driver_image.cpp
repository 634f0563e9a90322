#include "emulator/driver_image.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <stdexcept>
#include <vector>

namespace qor::emu {

namespace {

bool gResident = false;

// One writable range of a loaded image and the bytes it held after loading.
struct WritableRange {
  uint8_t *Start;
  std::vector<uint8_t> Initial;
};

struct ResidentImage {
  void *Handle = nullptr;
  ImageEntryPoint Entry = nullptr;
  std::vector<WritableRange> Ranges;
};

struct SegmentSearch {
  const link_map *Map;
  std::vector<std::pair<uintptr_t, uintptr_t>> Writable;  // [start, end)
  bool Found = false;
};

// The image's writable load segments, less the part the loader makes
// read-only after relocation (GNU_RELRO, whole pages).
int CollectWritable(dl_phdr_info *Info, size_t, void *Context) {
  auto *Search = static_cast<SegmentSearch *>(Context);
  if (Info->dlpi_addr != Search->Map->l_addr || Info->dlpi_name == nullptr ||
      std::strcmp(Info->dlpi_name, Search->Map->l_name) != 0) {
    return 0;
  }
  Search->Found = true;
  const uintptr_t Page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  uintptr_t RelroStart = 0, RelroEnd = 0;
  for (int I = 0; I < Info->dlpi_phnum; I++) {
    const ElfW(Phdr) &Header = Info->dlpi_phdr[I];
    if (Header.p_type != PT_GNU_RELRO) continue;
    RelroStart = (Info->dlpi_addr + Header.p_vaddr) & ~(Page - 1);
    RelroEnd = (Info->dlpi_addr + Header.p_vaddr + Header.p_memsz) & ~(Page - 1);
  }
  for (int I = 0; I < Info->dlpi_phnum; I++) {
    const ElfW(Phdr) &Header = Info->dlpi_phdr[I];
    if (Header.p_type != PT_LOAD || (Header.p_flags & PF_W) == 0) continue;
    uintptr_t Start = Info->dlpi_addr + Header.p_vaddr;
    uintptr_t End = Start + Header.p_memsz;
    if (RelroStart < RelroEnd && Start < RelroEnd && RelroStart < End) {
      if (Start < RelroStart) Search->Writable.emplace_back(Start, RelroStart);
      Start = RelroEnd > Start ? RelroEnd : Start;
    }
    if (Start < End) Search->Writable.emplace_back(Start, End);
  }
  return 1;
}

// A plain byte copy the address sanitizer does not look at: the image's
// data holds the red zones it placed between globals, and they are copied
// back as they were.
__attribute__((no_sanitize("address"))) void CopyRaw(volatile uint8_t *To, const volatile uint8_t *From, size_t Size) {
  for (size_t I = 0; I < Size; I++) To[I] = From[I];
}

void *Load(const std::string &Path, ImageEntryPoint *Entry) {
  void *Handle = dlopen(Path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (Handle == nullptr) throw std::runtime_error("cannot load the driver image " + Path + ": " + dlerror());
  *Entry = reinterpret_cast<ImageEntryPoint>(dlsym(Handle, "_ModuleEntryPoint"));
  if (*Entry == nullptr) {
    dlclose(Handle);
    throw std::runtime_error("the driver image " + Path + " has no _ModuleEntryPoint");
  }
  return Handle;
}

std::map<std::string, ResidentImage> &ResidentImages() {
  static std::map<std::string, ResidentImage> Images;
  return Images;
}

ResidentImage &LoadResident(const std::string &Path) {
  auto &Images = ResidentImages();
  auto Known = Images.find(Path);
  if (Known != Images.end()) return Known->second;
  ResidentImage Image;
  Image.Handle = Load(Path, &Image.Entry);
  SegmentSearch Search{};
  if (dlinfo(Image.Handle, RTLD_DI_LINKMAP, &Search.Map) != 0 || Search.Map == nullptr) {
    throw std::runtime_error("cannot find the load map of the driver image " + Path);
  }
  dl_iterate_phdr(CollectWritable, &Search);
  if (!Search.Found) throw std::runtime_error("cannot find the segments of the driver image " + Path);
  for (const auto &[Start, End] : Search.Writable) {
    WritableRange Range{reinterpret_cast<uint8_t *>(Start), std::vector<uint8_t>(End - Start)};
    CopyRaw(Range.Initial.data(), Range.Start, Range.Initial.size());
    Image.Ranges.push_back(std::move(Range));
  }
  return Images.emplace(Path, std::move(Image)).first->second;
}

}  // namespace

std::string DriverImage::DefaultPath() {
  const char *Override = std::getenv("QOR_DRIVER_IMAGE");
  if (Override != nullptr && *Override != '\0') return Override;
  return QOR_DRIVER_IMAGE_PATH;
}

void DriverImage::KeepResident(bool Resident) { gResident = Resident; }
bool DriverImage::Resident() { return gResident; }

DriverImage::DriverImage(const std::string &Path) {
  // An image kept resident earlier stays mapped: dlopen would hand back its
  // used data, so it is put back as after loading in either mode.
  if (!gResident && ResidentImages().count(Path) == 0) {
    Handle_ = Load(Path, &Entry_);
    return;
  }
  ResidentImage &Image = LoadResident(Path);
  for (WritableRange &Range : Image.Ranges) CopyRaw(Range.Start, Range.Initial.data(), Range.Initial.size());
  Entry_ = Image.Entry;
}

DriverImage::~DriverImage() {
  if (Handle_ != nullptr) dlclose(Handle_);
}

}  // namespace qor::emu
