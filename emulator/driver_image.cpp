#include "emulator/driver_image.h"

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>

namespace qor::emu {

std::string DriverImage::DefaultPath() {
  const char *Override = std::getenv("QOR_DRIVER_IMAGE");
  if (Override != nullptr && *Override != '\0') return Override;
  return QOR_DRIVER_IMAGE_PATH;
}

DriverImage::DriverImage(const std::string &Path) {
  Handle_ = dlopen(Path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (Handle_ == nullptr) throw std::runtime_error("cannot load the driver image " + Path + ": " + dlerror());
  Entry_ = reinterpret_cast<ImageEntryPoint>(dlsym(Handle_, "_ModuleEntryPoint"));
  if (Entry_ == nullptr) {
    dlclose(Handle_);
    throw std::runtime_error("the driver image " + Path + " has no _ModuleEntryPoint");
  }
}

DriverImage::~DriverImage() {
  if (Handle_ != nullptr) dlclose(Handle_);
}

}  // namespace qor::emu
