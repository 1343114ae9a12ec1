#!/usr/bin/env bash
# Counts the system calls of each loader on the sample device and compares them with what its steps
# need: count_system_calls.sh
#   a test for existence                 1: access
#   a file read                          open, fstat, one read per 1,024 bytes and one that finds the
#                                        end, close; without the fstat where only the start is read
#   a directory listed                   open, fstat, two reads, close
#   a file written                       open, write, close
#   a file or directory that is missing  1: open
#   unlink, lchown, mkdir, mount         1
# Requests for memory are not counted: they depend on what the process has in store.
set -euo pipefail
cd "$(dirname "$0")/../../../.."
. scripts/setup.sh

install_packages libbenchmark-dev strace
build_preset benchmark loader_calls
trace=$(mktemp)
strace -f -o "$trace" \
  build/benchmark/system/core_common/extproperty/benchmarks/loader_calls examples/device \
  partitions partition=/odm persist cota quasar simswitch simswitch=switchCarrierChannel \
  service=mount_and_check_load media=/my_carrier/media service=module_bind_single
awk '
  function summary() {
    printf "%-36s %6d %6d %6d %7d %7d %6d  %7d %6d\n", loader, tests, reads, lists, writes,
           missing, others, needed, made
    for (kind in extra) printf "  not needed: %d %s\n", extra[kind], kind
  }
  BEGIN {
    print "loader                                tests  reads  lists  writes  missing others" \
          "   needed   made"
  }
  { sub(/^[0-9]+ +/, ""); call = $0; sub(/\(.*/, "", call); result = $0; sub(/.*\) += /, "", result) }
  /^access\("\/begin / {
    split($0, quoted, "\""); loader = substr(quoted[2], 8)
    tests = reads = lists = writes = missing = others = needed = made = 0
    delete extra
    next
  }
  /^access\("\/end / { summary(); loader = ""; next }
  loader == "" || call ~ /^(brk|mmap|munmap|mremap|madvise)$/ { next }
  { made++ }
  call == "access" { tests++; needed++; next }
  call == "openat" && result < 0 { missing++; needed++; next }
  call == "openat" && /O_DIRECTORY/ { lists++; needed += 5; fd_kind[result + 0] = "list"; next }
  call == "openat" && /O_WRONLY/ { writes++; needed += 3; fd_kind[result + 0] = "write"; next }
  call == "openat" { reads++; needed += 3; fd_kind[result + 0] = "read"; next }
  call == "newfstatat" && /AT_EMPTY_PATH/ {
    fd = $0; gsub(/^newfstatat\(|,.*/, "", fd)
    size = $0; sub(/.*st_size=/, "", size)
    if (fd_kind[fd] == "read") needed += 1 + int((size + 1023) / 1024)
    next
  }
  call ~ /^(unlink|lchown|mkdir|mount)$/ { others++; needed++; next }
  call ~ /^(read|write|close|getdents64)$/ { next }
  { extra[/AT_SYMLINK_NOFOLLOW/ ? "lstat" : call]++ }
' "$trace"
rm -f "$trace"
