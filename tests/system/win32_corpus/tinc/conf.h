/* SPDX-License-Identifier: MIT */
/* What the service code takes of it stands in system.h. */
