# The sources of libraries, from the source packages of the Debian release that apt is configured for. For
# the scripts that source common.sh. They have:
#   source_list       the archives, pinned: package, file, SHA-256
#   cache             where libraries and their sources are kept
#   make_work_folder  sets `work` to a folder that goes with the script
#   unpack PACKAGE    puts its source into $work/PACKAGE, and its archives' names into $work/SOURCES
# shellcheck shell=bash

source_list=$root/scripts/lib/library-sources.txt
cache=$(cache_folder)

make_work_folder() {
  work=$(mktemp -d "${TMPDIR:-/tmp}/tessel-XXXXXX")
  trap 'rm -rf "$work"' EXIT
  mkdir -p "$cache/sources"
}

# pinned PACKAGE KIND: the lines "FILE SHA256" of a package's archives whose name has KIND in it.
pinned() {
  awk -v package="$1" -v kind="$2" '$1 == package && index($2, kind) { print $2, $3 }' "$source_list"
}

has_digest() {
  [[ -f $1 ]] && sha256sum --status --check - <<<"$2  $1"
}

# An apt with lists and settings of its own, so that the system's stay unchanged.
own_apt() {
  local tool=$1
  shift
  "$tool" -o Dir::Etc::sourcelist="$work/apt/sources.list" -o Dir::Etc::sourceparts=/dev/null \
    -o Dir::State::lists="$work/apt/lists" -o Dir::Cache="$work/apt/cache" "$@"
}

# The source packages of this Debian release, from the archives that apt is configured for. Other
# repositories may have no sources.
write_own_apt_sources() {
  local codename
  codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
  mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial"
  # shellcheck disable=SC2016  # these are apt's variables
  apt-get indextargets --format '$(REPO_URI)|$(RELEASE)|$(COMPONENT)|$(SIGNED_BY)|' \
    'Created-By: Packages' |
    awk -F '|' -v codename="$codename" '
      $3 == "main" && ($2 == codename || index($2, codename "-") == 1) {
        option = ($4 ~ /^\//) ? "[signed-by=" $4 "] " : ""
        print "deb-src " option $1, $2, $3
      }' | sort -u >"$work/apt/sources.list"
  [[ -s $work/apt/sources.list ]]
}

# apt-get update succeeds even when it reaches nothing, hence the look at its lists.
update_own_apt() {
  write_own_apt_sources && own_apt apt-get -q update && compgen -G "$work/apt/lists/*_Sources*"
}

# version_with PACKAGE FILE SHA256: the version of the source package with exactly this archive.
version_with() {
  own_apt apt-cache showsrc --only-source "$1" | awk -v wanted="$3 $2" '
    $1 == "Version:" { version = $2 }
    $1 " " $3 == wanted && !found { found = 1; print version }'
}

download() {
  local package=$1 file=$2 digest=$3 version part=--tar-only
  version=$(version_with "$package" "$file" "$digest")
  [[ -n $version ]] || return 1
  [[ $file == *.orig.* ]] || part=--diff-only
  (cd "$work/download" && own_apt apt-get -q source --download-only "$part" "$package=$version") &&
    has_digest "$work/download/$file" "$digest" &&
    mv "$work/download/$file" "$cache/sources/$file"
}

# fetch PACKAGE KIND: sets `fetched` to the first pinned archive that is cached or can be downloaded.
fetch() {
  local package=$1 file digest
  while read -r file digest; do
    if has_digest "$cache/sources/$file" "$digest"; then
      fetched=$file
      return 0
    fi
  done < <(pinned "$@")
  if [[ ! -d $work/download ]]; then
    command -v apt-get >/dev/null || die "the sources come through apt, and there is none here"
    mkdir -p "$work/download"
    update_own_apt >"$logs/library-sources.log" 2>&1 ||
      die "the list of source packages can't be loaded (build/logs/library-sources.log says why)"
  fi
  while read -r file digest; do
    if download "$package" "$file" "$digest" >>"$logs/library-sources.log" 2>&1; then
      fetched=$file
      return 0
    fi
  done < <(pinned "$@")
  die "no source archive of $package that scripts/lib/library-sources.txt names can be downloaded" \
    "(build/logs/library-sources.log says why)"
}

# unpack PACKAGE: into $work/PACKAGE, without the archive's own top folder.
unpack() {
  local fetched patch
  fetch "$1" .orig.
  mkdir "$work/$1"
  tar -xf "$cache/sources/$fetched" -C "$work/$1" --strip-components=1
  echo "$fetched" >>"$work/SOURCES"
  if [[ -n $(pinned "$1" .debian.) ]]; then
    fetch "$1" .debian.
    tar -xf "$cache/sources/$fetched" -C "$work/$1"
    echo "$fetched" >>"$work/SOURCES"
    while read -r patch; do
      patch --quiet --directory="$work/$1" -p1 <"$work/$1/debian/patches/$patch" >>"$logs/patch.log" ||
        die "$1: the patch $patch doesn't apply (build/logs/patch.log says why)"
    done < <(grep -v -E '^[[:space:]]*(#|$)' "$work/$1/debian/patches/series")
  fi
}
