# shellcheck shell=bash disable=SC2034
# Sourced by the commands at the top of the repository: packages and builds, each in one place.

build_packages=(
  g++ cmake ninja-build
  android-libbase-dev android-liblog-dev android-libcutils-dev android-libselinux-dev
  libselinux1-dev libfmt-dev libcli11-dev nlohmann-json3-dev libgtest-dev
)
test_packages=("${build_packages[@]}" blueprint-tools)

# Installs those of the named Debian packages that are missing; asks sudo where the caller is not root.
install_packages() {
  local package missing=()
  for package in "$@"; do
    dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q ' installed$' ||
      missing+=("$package")
  done
  [ "${#missing[@]}" -gt 0 ] || return 0
  local as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  echo "installing: ${missing[*]}" >&2
  {
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -qq --no-install-recommends "${missing[@]}"
  } >/dev/null
}

# Configures a CMake preset and builds the named targets of it, or all: build_preset PRESET [TARGET...]
build_preset() {
  local preset=$1 target targets=()
  shift
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
