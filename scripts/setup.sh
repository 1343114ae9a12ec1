# shellcheck shell=bash disable=SC2034
# Sourced by the commands at the top of the repository and the stages: packages, builds and test runs,
# each in one place.

library_packages=(
  android-libbase-dev android-liblog-dev android-libcutils-dev android-libselinux-dev
  libselinux1-dev libfmt-dev libcli11-dev nlohmann-json3-dev libgmock-dev
)
build_packages=(g++ cmake ninja-build "${library_packages[@]}")
# What the tool unpacks images with, and what the tests make them with.
image_packages=(7zip e2fsprogs erofs-utils android-sdk-libsparse-utils)

# Stands before a command that only root may run.
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)

# Installs those of the named Debian packages that are missing; asks sudo where the caller is not root.
install_packages() {
  local package missing=()
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed$' ||
      missing+=("$package")
  done
  [ "${#missing[@]}" -gt 0 ] || return 0
  local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
    apt-get install -y -qq --no-install-recommends "${missing[@]}")
  echo "installing: ${missing[*]}" >&2
  # The lists of packages are fetched anew only where those that are there do not serve.
  "${install[@]}" >/dev/null 2>&1 ||
    { "${as_root[@]}" apt-get update -qq && "${install[@]}"; } >/dev/null
}

# Configures a CMake preset and builds the named targets of it, or all: build_preset PRESET [TARGET...]
build_preset() {
  local preset=$1 target targets=()
  shift
  install_packages "${build_packages[@]}"
  for target in "$@"; do targets+=(--target "$target"); done
  local log
  log=$(mktemp)
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "${targets[@]}"; } >"$log" 2>&1
  then
    cat "$log" >&2
    rm -f "$log"
    echo "building the preset $preset failed" >&2
    return 1
  fi
  rm -f "$log"
}

# Builds a preset, runs its native tests, and ends with a line that counts them:
# run_native_tests PRESET [CTEST-OPTION...]
run_native_tests() {
  local preset=$1 log status=0
  shift
  install_packages "${image_packages[@]}"
  build_preset "$preset"
  if [ "$(id -u)" -ne 0 ]; then
    echo "the tests mount and chown inside a private root: run them as root (sudo ./test)" >&2
    return 1
  fi
  log=$(mktemp)
  ctest --preset "$preset" -j "$(nproc)" --no-tests=error "$@" >"$log" 2>&1 || status=$?
  [ "$status" -eq 0 ] || cat "$log"
  local total failed
  total=$(sed -nE 's/.*tests passed, [0-9]+ tests? failed out of ([0-9]+).*/\1/p' "$log")
  failed=$(sed -nE 's/.*tests passed, ([0-9]+) tests? failed out of.*/\1/p' "$log")
  rm -f "$log"
  echo "$preset: $((${total:-0} - ${failed:-0})) passed, ${failed:-0} failed"
  return "$status"
}
