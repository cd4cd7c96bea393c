/* SPDX-License-Identifier: MIT */
/* All of it stands in daemon/daemon.h. */
