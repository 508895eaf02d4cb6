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
# What scripts/setup fetches and builds once, for all clones.
cache=${XDG_CACHE_HOME:-$HOME/.cache}/tallow

say() { printf '== %s\n' "$*"; }

fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
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

# start_wine [keep]: gives the programs of this script the project's own Wine prefix and one server.
# It lives until the last script that uses the prefix ends; with keep, until the next script without.
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
  [[ ${1:-} == keep ]] || at_exit stop_wine
  # The desktop is the same trap: its process starts with the first program that uses windows and
  # lives until the last such program ends. An invisible clock keeps it alive from here on.
  local clock
  clock=$(cat "$WINEPREFIX/clock" 2>/dev/null) || clock=none
  if ! grep -qsa 'clock' "/proc/$clock/cmdline"; then
    env -u DISPLAY wine clock </dev/null >/dev/null 2>&1 9>&- &
    echo $! >"$WINEPREFIX/clock"
    disown
  fi
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

configure() {
  # Each time: it takes only seconds, and a deleted cache entry comes back under the same name.
  quietly "$root/build/configure-$1.log" cmake -S "$root" --preset "$1" "${configure_options[@]}"
}

# build_preset PRESET [TARGET...]: configures if necessary and builds (everything, or the targets).
build_preset() {
  local preset=$1
  shift
  say "building preset $preset"
  cd "$root"
  configure "$preset"
  if (($#)); then
    cmake --build --preset "$preset" --target "$@"
  else
    cmake --build --preset "$preset"
  fi
}
