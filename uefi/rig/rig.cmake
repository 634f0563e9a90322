# The firmware test rig's loader (uefi/rig): a UEFI application built with
# the same freestanding toolchain as QorUploadDataDxe.efi, on the same
# platform layer. OVMF starts it as EFI/BOOT/BOOTX64.EFI
# (scripts/firmware-test.sh lays out the drive).
file(GLOB QOR_RIG_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/uefi/rig/*.cpp)
file(GLOB QOR_RIG_HEADERS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/uefi/rig/*.h ${CMAKE_SOURCE_DIR}/platform/*.h)
file(GLOB QOR_RIG_PLATFORM_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/platform/*.cpp)
list(FILTER QOR_RIG_PLATFORM_SOURCES EXCLUDE REGEX "cpu_access_host\\.cpp$")
set(QOR_RIG_LOADER_EFI ${CMAKE_BINARY_DIR}/QorRigLoader.efi)
add_custom_command(OUTPUT ${QOR_RIG_LOADER_EFI}
  COMMAND ${QOR_CLANGXX} ${QOR_FIRMWARE_IMAGE_FLAGS} -Wall -Wextra -Wno-unused-parameter
    -Wl,-entry:QorRigEntry -Wl,-subsystem:efi_application
    ${QOR_RIG_SOURCES} ${QOR_RIG_PLATFORM_SOURCES} ${CMAKE_SOURCE_DIR}/uefi/freestanding_support.cpp
    -o ${QOR_RIG_LOADER_EFI}
  DEPENDS ${QOR_RIG_SOURCES} ${QOR_RIG_HEADERS} ${QOR_RIG_PLATFORM_SOURCES}
  COMMENT "Building QorRigLoader.efi (PE32+, EFI application: the firmware test rig's loader)"
  VERBATIM)
add_custom_target(firmware_rig_loader ALL DEPENDS ${QOR_RIG_LOADER_EFI})
