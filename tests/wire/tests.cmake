# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
tv_case_test(wire codecs tv_oracle servd_wire tv_registry)
