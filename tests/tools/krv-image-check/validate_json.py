#!/usr/bin/python3
# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
"""Validates a JSON document against a JSON schema.

usage: validate_json.py SCHEMA DOCUMENT

Exit status: 0 valid, 1 not valid; standard output has one line per mistake. It runs the distribution's Python, for which
scripts/setup installs jsonschema.
"""
import json
import sys

import jsonschema


def main(schema_path, document_path):
    with open(schema_path, encoding="utf-8") as file:
        schema = json.load(file)
    with open(document_path, encoding="utf-8") as file:
        document = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    mistakes = list(jsonschema.Draft202012Validator(schema).iter_errors(document))
    for mistake in mistakes:
        print("/".join(map(str, mistake.absolute_path)) + ": " + mistake.message)
    return 1 if mistakes else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
