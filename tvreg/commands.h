// SPDX-License-Identifier: MIT
// commands: what tvreg does, a function a command. Data goes to standard output. Each returns the status to exit with,
// or throws a Failure of registry_access.h, which has it.
#pragma once

#include "tvreg/key_path.h"

#include <cstdint>
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
inline KeyPath KeyOf(const Options &options) { return KeyNamed(options.key); }
inline bool WantsOneValue(const Options &options) { return !options.valueName.empty() || options.unnamed; }

int Query(const Options &options); // query.cpp
int Find(const Options &options);

int List(const Options &options); // look.cpp
int Get(const Options &options);
int Tree(const Options &options);
int Version(const Options &options);

int Add(const Options &options); // change.cpp
int Set(const Options &options);
int Delete(const Options &options);
int Remove(const Options &options); // rm
int Copy(const Options &options);

int Export(const Options &options); // export.cpp
int Import(const Options &options); // import.cpp

int SaveHive(const Options &options); // hives.cpp
int RestoreHive(const Options &options);
int LoadHive(const Options &options);
int UnloadHive(const Options &options);

int Compare(const Options &options); // compare.cpp
int Diff(const Options &options);

int Lint(const Options &options);  // lint.cpp
int Watch(const Options &options); // watch.cpp
int Edit(const Options &options);  // edit.cpp

int ListSnapshots(const Options &options); // snapshot.cpp
int TakeSnapshot(const Options &options);
int DiffSnapshot(const Options &options);
int RestoreSnapshot(const Options &options);
