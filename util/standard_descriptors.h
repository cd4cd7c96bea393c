// SPDX-License-Identifier: MIT
// standard_descriptors: descriptors 0, 1 and 2 of a program that may have been launched without them.
#pragma once

#include <fcntl.h>
#include <unistd.h>

// Opens /dev/null on each of the three that is closed. A descriptor that is closed at launch would be taken by a
// socket, and a message on stderr would go to a client. First thing in main.
inline void OpenStandardDescriptors() {
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        descriptor = open("/dev/null", O_RDWR);
    }
    if (descriptor >= 0) (void)close(descriptor);
}
