# Install rules and the exported package of the host build.
#
# Installs the static libraries (the manager, the time-zone guess of the
# mains frequency, the host platform, the open algorithm and the simulator),
# their headers, a CMake package (find_package(flicker), targets flicker::mgr,
# flicker::zone_mains, flicker::host_platform, flicker::open_algo,
# flicker::sim, flicker::platform_api and the bundle flicker::host) and a
# pkg-config file (flicker.pc).
#
# The libraries are static archives and the manager calls its platform and its
# algorithm through plain symbols, so a program links the manager first, then
# a platform and an algorithm: flicker::mgr flicker::host_platform
# flicker::open_algo (or simply flicker::host).
#
# Included last by the top-level CMakeLists.txt, when every library has been
# added.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

option(FLICKER_INSTALL "Generate the install rules and the exported package" ON)
if(NOT FLICKER_INSTALL)
  return()
endif()

set(FLICKER_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/flicker)
set(FLICKER_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/flicker)

# Include folders of a target that lie in this tree are only valid in the
# build; wrap them so that the exported target uses the installed headers.
function(flicker_install_relocate_includes target)
  get_target_property(dirs ${target} INTERFACE_INCLUDE_DIRECTORIES)
  set(relocated "")
  if(dirs)
    foreach(dir IN LISTS dirs)
      string(FIND "${dir}" "${PROJECT_SOURCE_DIR}/" in_source)
      string(FIND "${dir}" "${PROJECT_BINARY_DIR}/" in_build)
      if(in_source EQUAL 0 OR in_build EQUAL 0)
        list(APPEND relocated "$<BUILD_INTERFACE:${dir}>")
      else()
        list(APPEND relocated "${dir}")  # generator expressions and system folders as they are
      endif()
    endforeach()
  endif()
  foreach(sub IN LISTS ARGN)
    list(APPEND relocated "$<INSTALL_INTERFACE:${FLICKER_INSTALL_INCLUDEDIR}${sub}>")
  endforeach()
  set_property(TARGET ${target} PROPERTY INTERFACE_INCLUDE_DIRECTORIES "${relocated}")
endfunction()

# Installs the headers of `dir` (not recursive) under the package's include
# folder, in `sub` ("" or "/name").
function(flicker_install_headers dir sub)
  file(GLOB headers ${PROJECT_SOURCE_DIR}/${dir}/*.h)
  if(headers)
    install(FILES ${headers} DESTINATION ${FLICKER_INSTALL_INCLUDEDIR}${sub})
  endif()
endfunction()

# target -> exported name, extra include folder (relative to include/flicker)
set(flicker_install_parts
  "flicker_platform_api|platform_api|"
  "flicker_mgr|mgr|"
  "flicker_zone_mains|zone_mains|"
  "flicker_host_platform|host_platform|/host"
  "flicker_open_algo|open_algo|/algo"
  "flicker_sim|sim|/sim")

set(FLICKER_INSTALLED_TARGETS "")
set(FLICKER_INSTALLED_COMPONENTS "")
foreach(part IN LISTS flicker_install_parts)
  string(REPLACE "|" ";" fields "${part}")
  list(GET fields 0 target)
  list(GET fields 1 export_name)
  list(LENGTH fields count)
  set(sub "")
  if(count GREATER 2)
    list(GET fields 2 sub)
  endif()
  set_property(TARGET ${target} PROPERTY EXPORT_NAME ${export_name})
  if(sub)
    flicker_install_relocate_includes(${target} "" "/platform" "${sub}")
  else()
    flicker_install_relocate_includes(${target} "" "/platform")
  endif()
  list(APPEND FLICKER_INSTALLED_TARGETS ${target})
  list(APPEND FLICKER_INSTALLED_COMPONENTS ${export_name})
endforeach()

install(TARGETS ${FLICKER_INSTALLED_TARGETS}
  EXPORT flicker-targets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

flicker_install_headers(aaa/common/flicker "")
flicker_install_headers(aaa/common/flicker/zone "")
flicker_install_headers(aaa/common/flicker/platform "/platform")
flicker_install_headers(camera_stack/include "")
flicker_install_headers(camera_stack/host "/host")
flicker_install_headers(algo "/algo")
flicker_install_headers(sim "/sim")

install(EXPORT flicker-targets
  NAMESPACE flicker::
  FILE flicker-targets.cmake
  DESTINATION ${FLICKER_INSTALL_CMAKEDIR})

configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/flicker-config.cmake.in
  ${PROJECT_BINARY_DIR}/flicker-config.cmake
  INSTALL_DESTINATION ${FLICKER_INSTALL_CMAKEDIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/flicker-config-version.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/flicker-config.cmake
  ${PROJECT_BINARY_DIR}/flicker-config-version.cmake
  DESTINATION ${FLICKER_INSTALL_CMAKEDIR})

# pkg-config: one module with the host stack, libraries in link order. The
# prefix is found from the .pc file's own place, so the tree can be moved.
set(FLICKER_PC_LIBS " -lflicker_mgr -lflicker_host_platform -lflicker_zone_mains -lflicker_open_algo")
set(FLICKER_PC_CFLAGS
    "-I\${includedir}/flicker -I\${includedir}/flicker/platform -I\${includedir}/flicker/host")
file(RELATIVE_PATH FLICKER_PC_PREFIX_FROM_PCDIR
     /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" FLICKER_PC_PREFIX_FROM_PCDIR "${FLICKER_PC_PREFIX_FROM_PCDIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/flicker.pc.in ${PROJECT_BINARY_DIR}/flicker.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/flicker.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
