# SPDX-License-Identifier: MIT
# TvServices: the libraries of the Win32 service daemon.
#   TvServices::registry   the Win32 registry functions; TvServices::registry_static the same as a static library
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_dependency(PkgConfig)
pkg_check_modules(TIRPC REQUIRED QUIET IMPORTED_TARGET libtirpc)
include(${CMAKE_CURRENT_LIST_DIR}/TvServicesTargets.cmake)
