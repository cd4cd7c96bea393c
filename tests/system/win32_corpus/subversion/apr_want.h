/* SPDX-License-Identifier: MIT */
/* Stands in for APR: what the service code takes of it. */
#include <windows.h>

#include <stdlib.h>
