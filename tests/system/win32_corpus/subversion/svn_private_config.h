/* SPDX-License-Identifier: MIT */
#define _(text) text
