# SPDX-License-Identifier: MIT
# One line a test program, in alphabetical order.
