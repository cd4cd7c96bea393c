// SPDX-License-Identifier: MIT
// apply_output: differences as lines, and all of it as JSON.
#include "tvsc/apply_output.h"

#include "tvreg/value_text.h"
#include "tvsc/json_document.h"
#include "util/json_text.h"
#include "util/printable.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

constexpr const char *changeWords[] = {"none", "created", "changed", "deleted"};

const char *KindOf(const Difference &difference) {
    const bool isBefore = IsOfKey(difference) ? difference.isBefore : difference.before.has_value();
    const bool isAfter = IsOfKey(difference) ? difference.isAfter : difference.after.has_value();
    return isBefore && isAfter ? "changed" : isBefore ? "removed" : "added";
}

std::string NameOf(const Difference &difference) {
    if (IsOfKey(difference)) return difference.path.empty() ? "its key" : difference.path + '\\';
    const std::string &name = difference.after ? difference.after->name : difference.before->name;
    return difference.path.empty() ? name : difference.path + '\\' + name;
}

std::string DataOf(const RegValue &value) { return fmt::format("{} {}", TypeText(value.type), DataText(value)); }

Json JsonOfDifference(const KeyPath &top, const Difference &difference) {
    Json entry;
    entry["kind"] = KindOf(difference);
    SetText(entry, "key", PathText(top, difference.path));
    if (difference.before) entry["before"] = ValueJson(*difference.before);
    if (difference.after) entry["after"] = ValueJson(*difference.after);
    return entry;
}

} // namespace

void PrintDifferences(const AppliedService &service) {
    for (const Difference &difference : service.differences) {
        const std::string name = Printable(NameOf(difference));
        if (IsOfKey(difference)) {
            fmt::print("  {} {}\n", difference.isAfter ? '+' : '-', name);
        } else if (!difference.before) {
            fmt::print("  + {}: {}\n", name, DataOf(*difference.after));
        } else if (!difference.after) {
            fmt::print("  - {}: {}\n", name, DataOf(*difference.before));
        } else {
            fmt::print("  ~ {}: {} -> {}\n", name, DataOf(*difference.before), DataOf(*difference.after));
        }
    }
}

void PrintAppliedJson(const Session &session, const std::vector<AppliedService> &services) {
    Json object = JsonHeader("tvsc.apply/1", session.options.host);
    object["dry_run"] = session.options.dryRun;
    object["services"] = Json::array();
    for (const AppliedService &service : services) {
        Json entry;
        SetText(entry, "name", service.name);
        entry["change"] = changeWords[static_cast<std::size_t>(service.change)];
        entry["differences"] = Json::array();
        for (const Difference &difference : service.differences) {
            entry["differences"].push_back(JsonOfDifference(service.top, difference));
        }
        object["services"].push_back(std::move(entry));
    }
    AddResults(object, session);
    PrintDocument(object);
}
