// SPDX-License-Identifier: MIT
// json_schema: a small program of Python's.
#include "tests/support/json_schema.h"

namespace {

constexpr char validate[] = "import json, sys, jsonschema\n"
                            "schema = json.load(open(sys.argv[2]))\n"
                            "jsonschema.Draft7Validator.check_schema(schema)\n"
                            "known = {part['properties']['schema']['const']: part for part in"
                            " schema['definitions'].values() if 'schema' in part.get('properties', {})}\n"
                            "assert len(known) == len(schema['oneOf'])\n"
                            "met = set()\n"
                            "def check(answer):\n"
                            "    met.add(answer['schema'])\n"
                            "    part = dict(known[answer['schema']], definitions=schema['definitions'])\n"
                            "    for fault in jsonschema.Draft7Validator(part).iter_errors(answer):\n"
                            "        sys.exit(json.dumps(answer) + '\\n' + str(fault))\n"
                            "    jsonschema.Draft7Validator(schema).validate(answer)\n"
                            "    for host in answer.get('hosts', []):\n"
                            "        if 'document' in host: check(host['document'])\n"
                            "for line in open(sys.argv[1]):\n"
                            "    check(json.loads(line))\n"
                            "assert sys.argv[3] != 'all' or met == set(known), set(known) - met\n";

} // namespace

Ended HoldAgainstSchemas(const std::string &program, const std::string &objects, const std::string &folder,
                         bool isAll) {
    const std::string answers = folder + "/answers", validator = folder + "/validate.py";
    WriteFile(answers, objects);
    WriteFile(validator, validate);
    const std::string script = "python3 -c 'import jsonschema' 2>/dev/null || exit " + std::to_string(noValidator) +
                               "; exec python3 " + validator + " " + answers + " \"$TV_SOURCE/docs/schemas/" + program +
                               ".schema.json\" " + (isAll ? "all" : "some");
    return RunAndRead({.command = {"/bin/sh", "-c", script}}, 90000);
}
