// SPDX-License-Identifier: MIT
// service_image: scripts and logs of the test service, all in one scratch folder.
#include "tests/support/service_image.h"

#include "tests/support/host.h"

#include <sys/stat.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

namespace {

const std::string &Folder() {
    static const std::string folder = [] {
        std::string made = MakeScratchFolder();
        (void)chmod(made.c_str(), 0777);
        return made;
    }();
    return folder;
}

std::vector<std::string> LinesNow(const ServiceImage &image, const std::string &word) {
    std::vector<std::string> lines;
    if (!HasLog(image)) return lines;
    std::istringstream log(ReadFile(image.log));
    for (std::string line; std::getline(log, line);) {
        if (line == word || line.starts_with(word + " ")) {
            lines.push_back(line.substr(std::min(line.size(), word.size() + 1)));
        }
    }
    return lines;
}

} // namespace

ServiceImage MakeServiceImage(const std::string &name, const std::string &options) {
    static const std::string program =
        CopyForAnyUser(std::filesystem::read_symlink("/proc/self/exe").parent_path() / "test_service");
    const ServiceImage image = {Folder() + "/" + name, Folder() + "/" + name + ".log"};
    WriteFile(image.path, "#!/bin/csh\nexec " + program + " '" + image.log + "' " + options + "\n", 0755);
    std::filesystem::remove(image.log);
    return image;
}

std::vector<std::string> LogLines(const ServiceImage &image, const std::string &word, std::size_t count) {
    std::vector<std::string> lines;
    const bool came = WaitUntil([&] {
        lines = LinesNow(image, word);
        return lines.size() >= count;
    });
    if (!came) throw std::runtime_error(image.log + " never told of " + word);
    return lines;
}

std::string LogLine(const ServiceImage &image, const std::string &word) { return LogLines(image, word).back(); }

bool HasLog(const ServiceImage &image) { return std::filesystem::exists(image.log); }
