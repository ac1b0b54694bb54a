#!/usr/bin/env bash
# The README's package table is what tools/deps.sh makes from its one list, so
# the two cannot drift. Usage: check_readme_packages.sh SOURCE_DIR
set -euo pipefail
cd "$1"
readme=$(sed -n '/^<!-- package table: tools\/deps.sh --table -->$/,/^<!-- end of the package table -->$/p' README.md |
  sed '1d;$d')
[ -n "$readme" ] || { echo "FAIL: README.md has no package table between its markers" >&2; exit 1; }
diff <(echo "$readme") <(tools/deps.sh --table) ||
  { echo "FAIL: README.md's package table differs from tools/deps.sh --table (fix: paste its output)" >&2; exit 1; }
echo "package table ok"
