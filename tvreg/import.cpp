// SPDX-License-Identifier: MIT
// import: .reg files into the registry. All files are read and held against what a registry takes before the first
// write; whatever is wrong is told with its file and line.
#include "tvreg/commands.h"

#include "registry/key.h"
#include "registry/limits.h"
#include "tvreg/fix_services.h"
#include "tvreg/output.h"
#include "tvreg/registry_writing.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"
#include "util/printable.h"
#include "util/progress_line.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

struct RegFile {
    std::string name;
    std::vector<RegKey> keys = {};
};

struct Fault {
    std::string file;
    int line;
    std::string text;
};

struct Counts {
    std::size_t keys = 0, values = 0, deletedKeys = 0, deletedValues = 0;
};

std::string FaultText(const Fault &fault) { return fmt::format("{}:{}: {}", fault.file, fault.line, fault.text); }

Json CountsJson(const Options &options, const Counts &counts, const std::vector<Fault> &faults) {
    Json object = {
        {"schema", "tvreg.import/1"}, {"dry_run", options.dryRun},          {"keys", counts.keys},
        {"values", counts.values},    {"deleted_keys", counts.deletedKeys}, {"deleted_values", counts.deletedValues},
        {"faults", Json::array()}};
    for (const Fault &fault : faults) {
        Json entry;
        SetText(entry, "file", fault.file);
        entry["line"] = fault.line;
        SetText(entry, "message", fault.text);
        object["faults"].push_back(entry);
    }
    return object;
}

// Tells all that is wrong and ends.
[[noreturn]] void FailWith(const Options &options, int status, const std::vector<Fault> &faults, const Counts &counts) {
    if (options.json) PrintJson(CountsJson(options, counts, faults));
    for (const Fault &fault : faults) {
        Tell(FaultText(fault));
    }
    throw Failure(status, "");
}

std::vector<RegFile> ReadFiles(const Options &options, std::vector<Fault> *faults) {
    std::vector<RegFile> files;
    for (const std::string &name : options.files) {
        RegFile &file = files.emplace_back(RegFile{.name = name});
        const RegReadingRules rules = {.isLenient = options.isLenient, .encoding = options.encoding};
        for (RegTextError &error : ReadRegText(ReadFile(name), &file.keys, rules)) {
            faults->push_back({name, error.line, std::move(error.text)});
        }
    }
    return files;
}

