#include "support/report_schema.h"

#include <gtest/gtest.h>

#include "support/child_process_posix.h"

namespace qrx::test {

void ExpectReportMatchesSchema(const std::string& reportPath) {
  // The system's interpreter, where the distribution installs the module (a
  // python3 earlier on PATH may lack it).
  const ProcessResult check =
      RunProcess({"/usr/bin/python3", QRX_SOURCE_DIR "/tests/support/validate_report.py",
                  QRX_SOURCE_DIR "/schema/run_report.schema.json", reportPath});
  EXPECT_EQ(check.exitStatus, 0) << reportPath << " against the schema:\n" << check.err;
}

}  // namespace qrx::test
