// SPDX-License-Identifier: MIT
// service_image: images whose process is the test service, and what that process has written down.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// A csh script that becomes the test service, and the service's log.
struct ServiceImage {
    std::string path;
    std::string log;
};

// Makes an image in a folder that any user may read and write. The options are those of test_service.
ServiceImage MakeServiceImage(const std::string &name, const std::string &options = "");

// The lines of the log that begin with a word, without it; waits until there are `count` of them.
std::vector<std::string> LogLines(const ServiceImage &image, const std::string &word, std::size_t count = 1);
// The one line of a process.
std::string LogLine(const ServiceImage &image, const std::string &word);
bool HasLog(const ServiceImage &image);
