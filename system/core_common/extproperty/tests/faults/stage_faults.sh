#!/usr/bin/env bash
# Builds a preset (release, unless another is named) and fails every platform call once.
set -euo pipefail
cd "$(dirname "$0")/../../../../.."
. scripts/setup.sh

preset=${1:-release}
build_preset "$preset" extproperty_faults
"build/$preset/system/core_common/extproperty/tests/faults/extproperty_faults"
