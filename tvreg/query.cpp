// SPDX-License-Identifier: MIT
// query: keys and their values shown, all of them or those that match a pattern.
#include "tvreg/commands.h"
#include "tvreg/output.h"
#include "tvreg/registry_reading.h"
#include "tvreg/value_text.h"
#include "util/json_text.h"
#include "util/names.h"
#include "util/printable.h"

#include <fmt/format.h>

#include <algorithm>

namespace {

// --- what matches --------------------------------------------------------------------------------------------------

struct Search {
    std::optional<std::u32string> pattern; // none: everything matches
    bool isCaseSensitive = false;
    bool inKeys = true, inNames = true, inData = true;
    std::vector<std::uint32_t> types = {}; // none: all
};

// Matches all of a text: * stands for any characters, ? for one.
bool MatchesGlob(std::u32string_view glob, std::u32string_view text) {
    std::size_t inGlob = 0, inText = 0;
    std::size_t behindStar = std::u32string_view::npos, starEnd = 0; // the last * met, and how far it has gone
    while (inText < text.size()) {
        if (inGlob < glob.size() && glob[inGlob] == U'*') {
            behindStar = ++inGlob;
            starEnd = inText;
        } else if (inGlob < glob.size() && (glob[inGlob] == U'?' || glob[inGlob] == text[inText])) {
            ++inGlob;
            ++inText;
        } else if (behindStar != std::u32string_view::npos) {
            inGlob = behindStar;
            inText = ++starEnd;
        } else {
            return false;
        }
    }
    return glob.find_first_not_of(U'*', inGlob) == std::u32string_view::npos;
}

std::u32string Characters(const Search &search, const std::string &text) {
    return search.isCaseSensitive ? CharactersOf(text) : FoldedName(text);
}

Search SearchOf(const Options &options) {
    Search search;
    search.isCaseSensitive = options.isCaseSensitive;
    if (options.pattern) {
        const std::u32string pattern = Characters(search, *options.pattern);
        search.pattern = options.isWhole ? pattern : U"*" + pattern + U"*";
    }
    if (options.inKeys || options.inNames || options.inData) {
        search.inKeys = options.inKeys;
        search.inNames = options.inNames;
        search.inData = options.inData;
    }
    for (const std::string &text : options.types) {
        search.types.push_back(TypeNamed(text));
    }
    return search;
}

bool Matches(const Search &search, const std::string &text) {
    return MatchesGlob(*search.pattern, Characters(search, text));
}

bool MatchesName(const Search &search, const std::string &name) {
    return search.pattern && search.inKeys && Matches(search, name);
}

bool MatchesValue(const Options &options, const Search &search, const RegValue &value) {
    if (WantsOneValue(options) && !AreNamesEqual(value.name, options.valueName)) return false;
    const bool isOfType = std::find(search.types.begin(), search.types.end(), value.type) != search.types.end();
    if (!search.types.empty() && !isOfType) return false;
    if (!search.pattern) return true;
    return (search.inNames && Matches(search, value.name)) ||
           (search.inData && Matches(search, DataText(value, options.separator)));
}

bool IsSearch(const Options &options) { return options.pattern || !options.types.empty(); }

// --- what is shown -------------------------------------------------------------------------------------------------

struct Showing {
    const Options &options;
    Json keys = Json::array();
    std::size_t matches = 0;
};

void ShowKey(Showing &showing, const KeyPath &key, const KeyContent &content, bool withSubKeys) {
    if (showing.options.json) {
        Json object;
        SetText(object, "key", KeyPathText(key));
        object["values"] = Json::array();
        for (const RegValue &value : content.values) {
            object["values"].push_back(ValueJson(value));
        }
        SetTexts(object, "subkeys", content.subKeys);
        showing.keys.push_back(std::move(object));
        return;
    }
    std::string text = Printable(KeyPathText(key)) + "\n";
    for (const RegValue &value : content.values) {
        const std::string type = showing.options.showTypeNumbers
                                     ? fmt::format("{} ({})", TypeText(value.type), value.type)
                                     : TypeText(value.type);
        text += fmt::format("    {}    {}    {}\n", NameText(value), type, DataText(value, showing.options.separator));
    }
    text += "\n";
    for (const std::string &subKey : content.subKeys) {
        if (withSubKeys) text += Printable(KeyPathText(Below(key, subKey))) + "\n";
    }
    Print(text);
}

// A key that a search has come to. Its name counts as a match of its own.
void ShowMatches(Showing &showing, const Search &search, const KeyPath &key, KeyContent &content) {
    const std::size_t last = key.path.rfind('\\');
    const bool isNamed =
        !key.path.empty() && MatchesName(search, key.path.substr(last == std::string::npos ? 0 : last + 1));
    std::erase_if(content.values, [&](const RegValue &value) { return !MatchesValue(showing.options, search, value); });
    showing.matches += content.values.size() + (isNamed ? 1 : 0);
    if (!showing.options.json) content.subKeys.clear();
    if (isNamed || !content.values.empty()) ShowKey(showing, key, content, false);
}

// A search in one key looks at its values, and at the names of its subkeys.
void SearchKey(Showing &showing, const Search &search, const KeyPath &key) {
    KeyContent content = ReadKey(key);
    const std::vector<std::string> subKeys = std::exchange(content.subKeys, {});
    std::erase_if(content.values, [&](const RegValue &value) { return !MatchesValue(showing.options, search, value); });
    showing.matches += content.values.size();
    if (!content.values.empty()) ShowKey(showing, key, content, false);
    for (const std::string &subKey : subKeys) {
        if (!MatchesName(search, subKey)) continue;
        ++showing.matches;
        ShowKey(showing, Below(key, subKey), {}, false);
    }
}

int FinishSearch(const Showing &showing) {
    if (showing.options.json) {
        PrintJson({{"schema", "tvreg.query/1"}, {"matches", showing.matches}, {"keys", showing.keys}});
    } else {
        Print(fmt::format("End of search: {} match{} found.\n", showing.matches, showing.matches == 1 ? "" : "es"));
    }
    return showing.matches > 0 ? 0 : EXIT_NOT_FOUND;
}

void QueryBelow(Showing &showing, const KeyPath &top) {
    const Search everything;
    bool isFound = false;
    ForEachKey(top, [&](const KeyPath &key, KeyContent &content) {
        std::erase_if(content.values,
                      [&](const RegValue &value) { return !MatchesValue(showing.options, everything, value); });
        if (WantsOneValue(showing.options) && content.values.empty()) return;
        isFound = true;
        ShowKey(showing, key, content, false);
    });
    if (!isFound) {
        Check(ERROR_FILE_NOT_FOUND,
              fmt::format("{} and below, value \"{}\"", showing.options.key, showing.options.valueName));
    }
}

} // namespace

int Query(const Options &options) {
    Showing showing = {.options = options};
    const KeyPath key = KeyOf(options);
    if (IsSearch(options)) {
        const Search search = SearchOf(options);
        if (options.recursive) {
            ForEachKey(key,
                       [&](const KeyPath &next, KeyContent &content) { ShowMatches(showing, search, next, content); });
        } else {
            SearchKey(showing, search, key);
        }
        return FinishSearch(showing);
    }
    if (options.recursive) {
        QueryBelow(showing, key);
    } else if (WantsOneValue(options)) {
        ShowKey(showing, key, {{ReadValue(key, options.valueName)}, {}, {}}, true);
    } else {
        ShowKey(showing, key, ReadKey(key), true);
    }
    if (options.json) PrintJson({{"schema", "tvreg.query/1"}, {"keys", showing.keys}});
    return 0;
}

int Find(const Options &options) {
    Options query = options;
    query.recursive = true;
    if (query.key.empty()) query.key = "HKLM";
    return Query(query);
}
