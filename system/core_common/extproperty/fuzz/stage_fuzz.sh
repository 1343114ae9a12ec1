#!/usr/bin/env bash
# Fuzzes each target for some seconds: stage_fuzz.sh [SECONDS]. Fails on a find, which it leaves in
# build/fuzz/finds; the inputs that reach something new stay in build/fuzz/corpus for the next run.
# A target leaves the machine's root, so it is given files through a descriptor of this directory:
#   build/fuzz/system/core_common/extproperty/fuzz/TARGET /proc/self/fd/9/FILE 9<.
set -euo pipefail
cd "$(dirname "$0")/../../../.."
. scripts/setup.sh

seconds=${1:-10}
fuzz=system/core_common/extproperty/fuzz
here=/proc/self/fd/9
exec 9<.

targets=()
for source in "$fuzz"/*_fuzzer.cpp; do targets+=("$(basename "$source" .cpp)"); done
install_packages clang libclang-rt-dev
build_preset fuzz "${targets[@]}"

export seconds fuzz here
mkdir -p build/fuzz/finds

# Prints what came of it, and fails on a find.
fuzz_target() {
  local target=$1 log=build/fuzz/$1.log status=0
  mkdir -p "build/fuzz/corpus/$target"
  "build/fuzz/$fuzz/$target" -max_total_time="$seconds" -timeout=10 -max_len=1000 \
    -print_final_stats=1 -artifact_prefix="$here/build/fuzz/finds/$target-" \
    "$here/build/fuzz/corpus/$target" "$here/$fuzz/corpus/$target" >"$log" 2>&1 || status=$?
  local result=clean executions kept
  [ "$status" -eq 0 ] || result="FOUND something, see $log"
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  kept=$(find "build/fuzz/corpus/$target" -type f | wc -l)
  echo "$target: $seconds s, ${executions:-0} executions, $kept inputs kept: $result"
  return "$status"
}
export -f fuzz_target

printf '%s\n' "${targets[@]}" |
  xargs -P "$(nproc)" -I '{}' bash -c 'fuzz_target {}'
