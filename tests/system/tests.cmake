# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_host_test(system host tv_test_host)
tv_bats_test(private_host)
tv_host_test(system registry tv_test_host)
tv_bats_test(registry_library)
if(TV_SANITIZE)
  set_property(TEST system.registry_library APPEND PROPERTY ENVIRONMENT "TV_SANITIZE_FLAGS=-fsanitize=${TV_SANITIZE}")
endif()
tv_host_test(system tvreg tv_test_host)
tv_host_test(system start tv_test_host tv_test_registry)
tv_host_test(system start_timeouts tv_test_host tv_test_registry)
add_dependencies(tvreg_system_test tvreg)
