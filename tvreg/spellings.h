// SPDX-License-Identifier: MIT
// spellings: the options of the Win32 registry tool, as ours.
//
// There an option begins with a slash or a dash and is one word whatever its length: -ve is not -v with the name "e".
#pragma once

#include <string>
#include <vector>

// The arguments behind a command's name with the Win32 spellings in them replaced; letter case does not matter in
// these. What an option takes is glued to it (--value=NAME), so that it may begin with a slash or a dash. Arguments
// behind -- stay as they are, and so do all of a command that is not one of the Win32 tool.
std::vector<std::string> OurSpellings(const std::string &command, const std::vector<std::string> &arguments);
