// SPDX-License-Identifier: MIT
// string_list: taking multi-strings apart and putting them together.
#include "util/string_list.h"

#include "util/multi_string.h"

std::vector<std::string> SplitMultiString(std::string_view bytes) {
    std::vector<std::string> strings;
    for (std::string_view string = TakeString(&bytes); !string.empty(); string = TakeString(&bytes)) {
        strings.emplace_back(string);
    }
    return strings;
}

std::string JoinMultiString(const std::vector<std::string> &strings) {
    std::string joined;
    for (const std::string &string : strings) {
        joined.append(string).push_back('\0');
    }
    joined.push_back('\0');
    return joined;
}
