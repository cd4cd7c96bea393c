// SPDX-License-Identifier: MIT
// options: what was said to a command, and what tells that it was said wrongly. The command line writes it and the
// commands read it; neither is known here.
#pragma once

#include "tvreg/key_path.h"

#include <optional>
#include <string>
#include <vector>

// What the command line said; a command looks at what concerns it.
struct Options {
    std::string key;
    std::string otherKey; // copy, compare, diff
    std::string valueName;
    bool unnamed = false;   // the value without a name is meant
    bool allValues = false; // all values of the key
    bool recursive = false;
    bool json = false;
    bool raw = false;
    bool dryRun = false;
    bool fixServices = false;
    bool reg4 = false;
    bool force = false; // only copy looks at it: nothing is ever asked
    bool isLenient = false;
    std::string encoding;          // of .reg text; empty: told from the text
    std::string separator = "\\0"; // between the strings of a REG_MULTI_SZ, as typed and as shown
    std::string type = "REG_SZ";
    std::vector<std::string> data;
    std::vector<std::string> files;       // import
    std::optional<std::string> file;      // export: where to; none: standard output. save, restore, load
    std::optional<std::string> goesValue; // rm: the value; none: the key
    // query, find
    std::optional<std::string> pattern;
    bool inKeys = false, inNames = false, inData = false; // none of them: everywhere
    bool isCaseSensitive = false;
    bool isWhole = false;
    std::vector<std::string> types;
    bool showTypeNumbers = false;
    // compare
    bool showAll = false, showDifferences = false, showSame = false, showNothing = false;
    // the rest
    std::optional<unsigned> depth;
    double intervalSec = 1;
    std::string name;  // of a snapshot, of a shell
    std::string other; // diff of a snapshot: another one
    std::string otherHost;
    std::string host;
    double timeoutSec = 0;
};

// The key that an argument names. Throws a Failure of EXIT_USAGE.
KeyPath KeyNamed(const std::string &text);
std::uint32_t TypeNamed(const std::string &text); // likewise
inline KeyPath KeyOf(const Options &options) { return KeyNamed(options.key); }
inline bool WantsOneValue(const Options &options) { return !options.valueName.empty() || options.unnamed; }
