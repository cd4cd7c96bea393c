# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_case_test(wire codecs tv_oracle servd_wire tv_registry)
tv_host_test(wire control tv_direct_daemon tv_test_host)
tv_host_test(wire handlers tv_handler_cases tv_real_daemon)
add_library(tv_scripted_regd STATIC support/scripted_regd.cpp support/scripted_client.cpp)
target_link_libraries(tv_scripted_regd PRIVATE tv_options PUBLIC tv_test_host)
tv_host_test(wire registry tv_scripted_regd)
add_library(tv_scripted_daemon STATIC support/scripted_daemon.cpp)
target_link_libraries(tv_scripted_daemon PRIVATE tv_options PUBLIC tv_test_host)
tv_host_test(wire service_runtime tvsvc tv_scripted_daemon)
tv_host_test(wire tvregd tv_test_host)
tv_host_test(wire dial tv_rpc tv_util)
tv_host_test(wire door tv_raw_rpc)
