#!/usr/bin/env bash
# Installs what is missing, builds, and runs the generator on the example
# platform (examples/) in a bubblewrap sandbox: first an ordinary boot, then
# the first boot after a system upgrade. After each it shows what the generator
# made (masks, wants links, drop-ins, enable operations, run-once flags,
# programs run, log lines) and then what systemd's own loader makes of it.
#
# Nothing is written on the host outside the build directory and /dev/shm.
set -euo pipefail
# Byte order for globs and sorting, as the generator orders names.
export LC_ALL=C
top=$(cd "$(dirname "$0")/.." && pwd)
build=$top/build
examples=$top/examples

"$top/scripts/install-deps.sh"

# The build's own output goes to a log; the demo's output is what matters.
mkdir -p "$build"
echo "Building into $build (output in $build/demo-build.log) ..."
# Only what the demo runs: the generator and its two libraries.
if ! VELA_BUILD_TARGETS="vela-system-generator" \
    "$top/scripts/build.sh" "$build" -DVELA_TESTS=ON >"$build/demo-build.log" 2>&1; then
  tail -n 40 "$build/demo-build.log"
  echo "The build failed; its whole output is in $build/demo-build.log" >&2
  exit 1
fi

generator=$build/generator/vela-system-generator
sandbox_cli=$top/scripts/vela_sandbox.py

state=$(mktemp -d /dev/shm/vela-demo.XXXXXX)
trap 'rm -rf "$state"' EXIT
root=$state/root

normal=/run/systemd/generator
early=/run/systemd/generator.early
late=/run/systemd/generator.late

# --- Running ---------------------------------------------------------------

# A new boot: /run is empty again, with the three generator directories that
# the service manager makes before it runs its generators.
new_boot() {
  rm -rf "$root/run"
  mkdir -p "$root$normal" "$root$early" "$root$late"
}

# Every path of the platform's state but the generator output, /tmp and the
# service manager's own stamp, with its type and, for a link, its target.
snapshot() {
  (cd "$root" && find . -mindepth 1 \
    \( -path "./run/systemd/generator*" -o -path ./run/systemd/systemd-units-load -o -path ./tmp \) -prune -o \
    -printf '%y /%P\t%l\n') |
    awk -F'\t' '{ if ($2 != "") print $1 " -> " $2; else print $1 }' | LC_ALL=C sort
}

run_generator() {
  snapshot >"$state/before"
  status=0
  "$sandbox_cli" --state "$state" --bind-ro "$build" --log "$state/syslog" -- \
    "$generator" "$normal" "$early" "$late" >"$state/stdout" 2>"$state/stderr" || status=$?
  snapshot >"$state/after"
}

# --- Showing ---------------------------------------------------------------

section() { printf '\n  %s\n' "$1"; }
none() { printf '    (none)\n'; }

# The entries of the snapshot diff: "+" appeared, "-" went away.
changes() {
  LC_ALL=C comm -13 "$state/before" "$state/after" | sed 's/^/+ /'
  LC_ALL=C comm -23 "$state/before" "$state/after" | sed 's/^/- /'
}

link_target() { readlink "$1"; }

