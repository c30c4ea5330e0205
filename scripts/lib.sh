# shellcheck shell=bash
# Functions that the scripts share; sourced, not run.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# packages PURPOSE...: the Debian 12 packages that each purpose needs.
packages() {
  local purpose
  for purpose; do
    case $purpose in
      demo) echo g++ cmake ninja-build libcli11-dev nlohmann-json3-dev prometheus-cpp-dev ;;
      build) packages demo && echo libssl-dev libnghttp2-dev libprotobuf-dev protobuf-compiler ;;
      test) echo libgtest-dev libgmock-dev dpkg-dev openssl openvswitch-common openvswitch-vtep gobgpd python3 ;;
      package) echo dpkg-dev ;;
      sanitizers) echo clang libclang-rt-14-dev llvm ;;
      live) echo gobgpd frr openvswitch-common openvswitch-vtep iproute2 ;;
      bench) echo liblmdb-dev libboost-dev libhiredis-dev redis-server python3 ;;
      format) echo git clang-format-14 ;;
      tidy) echo git clang clang-tidy-14 ;;
      *) echo "packages: unknown purpose '$purpose'" >&2; return 1 ;;
    esac
  done
}

# missingPackages PURPOSE...: those that are not installed, in one line.
missingPackages() {
  local missing=() package
  for package in $(packages "$@"); do
    [[ $(dpkg-query -W -f='${Status}' "$package" 2>/dev/null) == *' installed' ]] || missing+=("$package")
  done
  echo "${missing[*]}"
}

# needPackages PURPOSE...: installs what is missing, or says what is missing and how to install it.
needPackages() {
  local missing sudo=()
  if ! command -v dpkg-query >/dev/null; then
    echo "This is not Debian: packages are not checked. Needed (Debian's names):" $(packages "$@") >&2
    return
  fi
  read -ra missing < <(missingPackages "$@")
  ((${#missing[@]})) || return 0

  if (($(id -u))); then
    if ! sudo -n true 2>/dev/null; then
      echo "Missing packages: ${missing[*]}" >&2
      echo "Install them with: sudo apt-get update && sudo apt-get install ${missing[*]}" >&2
      exit 1
    fi
    sudo=(sudo)
  fi
  echo "Installing: ${missing[*]}"
  "${sudo[@]}" apt-get update -qq </dev/null
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" </dev/null >/dev/null
}

# build PRESET [CMAKE-OPTION...] [-- BUILD-OPTION...]: configures and builds.
build() {
  local preset=$1 options=()
  shift
  while (($#)) && [[ $1 != -- ]]; do
    options+=("$1")
    shift
  done
  (($#)) && shift
  (cd "$root" && cmake --preset "$preset" "${options[@]}" && cmake --build --preset "$preset" "$@") </dev/null
}
