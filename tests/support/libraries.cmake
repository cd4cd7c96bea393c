# SPDX-License-Identifier: MIT
# Libraries that test programs share.

# What tests on a private host share: link it to tests of the kinds wire and system.
add_library(tv_test_host STATIC support/host.cpp support/service_image.cpp)
target_link_libraries(tv_test_host PRIVATE tv_options PUBLIC servd_wire tv_registry)

# What unit tests of the daemon share: a registry in memory beneath its logic.
add_library(tv_test_registry STATIC support/memory_registry.cpp)
target_link_libraries(tv_test_registry PRIVATE tv_options PUBLIC servd_core GTest::gtest)
if(TV_BUILD_FUZZ)
  # Its ways are none that a fuzzer should look for.
  target_compile_options(tv_test_registry PRIVATE -fno-sanitize=fuzzer-no-link)
endif()

# What the registry holds of the services, written and compared through the Reg* functions.
add_library(tv_service_registry STATIC support/service_registry.cpp)
target_link_libraries(tv_service_registry PRIVATE tv_options PUBLIC servd_wire tv_registry)

# Calls of the daemon's procedures; a program that uses them brings one of the ways below.
add_library(tv_procedures STATIC support/procedures.cpp)
target_link_libraries(tv_procedures PRIVATE tv_options PUBLIC tv_service_registry)

# The service database in plain words, to hold the daemon's against.
add_library(tv_database_model STATIC support/database_model.cpp)
target_link_libraries(tv_database_model PRIVATE tv_options PUBLIC tv_service_registry)

# The cases of the handlers, which run whichever way.
add_library(tv_handler_cases OBJECT handlers/handles_cases.cpp handlers/control_cases.cpp handlers/config_cases.cpp
  handlers/enumerate_cases.cpp handlers/model_cases.cpp handlers/model.cpp)
target_link_libraries(tv_handler_cases PRIVATE tv_options PUBLIC tv_procedures tv_database_model GTest::gmock)
add_library(tv_fault_cases OBJECT handlers/call_orders.cpp handlers/create_faults.cpp handlers/change_faults.cpp
  handlers/other_faults.cpp)
target_link_libraries(tv_fault_cases PRIVATE tv_options PUBLIC tv_procedures GTest::gmock)

# The two ways: the handlers themselves over a registry in memory, and the real programs on a private host.
add_library(tv_direct_daemon STATIC support/direct_daemon.cpp)
target_link_libraries(tv_direct_daemon PRIVATE tv_options PUBLIC tv_procedures tv_test_registry)
add_library(tv_real_daemon STATIC support/real_daemon.cpp)
target_link_libraries(tv_real_daemon PRIVATE tv_options PUBLIC tv_procedures tv_test_host)

# Counts what the linked program and its static libraries take from malloc: support/allocations.h
add_library(tv_test_allocations STATIC support/allocations.cpp)
target_link_libraries(tv_test_allocations PRIVATE tv_options)
target_link_options(tv_test_allocations INTERFACE -Wl,--wrap=malloc,--wrap=calloc,--wrap=realloc,--wrap=free)

# tv_oracle: the codecs that rpcgen makes from protocol/. Every name gets the prefix oracle_, apart from ours.
find_program(RPCGEN rpcgen REQUIRED)
set(oracleFolder ${CMAKE_CURRENT_BINARY_DIR}/oracle)
file(MAKE_DIRECTORY ${oracleFolder})
foreach(protocol servd service regd)
  set(stem ${oracleFolder}/oracle_${protocol})
  add_custom_command(OUTPUT ${stem}.h ${stem}.c
    COMMAND sed -E "s/\\b(servd_|svd_|svc_|service_|regd_)/oracle_\\1/g" ${PROJECT_SOURCE_DIR}/protocol/${protocol}.x > ${stem}.x
    COMMAND rm -f ${stem}.h ${stem}.c
    COMMAND ${RPCGEN} -C -h -o oracle_${protocol}.h oracle_${protocol}.x
    COMMAND ${RPCGEN} -C -c -o oracle_${protocol}.c oracle_${protocol}.x
    DEPENDS ${PROJECT_SOURCE_DIR}/protocol/${protocol}.x WORKING_DIRECTORY ${oracleFolder} VERBATIM)
  list(APPEND oracleSources ${stem}.c ${stem}.h)
endforeach()
add_library(tv_oracle STATIC ${oracleSources})
target_include_directories(tv_oracle SYSTEM PUBLIC ${oracleFolder})
target_compile_options(tv_oracle PRIVATE -w)
target_link_libraries(tv_oracle PUBLIC PkgConfig::TIRPC)

# Messages by hand, on plain sockets.
add_library(tv_raw_rpc STATIC support/raw_rpc.cpp)
target_link_libraries(tv_raw_rpc PRIVATE tv_options PUBLIC tv_rpc tv_util)

# A service process that does as it is told, for the images of service_image.h.
add_executable(test_service support/test_service.cpp)
target_link_libraries(test_service PRIVATE tv_options servd_wire)
add_dependencies(tv_test_host test_service)

# Runs a daemon at another time of day.
add_executable(moved_clock support/moved_clock.cpp)
target_link_libraries(moved_clock PRIVATE tv_options)

# Loaded into a daemon: one signals its children between fork and exec, one refuses it threads.
foreach(module signal_child no_threads)
  add_library(${module} MODULE support/${module}.cpp)
  target_link_libraries(${module} PRIVATE tv_options)
  set_target_properties(${module} PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endforeach()

# Loaded into a daemon: has its disk be slow or fail.
add_library(slow_disk MODULE support/slow_disk.cpp)
target_link_libraries(slow_disk PRIVATE tv_options)
set_target_properties(slow_disk PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY} PREFIX "")

# Loaded into a daemon: ends it where a signal handler or a child before its exec does what is not safe there.
if(NOT TV_SANITIZE)
  add_library(strict_calls MODULE support/strict_calls.cpp)
  target_link_libraries(strict_calls PRIVATE tv_options)
  set_target_properties(strict_calls PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
endif()

# Both daemons with sample services.
add_library(tv_service_world STATIC support/service_world.cpp)
target_link_libraries(tv_service_world PRIVATE tv_options PUBLIC tv_test_host tv_svcapi GTest::gtest)

# The same with services that tvhost runs.
add_library(tv_tvhost_world STATIC support/tvhost_world.cpp support/leavings.cpp)
target_link_libraries(tv_tvhost_world PRIVATE tv_options
  PUBLIC tv_service_world tvhost_program nlohmann_json::nlohmann_json)
add_dependencies(tv_tvhost_world tvhost tvsc)

# A real servd over a real tvregd for the tests that attack it: support/hazard.h; and services that answer it oddly.
add_executable(odd_service support/odd_service.cpp)
target_link_libraries(odd_service PRIVATE tv_options tv_raw_rpc)
add_library(tv_hazard INTERFACE)
target_link_libraries(tv_hazard INTERFACE tv_test_host tv_raw_rpc)
add_dependencies(tv_hazard odd_service)
target_link_libraries(tv_service_world PRIVATE tv_options PUBLIC tv_test_host tv_svcapi GTest::gtest)

# The daemon with a memory that fails on request: support/failing_malloc.h
add_executable(servd_failing support/failing_malloc.cpp ${PROJECT_SOURCE_DIR}/servd/servdmain.cpp)
target_link_libraries(servd_failing PRIVATE tv_options servd_serving)
target_link_options(servd_failing PRIVATE -Wl,--wrap=malloc,--wrap=calloc,--wrap=realloc)
