/* SPDX-License-Identifier: MIT */
/* Nothing of it is needed. */
