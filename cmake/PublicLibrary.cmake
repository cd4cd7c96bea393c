# SPDX-License-Identifier: MIT
# Libraries for other people's programs: shared and static, C headers, pkg-config file, CMake package TvServices.
include(CMakePackageConfigHelpers)

set(tvPackageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/TvServices)

# tv_public_library(NAME EXPORT_NAME ... DESCRIPTION ... MAP ... HEADERS ... PARTS ...)
#   NAME         libNAME.so, libNAME.a, NAME.pc; also the install component
#   EXPORT_NAME  TvServices::EXPORT_NAME is the shared library, ..._static the other one
#   MAP          version script that names the exported functions
#   HEADERS      files of include/tv
#   PARTS        our own static libraries, whose objects make up the library
#   SYSTEM_LIBS  what a C program has to link beside the static library and libtirpc, such as stdc++
function(tv_public_library name)
  cmake_parse_arguments(PARSE_ARGV 1 LIBRARY "" "EXPORT_NAME;DESCRIPTION;MAP" "HEADERS;PARTS;SYSTEM_LIBS")
  foreach(part ${LIBRARY_PARTS})
    list(APPEND objects $<TARGET_OBJECTS:${part}>)
  endforeach()
  add_library(${name}_shared SHARED ${objects})
  add_library(${name}_static STATIC ${objects})
  foreach(kind shared static)
    set_target_properties(${name}_${kind} PROPERTIES OUTPUT_NAME ${name} LINKER_LANGUAGE CXX)
    target_link_libraries(${name}_${kind} PRIVATE PkgConfig::TIRPC Threads::Threads)
    target_include_directories(${name}_${kind} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  endforeach()
  set_target_properties(${name}_shared PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    EXPORT_NAME ${LIBRARY_EXPORT_NAME} LINK_DEPENDS ${LIBRARY_MAP})
  set_target_properties(${name}_static PROPERTIES EXPORT_NAME ${LIBRARY_EXPORT_NAME}_static)
  target_link_libraries(${name}_static INTERFACE ${LIBRARY_SYSTEM_LIBS})
  target_link_options(${name}_shared PRIVATE -Wl,--version-script=${LIBRARY_MAP} -Wl,--as-needed)

  install(TARGETS ${name}_shared ${name}_static EXPORT ${name} COMPONENT ${name})
  list(TRANSFORM LIBRARY_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/include/tv/)
  install(FILES ${LIBRARY_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tv COMPONENT ${name})
  tv_install_pkgconfig(${name} "${LIBRARY_DESCRIPTION}" "${LIBRARY_SYSTEM_LIBS}")
  tv_install_package(${name})
endfunction()

# tv_public_bundle(NAME EXPORT_NAME ... DESCRIPTION ... HEADERS ... LIBRARIES ...)
#   NAME         NAME.pc and the install component; leads to the libraries and to a header folder of its own
#   EXPORT_NAME  TvServices::EXPORT_NAME stands for the shared libraries, ..._static for the static ones
#   HEADERS      files of include/NAME
#   LIBRARIES    names of public libraries; their components have to be installed, too
function(tv_public_bundle name)
  cmake_parse_arguments(PARSE_ARGV 1 BUNDLE "" "EXPORT_NAME;DESCRIPTION" "HEADERS;LIBRARIES")
  foreach(kind shared static)
    add_library(${name}_${kind} INTERFACE)
    target_include_directories(${name}_${kind} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/${name}>)
    list(TRANSFORM BUNDLE_LIBRARIES APPEND _${kind} OUTPUT_VARIABLE libraries)
    target_link_libraries(${name}_${kind} INTERFACE ${libraries})
  endforeach()
  set_target_properties(${name}_shared PROPERTIES EXPORT_NAME ${BUNDLE_EXPORT_NAME})
  set_target_properties(${name}_static PROPERTIES EXPORT_NAME ${BUNDLE_EXPORT_NAME}_static)

  install(TARGETS ${name}_shared ${name}_static EXPORT ${name} COMPONENT ${name})
  install(FILES ${BUNDLE_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${name} COMPONENT ${name})
  list(JOIN BUNDLE_LIBRARIES " " PKGCONFIG_REQUIRES)
  tv_configure_pkgconfig(${name} "${BUNDLE_DESCRIPTION}" bundle.pc.in)
  tv_install_package(${name})
endfunction()

# The .pc file finds its prefix from its own place, so that an installation can be moved.
function(tv_install_pkgconfig name description systemLibs)
  list(TRANSFORM systemLibs PREPEND "-l" OUTPUT_VARIABLE flags)
  list(JOIN flags " " PKGCONFIG_SYSTEM_LIBS)
  tv_configure_pkgconfig(${name} "${description}" library.pc.in)
endfunction()

function(tv_configure_pkgconfig name description template)
  file(RELATIVE_PATH upwards /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
  set(PKGCONFIG_NAME ${name})
  set(PKGCONFIG_DESCRIPTION ${description})
  set(PKGCONFIG_UPWARDS ${upwards})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${template} ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${name})
endfunction()

# All libraries of the project share one package; whichever component is installed brings it along, with its own targets.
function(tv_install_package component)
  set(folder ${PROJECT_BINARY_DIR}/package)
  write_basic_package_version_file(${folder}/TvServicesConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/TvServicesConfig.cmake ${folder}/TvServicesConfigVersion.cmake
    DESTINATION ${tvPackageFolder} COMPONENT ${component})
  install(EXPORT ${component} NAMESPACE TvServices:: DESTINATION ${tvPackageFolder}
    FILE TvServices-${component}-targets.cmake COMPONENT ${component})
endfunction()

# Compiles every public header alone as C11.
function(tv_check_public_headers)
  file(GLOB headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/include/tv/*.h)
  foreach(header ${headers})
    string(MAKE_C_IDENTIFIER ${header} identifier)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/public_headers/${identifier}.c)
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${header}\"\n#include \"${header}\"\ntypedef int tv_not_empty;\n")
    list(APPEND sources ${source})
  endforeach()
  add_library(tv_public_headers OBJECT ${sources})
  target_link_libraries(tv_public_headers PRIVATE tv_options)
  target_compile_options(tv_public_headers PRIVATE -std=c11 -pedantic-errors -Wstrict-prototypes -Wc++-compat)
endfunction()
