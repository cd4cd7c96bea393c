// SPDX-License-Identifier: MIT
// text_editor: making the file and running the editor.
#include "util/text_editor.h"

#include "util/child_program.h"
#include "util/guard.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

static std::string Variable(const char *name, const std::string &otherwise) {
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : otherwise;
}

static bool WriteWhole(int descriptor, const std::string &text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += static_cast<std::size_t>(written);
    }
    return fsync(descriptor) == 0;
}

std::string NewTextFile(const std::string &name, const std::string &suffix, const std::string &text,
                        std::string *problem) {
    std::string file = Variable("TMPDIR", "/tmp") + '/' + name + ".XXXXXX" + suffix;
    int descriptor = mkstemps(file.data(), static_cast<int>(suffix.size()));
    if (descriptor >= 0) {
        const DescriptorGuard closed(&descriptor);
        if (WriteWhole(descriptor, text)) return file;
        *problem = file + ": " + std::strerror(errno);
        (void)unlink(file.c_str()); // half a text is none
        return "";
    }
    *problem = file + ": " + std::strerror(errno);
    return "";
}

bool RunEditor(const std::string &file, std::string *problem) {
    const std::string editor = Variable("VISUAL", Variable("EDITOR", "vi"));
    int status = -1;
    const int rc = RunProgram({"/bin/sh", "-c", editor + " \"$1\"", "sh", file}, &status);
    *problem = editor + ": " + (rc != 0 ? std::strerror(rc) : "the editor failed");
    return rc == 0 && status == 0;
}
