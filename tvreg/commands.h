// SPDX-License-Identifier: MIT
// commands: what tvreg does. Data goes to standard output. Each throws a Failure of registry_access.h, which has the
// exit status.
#pragma once

#include <optional>
#include <string>
#include <vector>

// What the command line said; a command looks at what concerns it.
struct Options {
    std::string key;
    std::string valueName;
    bool unnamed = false;   // the value without a name is meant
    bool allValues = false; // all values of the key
    bool recursive = false;
    bool json = false;
    bool raw = false;
    bool dryRun = false;
    bool fixServices = false;
    bool reg4 = false;
    bool isLenient = false;
    std::string encoding = {};     // of .reg text; empty: told from the text
    std::string separator = "\\0"; // between the strings of a REG_MULTI_SZ
    bool force = false;            // taken and ignored: nothing is ever asked
    std::string type = "REG_SZ";
    std::vector<std::string> data;
    std::vector<std::string> files;       // import
    std::optional<std::string> file;      // export: where to; none: standard output
    std::optional<std::string> goesValue; // rm: the value; none: the key
};

void Query(const Options &options);
void List(const Options &options);
void Get(const Options &options);
void Export(const Options &options);
void Version(const Options &options);
void Import(const Options &options);
void Add(const Options &options);
void Set(const Options &options);
void Delete(const Options &options);
void Remove(const Options &options); // rm
