# What the scripts share. A script sources it first, and then has:
#   root        the source folder, whatever the current directory is
#   note, die   a line for the reader; a line on the error stream and the end
#   run_step    a command whose output is only shown when it fails
#   locked      a command that no other run of these scripts executes at the same time
#   need_*      installs Debian's packages for a purpose where they are missing
# shellcheck shell=bash

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
me=scripts/${0##*/}
logs=$root/build/logs
mkdir -p "$logs"

note() {
  printf '%s\n' "$*"
}

die() {
  printf '%s: %s\n' "$me" "$*" >&2
  exit 1
}

# cmake_error LOG: the text of the first error that CMake gives, on one line.
cmake_error() {
  awk '
    !found && sub(/^CMake Error( at [^(]*\(message\))?:? */, "") { found = 1; text = $0; next }
    found && (/^(Call Stack|CMake |--)/ || (/^$/ && blank)) { exit }
    found { blank = /^$/; sub(/^ +/, ""); text = text (text == "" || blank ? "" : " ") $0 }
    END { print text }' "$1"
}

# show_log LOG: the part that matters: from a build's first failure on, or else the end.
show_log() {
  local first
  first=$(grep -n -m 1 '^FAILED: ' "$1" | cut -d : -f 1) || first=
  if [[ -n $first ]]; then
    tail -n +"$first" "$1" | head -n 200 >&2
  else
    tail -n 40 "$1" >&2
  fi
}

# run_step TITLE COMMAND...: the log is named after the title. A function ends at its first failure,
# unless run_step itself is part of a condition, where Bash ignores set -e.
run_step() {
  local title=$1 start=$SECONDS status=0
  shift
  local log=$logs/${title//[^A-Za-z0-9-]/_}.log
  printf '%s ... ' "$title"
  set +e
  (
    set -e
    "$@"
  ) >"$log" 2>&1 </dev/null
  status=$?
  set -e
  if ((status != 0)); then
    printf 'failed\n'
    if grep -q '^CMake Error' "$log"; then
      die "$(cmake_error "$log") (the whole log is ${log#"$root"/})"
    fi
    show_log "$log"
    die "$title failed; the whole log is ${log#"$root"/}"
  fi
  printf '%d s\n' $((SECONDS - start))
}

# locked FILE COMMAND...: the command doesn't inherit the lock, since a server that it leaves running
# would keep holding it.
locked() {
  local lock=$1
  shift
  (
    if ! flock --nonblock 9; then
      note "Waiting for another run of these scripts"
      flock 9
    fi
    "$@" 9>&-
  ) 9>"$lock"
}

as_root() {
  if [[ $(id -u) == 0 ]]; then
    "$@"
  else
    sudo "$@"
  fi
}

install_packages() {
  local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=600)
  # The update fails for any source that can't be reached, even one that isn't needed.
  as_root "${apt[@]}" update || true
  as_root "${apt[@]}" install --no-install-recommends "$@"
}

# need_packages PACKAGE...: without apt it does nothing, and the build names what is missing.
need_packages() {
  command -v dpkg-query >/dev/null && command -v apt-get >/dev/null || return 0
  local installed package missing=()
  installed=$(dpkg-query -W -f '${Package} ${Status}\n' "$@" 2>/dev/null) || true
  for package in "$@"; do
    grep -q "^$package install ok installed\$" <<<"$installed" || missing+=("$package")
  done
  if ((${#missing[@]} == 0)); then
    return 0
  fi
  if [[ $(id -u) != 0 ]] && ! command -v sudo >/dev/null; then
    die "these packages are missing; install them as root: apt-get install ${missing[*]}"
  fi
  run_step "Installing Debian packages" install_packages "${missing[@]}"
}

need_linux_packages() {
  need_packages build-essential cmake ninja-build ccache openssl libssl-dev libtinyxml-dev \
    libpcre2-dev libhivex-dev libcurl4-openssl-dev libgit2-dev libgtest-dev \
    libgmock-dev libbenchmark-dev
}

need_windows_packages() {
  need_packages build-essential cmake ninja-build ccache openssl g++-mingw-w64-x86-64-posix
}

need_tidy_packages() {
  need_packages python3 clang-tidy-14
}

need_test_packages() {
  need_tidy_packages
  need_packages python3 python3-jsonschema git clang-format-14 attr libhivex-bin libregf-utils \
    libwin-hivex-perl libxml2-utils ntfs-3g osslsigncode libengine-pkcs11-openssl softhsm2 wine wine64 \
    fish man-db mandoc zsh
}

# Without it the tests of pages are skipped.
need_browser() {
  (need_packages chromium fonts-dejavu-core) || note "Pages can't be tested: there is no Chromium"
}

# Without it the tests of fleets are skipped.
need_fleet() {
  (need_packages ansible-core) || note "Fleets can't be tested: there is no ansible-core"
}

need_fuzz_packages() {
  need_packages clang-14 libclang-rt-14-dev llvm-14
}

need_bench_packages() {
  need_packages python3 lua5.4 libxml2-dev libxml2-utils ntfs-3g
}

build_preset_now() {
  local preset=$1
  shift
  local targets=() options=()
  local argument
  for argument in "$@"; do
    case $argument in
      -D*) options+=("$argument") ;;
      *) targets+=("$argument") ;;
    esac
  done
  cmake -S "$root" --preset "$preset" "${options[@]}"
  cmake --build "$root/build/$preset" --target "${targets[@]}"
}

# build_preset PRESET [-DNAME=VALUE...] TARGET...
build_preset() {
  mkdir -p "$root/build/$1"
  run_step "Building $1" locked "$root/build/$1/.lock" build_preset_now "$@"
}

# need_development_key PRESET: scripts pack their patches with the development pair, so a build that
# is configured with another public key can't run them.
need_development_key() {
  local cache=$root/build/$1/CMakeCache.txt
  if [[ -f $cache ]] && grep -q '^TESSEL_PUBLIC_KEY:[A-Z]*=.' "$cache"; then
    die "build/$1 has a public key of its own; back to the development pair:" \
      "cmake -S . --preset $1 -DTESSEL_PUBLIC_KEY="
  fi
}

# stop_wine: ends the server of WINEPREFIX, if there is one. Its folder, whose name the prefix has, would
# stay in /tmp.
stop_wine() {
  [[ -d ${WINEPREFIX:-} ]] || return 0
  local folder=
  [[ ! -r $WINEPREFIX/wineserver ]] || folder=$(<"$WINEPREFIX/wineserver")
  wineserver --kill || true
  [[ ! $folder =~ ^wine-[[:alnum:]]{6}$ ]] || rm -rf --one-file-system "/tmp/$folder"
}

# Where libraries and their sources are kept between builds and for other checkouts.
cache_folder() {
  local home=${HOME:-$(getent passwd "$(id -u)" | cut -d : -f 6)}
  printf '%s\n' "${TESSEL_CACHE:-${XDG_CACHE_HOME:-$home/.cache}/tessel}"
}
