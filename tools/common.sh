# What the scripts at the top share. Sourced, with the repository's root as the working directory.

log_directory=build/logs

fail() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# step NAME COMMAND...: runs a command quietly; when it fails, its output is shown and the last line says what
# failed and where the rest of it is.
step() {
  local name=$1 log=$log_directory/${1// /-}.log start=$SECONDS status=0
  shift
  mkdir -p "$log_directory"
  printf '%-24s' "$name"
  "$@" >"$log" 2>&1 </dev/null || status=$?
  report "$name" "$log" "$start" "$status"
}

# begin NAME COMMAND...: a step that goes on beside what follows, with what that leaves of the processors. One at a
# time; conclude waits for it.
begin() {
  begun_name=$1 begun_log=$log_directory/${1// /-}.log begun_at=$SECONDS
  shift
  mkdir -p "$log_directory"
  set -m # A process group of its own, so that all of it can be ended.
  nice -n 19 "$@" >"$begun_log" 2>&1 </dev/null &
  begun_group=$!
  set +m
  trap 'kill -- "-$begun_group" 2>/dev/null && wait "$begun_group" || true' EXIT
}

conclude() {
  local status=0
  wait "$begun_group" || status=$?
  trap - EXIT
  printf '%-24s' "$begun_name"
  report "$begun_name" "$begun_log" "$begun_at" "$status"
}

# report NAME LOG START STATUS
report() {
  if (($4 == 0)); then
    echo "ok ($((SECONDS - $3)) s)"
  else
    echo "FAILED"
    tail -n 60 "$2" >&2
    fail "$1 failed; the whole output is in $2"
  fi
}

# package_names LIST...: the packages of the lists. The lists have the names of Debian 12; tools/packages/renamed.RELEASE has
# a line "NAME ITS-NAME-THERE" for each package that another release names otherwise.
package_names() {
  local renamed
  renamed=tools/packages/renamed.$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
  [ -r "$renamed" ] || renamed=/dev/null
  awk 'FILENAME == ARGV[1] { there[$1] = $2; next } { print ($1 in there) ? there[$1] : $1 }' "$renamed" "$@" | sort -u
}

# install_packages LIST...: names those Debian packages of the lists that are missing, and installs them. It asks for
# nothing: where sudo needs a password, it fails and prints the command to run.
install_packages() {
  local missing
  missing=$(comm -13 <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u) \
                     <(package_names "$@"))
  [ -n "$missing" ] || return 0
  missing=${missing//$'\n'/ }
  echo "Installing missing Debian packages: $missing"
  local root=()
  if [ "$(id -u)" != 0 ]; then
    root=(sudo -n)
    "${root[@]}" true 2>/dev/null || fail "only root can install packages, and sudo is missing or needs a password. Run" \
      "\"apt-get update && apt-get install --no-install-recommends $missing\" as root first"
  fi
  step "package lists" "${root[@]}" apt-get update
  # Keeps configuration files that were edited.
  # shellcheck disable=SC2086 # one word a package
  step "packages" "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y \
    -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold --no-install-recommends $missing
}

# build PRESET
build() {
  step "configure $1" cmake --preset "$1"
  step "build $1" cmake --build --preset "$1"
}

# run_tests PRESET CTEST-ARGUMENT...: shown as they run, and closed by ctest's own summary. Several for each
# processor: most of them wait for processes and peers.
run_tests() {
  local preset=$1
  shift
  ctest --preset "$preset" -j "$((3 * $(nproc)))" "$@" || fail "tests of the preset \"$preset\" failed"
}
