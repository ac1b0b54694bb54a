#include "support/report_schema.h"

#include <gtest/gtest.h>

#include "support/child_process_posix.h"

namespace qrx::test {

namespace {

// The system's interpreter, where the distribution installs the module (a
// python3 earlier on PATH may not have it).
constexpr const char* kPython = "/usr/bin/python3";

constexpr const char* kValidate = R"PY(
import json, sys
try:
    import jsonschema
except ImportError:
    sys.exit("the jsonschema module is missing: install python3-jsonschema")
with open(sys.argv[1]) as f:
    schema = json.load(f)
with open(sys.argv[2]) as f:
    report = json.load(f)
jsonschema.Draft202012Validator.check_schema(schema)
errors = list(jsonschema.Draft202012Validator(schema).iter_errors(report))
for error in errors:
    where = "/".join(str(part) for part in error.absolute_path) or "(top)"
    print(where + ": " + error.message, file=sys.stderr)
sys.exit(1 if errors else 0)
)PY";

}  // namespace

void ExpectReportMatchesSchema(const std::string& reportPath) {
  const ProcessResult check = RunProcess(
      {kPython, "-c", kValidate, QRX_SOURCE_DIR "/schema/run_report.schema.json", reportPath});
  EXPECT_EQ(check.exitStatus, 0) << reportPath << " against the schema:\n" << check.err;
}

}  // namespace qrx::test
