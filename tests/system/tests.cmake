# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_bats_test(private_host)