show_masks() {
  section "Masks ($early)"
  local found=0 link
  for link in "$root$early"/*; do
    [ -L "$link" ] || continue
    printf '    %-28s -> %s\n' "$(basename "$link")" "$(link_target "$link")"
    found=1
  done
  [ $found = 1 ] || none
}

show_wants_links() {
  section "Wants links ($normal)"
  local found=0 dir names
  for dir in "$root$normal"/*.wants; do
    [ -d "$dir" ] || continue
    names=$(cd "$dir" && LC_ALL=C ls -A | paste -sd ' ')
    printf '    %-28s <- %s\n' "$(basename "$dir" .wants)" "$names"
    found=1
  done
  [ $found = 1 ] || none
}

show_file() {
  sed 's/^/        /' "$1"
}

# Every drop-in the run left, with its content: the basis of "same as before".
drop_in_listing() {
  local dir entry path
  for dir in "$normal" "$early"; do
    for entry in "$root$dir"/*.d/*; do
      [ -e "$entry" ] || [ -L "$entry" ] || continue
      path=${entry#"$root"}
      if [ -L "$entry" ]; then
        printf '    %s -> %s\n' "$path" "$(link_target "$entry")"
      else
        printf '    %s\n' "$path"
        show_file "$entry"
      fi
    done
  done
  local reason=/run/velasystemd/reason-conf/vela-reason.conf
  if [ -f "$root$reason" ]; then
    printf '    %s\n' "$reason"
    show_file "$root$reason"
  fi
}

show_drop_ins() {
  section "Drop-ins"
  drop_in_listing >"$state/drop-ins"
  if [ ! -s "$state/drop-ins" ]; then
    none
  elif [ -f "$state/drop-ins.previous" ] && cmp -s "$state/drop-ins" "$state/drop-ins.previous"; then
    printf '    the same %s files and links as in the run before, with the same content\n' \
      "$(grep -c '^    /' "$state/drop-ins")"
  else
    cat "$state/drop-ins"
  fi
  mv "$state/drop-ins" "$state/drop-ins.previous"
}

# Links made or removed under the two unit directories whose links enable
# units, and the change marks that record a departure from the defaults.
show_enable_operations() {
  section "Enable operations (unit library)"
  changes | grep -E '^[+-] l /(run|etc)/systemd/system/' | sed -E 's/^([+-]) l /    \1 /' \
    >"$state/enable" || true
  changes | grep -E '^[+-] f /etc/velasystemd/changed/' | sed -E 's/^([+-]) f /    \1 change mark /' \
    >>"$state/enable" || true
  if [ -s "$state/enable" ]; then cat "$state/enable"; else none; fi
}

show_upgrade_effects() {
  changes | grep -E '^[+-] f /run/upgrade-bootup/' | sed -E 's/^([+-]) f /    \1 /' >"$state/flags" || true
  changes | grep -E '^- d /usr/vela/etc/velaservice\.[a-z]+$' | sed -E 's/^- d /    - /; s|$|/|' \
    >"$state/removed" || true
  diff "$state/programs.before" <(cat "$root/var/log/vela-migration.log" 2>/dev/null) |
    sed -n 's/^> /    /p' >"$state/programs" || true

  section "Upgrade-boot migration"
  if [ ! -s "$state/flags" ] && [ ! -s "$state/removed" ] && [ ! -s "$state/programs" ]; then
    printf '    nothing: no run-once flag made, no program run, no legacy configuration removed\n'
    return
  fi
  printf '    run-once flags:\n'; sed 's/^/  /' "$state/flags"
  printf '    programs run (as they recorded it):\n'; sed 's/^/  /' "$state/programs"
  printf '    legacy configuration removed:\n'; sed 's/^/  /' "$state/removed"
}

show_log() {
  section "Log lines (syslog)"
  if [ -s "$state/syslog" ]; then sed 's/^/    /' "$state/syslog"; else none; fi
  if [ -s "$state/stdout" ] || [ -s "$state/stderr" ]; then
    section "Output on stdout/stderr"
    cat "$state/stdout" "$state/stderr" | sed 's/^/    /'
  fi
}

show_run() {
  printf '  exit status %s\n' "$status"
  show_masks
  show_wants_links
  show_drop_ins
  show_enable_operations
  show_upgrade_effects
  show_log
}

# The legacy auto_start settings as the upgrade found them.
show_legacy_settings() {
  local file value
  printf '  legacy auto_start settings in /usr/vela/etc/velaservice.override/:\n'
  for file in "$root"/usr/vela/etc/velaservice.override/*; do
    value=$(tr -d '\n' <"$file" | sed -nE 's/.*"auto_start"[[:space:]]*:[[:space:]]*("[^"]*"|[a-z0-9]+).*/\1/p')
    printf '    %-28s auto_start %s\n' "$(basename "$file")" "${value:-(none)}"
  done
}

heading() {
  printf '\n=== %s ===\n' "$1"
}

# Remembers the migration programs' record so that each run shows its own.
keep_program_record() {
  cat "$root/var/log/vela-migration.log" >"$state/programs.before" 2>/dev/null || : >"$state/programs.before"
}

# --- The service manager's view --------------------------------------------

# The example's units by name: every unit file but templates, and the
# instances the image enables.
example_units() {
  (cd "$root/etc/systemd/system" &&
    { find . -maxdepth 1 \( -type f -o -type l \) -printf '%f\n' | grep -v '@\.'
      find . -mindepth 2 -maxdepth 2 -path './*.wants/*@?*.*' -printf '%f\n'; }) | LC_ALL=C sort -u
}

