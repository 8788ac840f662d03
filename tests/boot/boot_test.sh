#!/usr/bin/env bash
# The example platform booted under systemd as PID 1 (scripts/boot.sh): what
# the manager does with the generator's output. BOOT.boot lists the checks of
# one boot, "KIND ARG..." a line, run in order by check_KIND.
#   boot_test.sh BUILD_DIR        an ordinary boot, then an upgrade boot
#   boot_test.sh --check FILE     (run by boot.sh) one file's checks
set -fuo pipefail
export LC_ALL=C
here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/../.." && pwd)
readonly CANNOT_RUN=77
readonly UNIT_DIR=$top/examples/platform/etc/systemd/system
readonly NO_REASON_DIR=/run/vela-no-reason
readonly RELOAD_TRACE=/run/vela-reloads.log
readonly PROGRAM_RECORD=/var/log/vela-migration.log
readonly GENERATOR=vela-system-generator
# What the manager says about a unit file or a generator it cannot use.
readonly COMPLAINTS="Unknown key|bad unit file setting|^(/etc|/run)/[^ ]*:[0-9]+: |$GENERATOR (failed|terminated)"
failures=0 logged="" check=""

fail() { echo "FAIL: $check: $*"; failures=$((failures + 1)); }

inside() { nsenter -t "$VELA_BOOT_PID" -a -r -w "$@"; }
ctl() { inside systemctl "$@" || fail "systemctl $* failed"; }
state_of() { inside systemctl is-active "$1"; }
invocations_of() { inside systemctl show -P InvocationID "$@" | sort; }
# Units started here more often than the start rate limit allows: resetting
# the failed state also resets the limit.
reset_start_limits() { ctl reset-failed; }

check_system() { [ "$(inside systemctl is-system-running)" = "$1" ] || fail "the system is not $1"; }
check_generated() { inside test -e "$1" || fail "the generator did not make $1"; }
check_running() { for unit; do [ "$(state_of "$unit")" = active ] || fail "$unit is not running"; done; }
check_stopped() { for unit; do [ "$(state_of "$unit")" != active ] || fail "$unit is running"; done; }

check_masked() {
  local out
  out=$(inside systemctl start "$1" 2>&1) && fail "$1 started"
  grep -qF "Unit $1 is masked." <<<"$out" || fail "$1 not refused as masked: $out"
}

# Units packed in the target stop, start and restart with it.
check_packed() {
  local target=$1 before
  shift
  reset_start_limits
  ctl stop "$target"
  check_stopped "$@"
  ctl start "$target"
  check_running "$@"
  before=$(invocations_of "$@")
  ctl restart "$target"
  [ -z "$(comm -12 <(echo "$before") <(invocations_of "$@"))" ] || fail "not all restarted"
  check_running "$@"
}

reloads_of() { inside sh -c "grep -scxF '$1' $RELOAD_TRACE || true"; }

check_reload() {
  local before
  before=$(reloads_of "$2")
  ctl reload "$1"
  [ "$(reloads_of "$2")" = $((before + 1)) ] || fail "reloading $1 did not reload $2"
}

# The reason check fails for one service: the target starts the others only.
check_reason() {
  local refused=$1 target=$2
  shift 2
  reset_start_limits
  ctl stop "$target" "$refused" "$@"
  inside sh -c "mkdir -p $NO_REASON_DIR && touch $NO_REASON_DIR/$refused"
  ctl start "$target"
  check_stopped "$refused"
  check_running "$@"
  inside rm "$NO_REASON_DIR/$refused"
  reset_start_limits
  ctl start "$target"
  check_running "$refused"
}

# systemctl waits for the job it asked for only. An isolation also queues a
# stop job for every unit the target does not keep, and the target's own job
# can finish before they do: wait until the manager's job queue is empty.
settle() {
  for _ in $(seq 300); do
    [ -z "$(inside systemctl list-jobs --no-legend)" ] && return
    sleep 0.1
  done
  fail "jobs still queued: $(inside systemctl list-jobs --no-legend | paste -sd ';')"
}

# Isolating to the target leaves exactly these of the platform's services.
check_isolate() {
  local target=$1 expected running
  shift
  expected=$(printf '%s\n' "$@" | sort | paste -sd ' ')
  ctl isolate "$target"
  settle
  running=$(inside systemctl list-units --type=service --state=active --plain --no-legend | while read -r unit _; do
    if [ -f "$UNIT_DIR/$unit" ] || [ -f "$UNIT_DIR/${unit%%@*}@.service" ]; then echo "$unit"; fi
  done | sort | paste -sd ' ')
  [ "$running" = "$expected" ] || fail "running: $running"
  ctl isolate multi-user.target
  settle
}

check_daemon-reload() { ctl daemon-reload; }

check_program() { [ "$(inside grep -cxF "$*" $PROGRAM_RECORD)" = 1 ] || fail "did not run once"; }

# The generator's messages at priority err, without "file:line velasystemd: ".
generator_errors() {
  inside journalctl -q -b -p err..err -t $GENERATOR -o cat | sed 's/^[^ ]* velasystemd: //'
}

# The journal reads the generator's lines from its socket in its own time.
check_logged() {
  logged+="$*"$'\n'
  for _ in $(seq 50); do [ "$(generator_errors)"$'\n' = "$logged" ] && return; sleep 0.1; done
  fail "logged: $(generator_errors)"
}

check_quiet() { ! inside journalctl -q -b -o cat | grep -E "$COMPLAINTS" || fail "the manager complained"; }

if [ "${1:-}" = --check ]; then
  while read -r kind args <&3; do
    case "$kind" in "" | "#"*) continue ;; esac
    check="$kind $args"
    check_$kind $args  # unit names have no blanks: split on purpose
  done 3<"$2"
  echo "$(basename "$2"): $failures failed"
  exit $((failures > 0))
fi

status=0
for boot in ordinary upgrade; do
  upgrade=() && [ $boot = ordinary ] || upgrade=(--upgrade)
  "$top/scripts/boot.sh" --build "$1" "${upgrade[@]}" -- "$here/boot_test.sh" --check "$here/$boot.boot"
  case $? in 0) ;; "$CANNOT_RUN") exit $CANNOT_RUN ;; *) status=1 ;; esac
done
exit $status
