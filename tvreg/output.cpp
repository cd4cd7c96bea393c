// SPDX-License-Identifier: MIT
// output: standard output and files, every byte accounted for.
#include "tvreg/output.h"

#include "tvreg/registry_access.h"
#include "tvreg/value_text.h"
#include "util/guard.h"
#include "util/json_text.h"
#include "util/printable.h"
#include "util/win32_names.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

[[noreturn]] void FailFile(const std::string &name) {
    throw Failure(EXIT_FAILED, fmt::format("{}: {}", name, std::strerror(errno)));
}

bool WriteAll(int descriptor, std::string_view content) {
    while (!content.empty()) {
        const ssize_t bytes = write(descriptor, content.data(), content.size());
        if (bytes >= 0) {
            content.remove_prefix(static_cast<std::size_t>(bytes));
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Where a link leads; the name itself where there is nothing yet.
std::string Target(const std::string &file) {
    char *resolved = realpath(file.c_str(), nullptr);
    if (resolved == nullptr) return file;
    std::string target = resolved;
    std::free(resolved);
    return target;
}

mode_t NewFileMode() {
    const mode_t mask = umask(0);
    (void)umask(mask);
    return 0666 & ~mask;
}

} // namespace

// The output must have arrived before the program says that all went well.
void Print(std::string_view text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
        FailFile("standard output");
    }
}

void PrintJson(const Json &object) { Print(JsonText(object) + "\n"); }

Json ErrorJson(const std::string &text, std::uint32_t code, const std::vector<std::string> &meant) {
    Json object = {{"schema", "tvreg.error/1"}};
    SetText(object, "message", text);
    if (code != 0) {
        object["win32"] = code;
        const char *symbol = Win32ErrorName(code);
        if (symbol != nullptr) object["symbol"] = symbol;
    }
    if (!meant.empty()) SetTexts(object, "suggest", meant);
    return object;
}

void Tell(const std::string &text) { (void)std::fprintf(stderr, "tvreg: %s\n", Printable(text).c_str()); }

std::string NameText(const RegValue &value) { return value.name.empty() ? "(Default)" : Printable(value.name); }

std::string ValueLine(const RegValue &value) {
    return fmt::format("    {}    {}    {}\n", NameText(value), TypeText(value.type), DataText(value));
}

std::string ReadFile(const std::string &file) {
    const bool isInput = file == "-";
    int descriptor = isInput ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const std::string name = isInput ? "standard input" : file;
    if (descriptor < 0) FailFile(name);
    DescriptorGuard closed(&descriptor);
    if (isInput) (void)closed.release(); // not ours to close
    std::string content;
    char piece[64 * 1024];
    for (ssize_t bytes = 0; (bytes = read(descriptor, piece, sizeof piece)) != 0;) {
        if (bytes > 0) content.append(piece, static_cast<std::size_t>(bytes));
        if (bytes < 0 && errno != EINTR) FailFile(name);
    }
    return content;
}

void WriteFile(const std::string &file, std::string_view content) {
    struct stat old = {};
    const bool isThere = stat(file.c_str(), &old) == 0;
    if (isThere && !S_ISREG(old.st_mode)) {
        int descriptor = open(file.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor < 0) FailFile(file);
        const DescriptorGuard closed(&descriptor);
        if (!WriteAll(descriptor, content)) FailFile(file);
        return;
    }
    const std::string target = Target(file);
    std::string beside = target + ".XXXXXX";
    int descriptor = mkostemp(beside.data(), O_CLOEXEC);
    if (descriptor < 0) FailFile(file);
    const DescriptorGuard closed(&descriptor);
    if (WriteAll(descriptor, content) && fchmod(descriptor, isThere ? old.st_mode & 07777 : NewFileMode()) == 0 &&
        fsync(descriptor) == 0 && rename(beside.c_str(), target.c_str()) == 0) {
        return;
    }
    const int error = errno;
    (void)unlink(beside.c_str());
    errno = error;
    FailFile(file);
}
