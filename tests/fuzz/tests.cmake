# SPDX-License-Identifier: MIT
# One line a fuzz target, in alphabetical order.
tv_fuzz_target(dispatcher tv_test_registry)
target_sources(dispatcher_fuzz PRIVATE ${PROJECT_SOURCE_DIR}/servd/servdsvc.cpp)
tv_fuzz_target(enumeration tv_svcapi)
target_sources(enumeration_fuzz PRIVATE support/enumeration_answer.cpp)
tv_fuzz_target(message tv_rpc)
tv_fuzz_target(path_util tv_util)
tv_fuzz_target(records servd_wire tv_registry)
tv_fuzz_target(reg_text tvreg_text)
tv_fuzz_target(registry_values tv_test_registry)
