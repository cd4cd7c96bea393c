/* SPDX-License-Identifier: MIT */
/* Stands in for Mosquitto's configuration of a build. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define UNUSED(value) ((void)(value))
