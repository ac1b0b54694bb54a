#pragma once

#include <string>

namespace qrx::test {

// Every run report a test makes is held against the schema in the tree
// (schema/run_report.schema.json), by a schema validator rather than by hand:
// /usr/bin/python3 with its jsonschema module (Debian: python3-jsonschema),
// through tests/support/validate_report.py.
// A report that does not match, or cannot be read, fails the calling test
// with the validator's words.
void ExpectReportMatchesSchema(const std::string& reportPath);

}  // namespace qrx::test