// The code with which a registry would refuse it; 0 when it takes it.
LONG LimitOfKey(const KeyPath &key) {
    std::size_t depth = 0;
    for (std::string_view rest = key.path; !rest.empty(); ++depth) {
        const std::size_t length = std::min(rest.find('\\'), rest.size());
        if (length > maxKeyNameBytes) return ERROR_INVALID_PARAMETER;
        rest.remove_prefix(std::min(length + 1, rest.size()));
    }
    return depth > maxKeyDepth ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

LONG LimitOfValue(const RegValue &value) {
    if (value.name.size() > maxValueNameBytes) return ERROR_INVALID_PARAMETER;
    return value.data.size() > maxValueBytes ? ERROR_FILE_TOO_LARGE : ERROR_SUCCESS;
}

Fault FaultOf(const RegFile &file, const Refusal &refusal) {
    return {file.name, refusal.value != nullptr ? refusal.value->line : refusal.key->line, RefusalText(refusal)};
}

std::vector<Fault> FaultsBeforeWriting(const std::vector<RegFile> &files) {
    std::vector<Fault> faults;
    for (const RegFile &file : files) {
        for (const RegKey &key : file.keys) {
            const LONG code = LimitOfKey(key.key);
            if (code != ERROR_SUCCESS) faults.push_back(FaultOf(file, {&key, nullptr, code}));
            for (const RegValue &value : key.values) {
                const LONG limit = LimitOfValue(value);
                if (limit != ERROR_SUCCESS) faults.push_back(FaultOf(file, {&key, &value, limit}));
            }
        }
    }
    return faults;
}

// The registry is there, and has the roots.
void CheckRoots(const std::vector<RegFile> &files) {
    std::vector<HKEY> seen;
    for (const RegFile &file : files) {
        for (const RegKey &key : file.keys) {
            if (std::find(seen.begin(), seen.end(), key.key.root) != seen.end()) continue;
            seen.push_back(key.key.root);
            HKEY opened = OpenKey({.root = key.key.root, .path = {}, .host = {}});
            const KeyGuard closed(&opened);
        }
    }
}

void CountFile(const RegFile &file, Counts *counts) {
    for (const RegKey &key : file.keys) {
        const auto deleted = static_cast<std::size_t>(
            std::count_if(key.values.begin(), key.values.end(), [](const RegValue &value) { return value.isDeleted; }));
        ++(key.isDeleted ? counts->deletedKeys : counts->keys);
        counts->deletedValues += deleted;
        counts->values += key.values.size() - deleted;
    }
}

Counts CountAll(const std::vector<RegFile> &files) {
    Counts counts;
    for (const RegFile &file : files) {
        CountFile(file, &counts);
    }
    return counts;
}

std::string Several(std::size_t number, const char *thing) {
    return fmt::format("{} {}{}", number, thing, number == 1 ? "" : "s");
}

std::string CountsText(const Counts &counts) {
    std::string text = fmt::format("{}, {} written", Several(counts.keys, "key"), Several(counts.values, "value"));
    if (counts.deletedKeys + counts.deletedValues > 0) {
        text +=
            fmt::format("; {}, {} deleted", Several(counts.deletedKeys, "key"), Several(counts.deletedValues, "value"));
    }
    return text + "\n";
}

void ShowWhatWouldBeWritten(const std::vector<RegFile> &files) {
    for (const RegFile &file : files) {
        for (const RegKey &key : file.keys) {
            Print(fmt::format("{}{}\n", key.isDeleted ? "- " : "", Printable(KeyPathText(key.key))));
            for (const RegValue &value : key.values) {
                Print(value.isDeleted ? fmt::format("  - {}\n", NameText(value)) : ValueLine(value));
            }
        }
    }
}

// Returns what was refused; throws where the registry has gone.
std::vector<Fault> WriteFiles(const std::vector<RegFile> &files, std::size_t values) {
    std::vector<Fault> faults;
    Counts counts; // of files that are done
    for (const RegFile &file : files) {
        const std::vector<Refusal> refusals = WriteKeys(file.keys, [&](std::size_t done) {
            if (CanShowProgress()) ShowProgress(fmt::format("{} of {} values", counts.values + done, values));
        });
        for (const Refusal &refusal : refusals) {
            faults.push_back(FaultOf(file, refusal));
        }
        CountFile(file, &counts);
        if (!refusals.empty() && refusals.back().code == ERROR_REGISTRY_IO_FAILED) {
            EraseProgress();
            throw Failure(EXIT_UNREACHABLE, FaultText(faults.back()), ERROR_REGISTRY_IO_FAILED);
        }
    }
    EraseProgress();
    return faults;
}

} // namespace

int Import(const Options &options) {
    std::vector<Fault> faults;
    std::vector<RegFile> files = ReadFiles(options, &faults);
    if (!faults.empty() && !options.isLenient) FailWith(options, EXIT_BAD_TEXT, faults, {});
    for (const Fault &fault : faults) {
        Tell(FaultText(fault));
    }
    for (RegFile &file : files) {
        if (!options.fixServices) break;
        for (const std::string &remark : FixServices(&file.keys)) {
            (void)std::fprintf(stderr, "%s\n", Printable(remark).c_str());
        }
    }
    const std::vector<Fault> tooMuch = FaultsBeforeWriting(files);
    if (!tooMuch.empty()) FailWith(options, EXIT_FAILED, tooMuch, {});
    const Counts counts = CountAll(files);
    if (options.dryRun) {
        if (options.json) {
            PrintJson(CountsJson(options, counts, faults));
        } else {
            ShowWhatWouldBeWritten(files);
        }
        return 0;
    }
    CheckRoots(files);
    const std::vector<Fault> refused = WriteFiles(files, counts.values);
    if (!refused.empty()) FailWith(options, EXIT_FAILED, refused, counts);
    if (options.json) {
        PrintJson(CountsJson(options, counts, faults));
    } else {
        Print(CountsText(counts));
    }
    return 0;
}
