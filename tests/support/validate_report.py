"""Checks a qrxbpl run report against its JSON Schema.

Usage: validate_report.py SCHEMA REPORT. Exit status 0 when the report
matches; else 1, one line per mismatch on standard error. Run it with the
interpreter that has the jsonschema module (Debian: python3-jsonschema).
"""
import json
import sys

try:
    import jsonschema
except ImportError:
    sys.exit("the jsonschema module is missing: install python3-jsonschema")

with open(sys.argv[1], encoding="utf-8") as f:
    schema = json.load(f)
with open(sys.argv[2], encoding="utf-8") as f:
    report = json.load(f)
jsonschema.Draft202012Validator.check_schema(schema)
errors = list(jsonschema.Draft202012Validator(schema).iter_errors(report))
for error in errors:
    where = "/".join(str(part) for part in error.absolute_path) or "(top)"
    print(where + ": " + error.message, file=sys.stderr)
sys.exit(1 if errors else 0)
