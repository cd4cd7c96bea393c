# SPDX-License-Identifier: MIT
# What every target of ours is compiled with. Link tv_options for the warnings, tv_core for the parts that must not
# throw (util, rpc, registry, servd).
add_library(tv_options INTERFACE)
target_include_directories(tv_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(tv_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion> # as GCC's -Wconversion has it
  -fno-strict-aliasing)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # In release builds it sees copies inside std::string that overlap, and do not.
  target_compile_options(tv_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-restrict>)
endif()

add_library(tv_core INTERFACE)
target_link_libraries(tv_core INTERFACE tv_options)
target_compile_options(tv_core INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions>)

if(TV_SANITIZE)
  add_compile_options(-fsanitize=${TV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TV_SANITIZE})
  # XDR routines are called through xdrproc_t, whatever record they take: clang would object to each call.
  add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,Clang>:-fno-sanitize=function>)
endif()

if(TV_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# A program that people and scripts run by the dozen has libstdc++ and libtirpc in itself: to find the symbols of the one
# takes as long as all else that the dynamic linker does at a start, and the other, when shared, brings six libraries of
# Kerberos along, which nothing here uses. Where there is no libtirpc.a the shared one is taken. A sanitizer's runtime
# wants the shared ones.
function(tv_load_quickly program)
  if(NOT TV_SANITIZE)
    target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc -Wl,--as-needed)
    if(TIRPC_ARCHIVE)
      set_target_properties(${program} PROPERTIES TV_LINK_TIRPC ${TIRPC_ARCHIVE})
    endif()
  endif()
endfunction()

# libtirpc, as the linked program wants it: TV_LINK_TIRPC is its archive, or nothing, for the shared library.
function(tv_add_tirpc)
  pkg_check_modules(TIRPC REQUIRED IMPORTED_TARGET libtirpc)
  find_library(TIRPC_ARCHIVE libtirpc.a HINTS ${TIRPC_LIBRARY_DIRS} ${TIRPC_LIBDIR})
  mark_as_advanced(TIRPC_ARCHIVE)
  add_library(tv_tirpc INTERFACE)
  target_include_directories(tv_tirpc SYSTEM INTERFACE ${TIRPC_INCLUDE_DIRS})
  set(archive $<TARGET_PROPERTY:TV_LINK_TIRPC>)
  target_link_libraries(tv_tirpc INTERFACE $<IF:$<BOOL:${archive}>,${archive},PkgConfig::TIRPC>)
endfunction()
