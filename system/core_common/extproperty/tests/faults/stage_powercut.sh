#!/usr/bin/env bash
# Builds a preset (release, unless another is named) and cuts a boot off at every call that writes.
set -euo pipefail
cd "$(dirname "$0")/../../../../.."
. scripts/setup.sh

preset=${1:-release}
build_preset "$preset" extproperty_power_cut
"build/$preset/system/core_common/extproperty/tests/faults/extproperty_power_cut"
