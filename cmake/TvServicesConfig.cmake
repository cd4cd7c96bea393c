# SPDX-License-Identifier: MIT
# TvServices: the libraries of the Win32 service daemon.
#   TvServices::base       what Win32 service programs use between their service calls
#   TvServices::registry   the Win32 registry functions
#   TvServices::service    the Win32 service functions, for clients and service programs
#   TvServices::win32      all of them, and the folder with windows.h
# Each with _static behind the name is the static library. Those that are installed are there.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(PkgConfig)
pkg_check_modules(TIRPC REQUIRED QUIET IMPORTED_TARGET libtirpc)
file(GLOB tvServicesTargets ${CMAKE_CURRENT_LIST_DIR}/TvServices-*-targets.cmake)
foreach(tvTargets ${tvServicesTargets})
  include(${tvTargets})
endforeach()
