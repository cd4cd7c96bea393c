# SPDX-License-Identifier: MIT
# Holds JSON documents, one a line, against the schema that each names.
#   SCHEMA-FILE DOCUMENTS
import json
import sys

import jsonschema

schema = json.load(open(sys.argv[1]))
known = {part['properties']['schema']['const']: part
         for part in schema['definitions'].values() if 'schema' in part.get('properties', {})}
count = 0
for line in open(sys.argv[2]):
    if not line.strip():
        continue
    document = json.loads(line)
    part = dict(known[document['schema']], definitions=schema['definitions'])
    for fault in jsonschema.Draft7Validator(part).iter_errors(document):
        sys.exit(document['schema'] + ': ' + str(fault))
    count += 1
if count < 30:
    sys.exit('only %d documents' % count)
