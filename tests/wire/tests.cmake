# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_case_test(wire codecs tv_oracle servd_wire tv_registry)
tv_host_test(wire control tv_direct_daemon tv_test_host)
tv_host_test(wire handlers tv_handler_cases tv_real_daemon)
add_library(tv_scripted_regd STATIC support/scripted_regd.cpp support/scripted_client.cpp)
target_link_libraries(tv_scripted_regd PRIVATE tv_options PUBLIC tv_test_host)
tv_host_test(wire registry tv_scripted_regd)
add_library(tv_registry_proxy STATIC support/registry_proxy.cpp)
target_link_libraries(tv_registry_proxy PRIVATE tv_options PUBLIC tv_scripted_regd)
tv_host_test(wire registry_faults tv_fault_cases tv_registry_proxy tv_real_daemon)
add_library(tv_scripted_daemon STATIC support/scripted_daemon.cpp)
target_link_libraries(tv_scripted_daemon PRIVATE tv_options PUBLIC tv_test_host)
tv_host_test(wire service_api tv_svcapi tv_scripted_daemon)
tv_host_test(wire service_runtime tv_svcapi tv_scripted_daemon tv_raw_rpc)
tv_host_test(wire tvregd tv_test_host tv_raw_rpc)
tv_host_test(wire dial tv_raw_rpc)
tv_host_test(wire door tv_raw_rpc)
tv_host_test(wire service_requests tv_real_daemon)

# They hold what a call takes beside hostile peers against a bound: nothing else runs meanwhile.
set_tests_properties(wire.door PROPERTIES RUN_SERIAL ON)
