# SPDX-License-Identifier: MIT
# 32-bit x86 on a 64-bit Debian host: the compiler and libc are the host's (package g++-multilib), the other libraries
# come from the folder that tools/i386-sysroot fills. Packages without machine code are the host's.
set(sysroot ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot/i386)
get_filename_component(sysroot ${sysroot} ABSOLUTE)
if(NOT EXISTS ${sysroot})
  message(FATAL_ERROR "${sysroot} is missing: run tools/i386-sysroot")
endif()

set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_FIND_ROOT_PATH ${sysroot} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

set(pkgconfigFolder ${sysroot}/usr/lib/i386-linux-gnu/pkgconfig)
set(ENV{PKG_CONFIG_LIBDIR} ${pkgconfigFolder})

# The old form of the run path also counts for the libraries that our libraries need. Libraries beside a program go
# first, so that a copy runs where the tree is closed.
set(folders ${sysroot}/lib/i386-linux-gnu ${sysroot}/usr/lib/i386-linux-gnu)
set(CMAKE_BUILD_RPATH "\$ORIGIN" ${folders})
list(JOIN folders : folders)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,--disable-new-dtags -Wl,-rpath-link,${folders}")
endforeach()

# For tests that compile programs themselves.
set(TV_COMPILE_ENVIRONMENT "CC=cc -m32" "CXX=c++ -m32" PKG_CONFIG_LIBDIR=${pkgconfigFolder} LD_LIBRARY_PATH=${folders})
