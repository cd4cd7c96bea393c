// SPDX-License-Identifier: MIT
// json_schema: what a program writes as JSON, held against its schemas.
#pragma once

#include "tests/support/host.h"

// The status that tells that python3-jsonschema is not installed.
constexpr int noValidator = 77;

// Holds JSON objects, one a line, against docs/schemas/PROGRAM.schema.json with a schema each.
//   program  tvsc or tvreg
//   folder   for the files that it takes
//   isAll    every schema has to be met
// Returns the status, 0 when all is right, and what is wrong as the error text.
Ended HoldAgainstSchemas(const std::string &program, const std::string &objects, const std::string &folder, bool isAll);
