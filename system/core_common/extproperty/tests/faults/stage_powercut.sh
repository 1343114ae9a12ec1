#!/usr/bin/env bash
# Builds a preset (release, unless another is named) and cuts a boot off at every call that writes.
set -euo pipefail
cd "$(dirname "$0")/../../../../.."
preset=${1:-release}
[[ -f build/$preset/build.ninja ]] || cmake --preset "$preset"
cmake --build "build/$preset" -j2 --target extproperty_power_cut
"build/$preset/system/core_common/extproperty/tests/faults/extproperty_power_cut"
