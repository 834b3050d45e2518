# The install tree: libvox.so.1 with its headers under include/vox, the CMake package Vox (target Vox::vox) and
# vox.pc. The programs install themselves in their folders.
include(CMakePackageConfigHelpers)

install(TARGETS vox EXPORT VoxTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT VoxTargets NAMESPACE Vox:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Vox)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/Source/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vox FILES_MATCHING PATTERN "*.h"
        PATTERN "*-inl.h" EXCLUDE)  # libhwy stays inside
install(DIRECTORY ${CMAKE_SOURCE_DIR}/platform/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vox/platform
        FILES_MATCHING PATTERN "*.h" PATTERN "PropertyListNodes.h" EXCLUDE  # libplist and libusb stay inside
        PATTERN "LibUsb.h" EXCLUDE PATTERN "UsbObjects.h" EXCLUDE PATTERN "UsbPipe.h" EXCLUDE
        PATTERN "UsbRecords.h" EXCLUDE PATTERN "UsbSession.h" EXCLUDE)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/Resources/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vox FILES_MATCHING PATTERN "*.plist")

configure_package_config_file(${CMAKE_SOURCE_DIR}/cmake/VoxConfig.cmake.in ${CMAKE_BINARY_DIR}/VoxConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Vox)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/VoxConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(${CMAKE_SOURCE_DIR}/cmake/vox.pc.in ${CMAKE_BINARY_DIR}/vox.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/VoxConfig.cmake ${CMAKE_BINARY_DIR}/VoxConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Vox)
install(FILES ${CMAKE_BINARY_DIR}/vox.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Man pages, and completions for bash, zsh and fish, of the programs that are built.
set(man_pages vox.1 voxsim.1 voxjobd.8)
set(completed vox voxsim voxjobd)
set(completions ${CMAKE_SOURCE_DIR}/packaging/completions)
if(TARGET voxsim-usb)
  list(APPEND man_pages voxsim-usb.1)
  list(APPEND completed voxsim-usb)
endif()
foreach(program IN LISTS completed)
  string(REPLACE voxsim-usb voxsim file ${program})
  install(FILES ${completions}/${file} RENAME ${program} COMPONENT completions
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completions}/vox.fish RENAME ${program}.fish COMPONENT completions
          DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()
install(FILES ${completions}/_vox COMPONENT completions DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
install(PROGRAMS ${completions}/offer COMPONENT completions DESTINATION ${CMAKE_INSTALL_DATADIR}/vox-tools)
foreach(page IN LISTS man_pages)
  string(REGEX MATCH "[0-9]$" section ${page})
  install(FILES ${CMAKE_SOURCE_DIR}/docs/man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
if(TARGET sane-vox)
  install(FILES ${CMAKE_SOURCE_DIR}/docs/man/sane-vox.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT sane)
  install(FILES ${CMAKE_SOURCE_DIR}/packaging/com.veltronix.vox.metainfo.xml
          DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo COMPONENT sane)
endif()

# The component "usb" belongs to the machine, not to a prefix, and is installed only when it is asked for:
#   sudo cmake --install build/release --component usb && sudo systemd-hwdb update && sudo udevadm control --reload
install(FILES ${CMAKE_SOURCE_DIR}/packaging/60-vox.rules DESTINATION ${VOX_UDEV_FOLDER}/rules.d
        COMPONENT usb EXCLUDE_FROM_ALL)
install(FILES ${CMAKE_SOURCE_DIR}/packaging/60-vox.hwdb DESTINATION ${VOX_UDEV_FOLDER}/hwdb.d
        COMPONENT usb EXCLUDE_FROM_ALL)
