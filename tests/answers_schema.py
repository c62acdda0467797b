#!/usr/bin/env python3
"""Compares answers of orv-gentl with their schema.

usage: answers_schema.py SCHEMA <LINES, each "COMMAND<tab>ANSWER" with the answer as it was printed
"""
import json
import sys

import jsonschema

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
jsonschema.Draft202012Validator.check_schema(schema)
names = [name for name in schema["$defs"] if not name.startswith("_")]
validators = {
    name: jsonschema.Draft202012Validator({"$ref": "#/$defs/" + name, "$defs": schema["$defs"]})
    for name in names + ["_arguments"]
}

wrong = seen = 0
for line in sys.stdin:
    command, text = line.rstrip("\n").split("\t", 1)
    seen += 1
    try:
        answer = json.loads(text)
    except ValueError as problem:
        errors = [f"no JSON: {problem}"]
    else:
        # A command that is not known is told by an error alone.
        validator = validators[command if command in names else "_arguments"]
        errors = [f"{each.json_path}: {each.message[:300]}" for each in validator.iter_errors(answer)]
    for error in errors:
        wrong += 1
        print(f"{command}: {error}\n  {text[:300]}", file=sys.stderr)
if seen == 0:
    print("no answers to compare", file=sys.stderr)
sys.exit(1 if wrong or seen == 0 else 0)
