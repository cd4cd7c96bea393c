# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_unit_test(autostart tv_test_registry)
tv_unit_test(database tv_test_registry)
tv_unit_test(dependencies tv_test_registry)
tv_unit_test(groups tv_test_registry)
tv_unit_test(handlers tv_handler_cases tv_test_registry)
tv_unit_test(ktl tv_util)
tv_unit_test(load tv_test_registry)
tv_unit_test(path_util tv_util)
tv_unit_test(tvregd tvregd_core)
tv_unit_test(win32_names tv_util)
target_compile_definitions(win32_names_test PRIVATE TV_WINERROR_HEADER="${PROJECT_SOURCE_DIR}/include/tv/winerror.h")