# systemd's own loader runs the generator (as on a reload: the run-once flags
# and the enable links of this boot are there already) and dumps the units.
# They are named, not given as paths: for a path, verify would put its
# directory ahead of the early generator directory, where the masks are.
run_manager() {
  mkdir -p "$state/control/generators"
  ln -sfn "$generator" "$state/control/generators/vela-system-generator"
  snapshot >"$state/before"
  "$sandbox_cli" --state "$state" --bind-ro "$build" --log "$state/syslog" \
    --env SYSTEMD_LOG_LEVEL=debug --env SYSTEMD_GENERATOR_PATH=/.vela-test/generators -- \
    systemd-analyze verify --generators=yes --man=no $(example_units) >"$state/dump" 2>"$state/verify" || true
  snapshot >"$state/after"
}

# From the dump: Wants= of each target, PartOf= and ReloadPropagatedFrom= of
# each packed unit, ExecStartPre= of each service with one; names sorted.
summarise_dump() {
  awk '
    /^\t-> Unit / { unit = $3; sub(/:$/, "", unit); group = ""; next }
    /^\t\t-> / { group = $2; sub(/:$/, "", group); next }
    /^\t\t[A-Za-z]/ { group = "" }
    /^\t\tWants: / { print unit "\t1Wants\t" $2 }
    /^\t\tPartOf: / { print unit "\t2PartOf\t" $2 }
    /^\t\tReloadPropagatedFrom: / { print unit "\t3ReloadPropagatedFrom\t" $2 }
    /^\t\t\tCommand Line: / && group == "ExecStartPre" {
      line = $0; sub(/^\t\t\tCommand Line: /, "", line); print unit "\t4ExecStartPre\t" line }
  ' "$state/dump" | LC_ALL=C sort -t "$(printf '\t')" -k1,1 -k2,2 -k3,3 |
    awk -F '\t' '
      function flush() { if (key != "") printf "    %-26s%s=%s\n", shown, substr(key, 2), text }
      $1 != unit || $2 != key { flush(); shown = ($1 != unit) ? $1 : ""; unit = $1; key = $2; text = $3; next }
      { text = text " " $3 }
      END { flush() }'
}

show_manager_view() {
  section "As systemd loads it (systemd-analyze verify --generators=yes)"
  local generator_line
  generator_line=$(grep -E '/vela-system-generator (succeeded|failed)' "$state/verify" || echo "generator not run")
  printf '    %s\n' "${generator_line#/.vela-test/generators/}"
  printf '    masked: %s\n' "$(sed -n 's/^Unit \(.*\) is masked\.$/\1/p' "$state/verify" | paste -sd ' ')"
  summarise_dump
  # Warnings about a line of a file begin "PATH:LINE: ".
  local ours='^(/etc/systemd/system|/run|/tmp/systemd-temporary-)[^ ]*:[0-9]+: ' problems
  problems=$(grep -cE "Unknown key|bad unit file setting|$ours" "$state/verify" || true)
  printf '    warnings about these units or the generated files: %s\n' "${problems:-0}"
  if [ -n "$(changes)" ]; then
    printf '    changes this second run made:\n'
    changes | sed 's/^/      /'
  else
    printf '    this second run of the boot made no enable operation, ran no program, changed nothing\n'
  fi
}

# --- The demo --------------------------------------------------------------

mkdir -p "$root"
cp -a "$examples/platform/." "$root/"

echo
echo "vela-system-generator on the example platform (examples/platform)"
printf '  %s unit files in /etc/systemd/system; support table /usr/vela/etc/unit-support.conf\n' \
  "$(find "$root/etc/systemd/system" -maxdepth 1 \( -type f -o -type l \) | wc -l)"
printf '  change marks: %s\n' "$(cd "$root/etc/velasystemd/changed" && ls | paste -sd ' ')"

heading "Boot 1: an ordinary boot (no upgrade markers)"
new_boot
keep_program_record
run_generator
show_run
run_manager
show_manager_view

heading "Boot 2: the first boot after an upgrade"
new_boot
cp -a "$examples/upgrade/." "$root/"
printf '  markers: /var/.UpgradeBootup, /.old_patch_info/VERSION (%s)\n' "$(cat "$root/.old_patch_info/VERSION")"
show_legacy_settings
keep_program_record
run_generator
show_run
run_manager
show_manager_view
