// SPDX-License-Identifier: MIT
// hive_file: a key with everything below it as a file of its own.
//
// The file is a SQLite database with the application id 0x54564856 ("TVHV") and the user version 1:
//
//   hive_keys    number 1 is the key itself; every other stands behind the one whose number is its parent
//   hive_values  in the order of their keys, and in each as they are listed
//   hive_seal    FNV-1a, 64 bits, over what DigestOf... in hive_file.cpp takes in of every row
//
// Volatile keys are not in it. SQLite never opens the file: bytes are read and written whole, so that no lock, journal
// or link beside it plays a part, and what was read cannot change while it is looked at.
//
// Files are regular ones with absolute names; the last name is never followed where it is a symbolic link. A new file
// appears under its name when all of it is on the disk, and is its user's alone. Thread: the only one; a call takes as
// long as the disk needs.
//
// Codes: 2 no file, 3 no folder, 5 not permitted, no regular file or a disk that is read-only, 8, 112 the disk is full,
// 161 no absolute name, 223 too large, 1009 no hive or a damaged one, 1016 the disk fails.
#pragma once

#include "tvregd/tree.h"

#include <string>
#include <string_view>

// Of a file; SQLite has about the same limit for what the database keeps of it.
constexpr std::size_t maxHiveBytes = sizeof(void *) == 4 ? std::size_t{256} << 20 : std::size_t{900} << 20;

// Returns 0; 8; 223.
[[nodiscard]] std::uint32_t EncodeHive(const Key &key, std::string *bytes);

// Makes a tree of what EncodeHive made: its one root is the key, which has no name. Nothing is believed: names are such
// as can be made, no two are the same in one key, and nothing is larger than allowed. Returns 0; 8; 1009.
[[nodiscard]] std::uint32_t DecodeHive(std::string_view bytes, Tree *hive);

// The name under which a file is one and the same, whichever way leads to its folder. Returns 0; 2; 3; 5; 161.
[[nodiscard]] std::uint32_t FindHiveFile(const std::string &path, std::string *canonical);

[[nodiscard]] std::uint32_t ReadHiveFile(const std::string &path, std::string *bytes);

// Also 183 when there is such a file, or anything else of the name: it stays as it is.
[[nodiscard]] std::uint32_t CreateHiveFile(const std::string &path, std::string_view bytes);

// Takes the place of the file that is there, whose mode and owner it gets if that is permitted.
[[nodiscard]] std::uint32_t ReplaceHiveFile(const std::string &path, std::string_view bytes);
