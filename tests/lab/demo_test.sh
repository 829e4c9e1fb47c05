#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The demo plays through to its end in the lab, and prints what the README shows of it.
# usage: demo_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build=$2
export PYTHONDONTWRITEBYTECODE=1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$source_dir/lab/run" --build "$build" --timeout 580 -- /opt/ybnet/bin/demo | tee "$work/demo"
"$source_dir/tests/build/docs_check.py" transcript "$source_dir/README.md" "$work/demo"
echo 'the README shows what the demo prints'
