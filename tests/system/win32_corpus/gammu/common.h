/* SPDX-License-Identifier: MIT */
/* The types stand in gammu-smsd.h. */
