/* SPDX-License-Identifier: MIT */
/* What is needed of it stands in portable.h and slap.h. */
