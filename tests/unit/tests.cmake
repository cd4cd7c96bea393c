# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_unit_test(ktl tv_util)
tv_unit_test(path_util tv_util)
