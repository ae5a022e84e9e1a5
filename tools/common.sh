# What the scripts at the top share. Sourced, with the repository's root as the working directory.

log_directory=build/logs

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# step NAME COMMAND...: runs a command quietly; when it fails, its output is shown and the last line says what
# failed and where the rest of it is.
step() {
  local name=$1 log start=$SECONDS
  shift
  mkdir -p "$log_directory"
  log=$log_directory/${name// /-}.log
  printf '%-24s' "$name"
  if "$@" >"$log" 2>&1 </dev/null; then
    echo "ok ($((SECONDS - start)) s)"
  else
    echo "FAILED"
    tail -n 60 "$log" >&2
    fail "$name failed; the whole output is in $log"
  fi
}

# install_packages LIST...: installs those Debian packages of the lists that are missing; asks for nothing when
# there are none.
install_packages() {
  local missing
  missing=$(comm -13 <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u) \
                     <(sort -u "$@"))
  [ -n "$missing" ] || return 0
  local sudo=
  [ "$(id -u)" = 0 ] || sudo=sudo
  [ -z "$sudo" ] || command -v sudo >/dev/null ||
    fail "these packages are missing and only root can install them: ${missing//$'\n'/ }"
  step "package lists" $sudo apt-get update
  # shellcheck disable=SC2086 # one word a package
  step "packages" $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
}

# build PRESET
build() {
  step "configure $1" cmake --preset "$1"
  step "build $1" cmake --build --preset "$1"
}

# run_tests PRESET CTEST-ARGUMENT...: shown as they run, and closed by ctest's own summary. More than one for each
# processor: most of them wait for processes and peers.
run_tests() {
  local preset=$1
  shift
  ctest --preset "$preset" -j "$((2 * $(nproc)))" "$@" || fail "tests of the preset \"$preset\" failed"
}
