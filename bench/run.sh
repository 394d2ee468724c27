#!/usr/bin/env bash
# Measures every performance figure against its reference in the same run and prints the table.
#
#   bash bench/run.sh        # about 15 minutes on 2 cores, 9 of them the idle rounds; not part of the tests
#
# Each figure alternates ours and its references round by round (BENCH_ROUNDS, default 9) and reports medians.
# Exit status: 0 when every figure is within its budget, 3 when one is not, anything else when a run failed.
set -euo pipefail
cd "$(dirname "$0")/.."

rounds=${BENCH_ROUNDS:-9}
idle_seconds=${BENCH_IDLE_SECONDS:-60}
build=build/bench
# Nothing listens on the discard port, so every request fails at once and the app keeps retrying on its timers.
unreachable=http://127.0.0.1:9

app="$build/app/Orvistelle FCP Beauty.app/Contents/MacOS/Orvistelle FCP Beauty"
app_title="Orvistelle FCP Beauty"
reference="$build/bench/orvistelle_reference_window"
reference_title="Orvistelle Bench Reference"
floor="$build/bench/orvistelle_reference_window_curl"
host="$build/bench/orvistelle_service_host"
service="$build/service/liborvistelle-service.so"
probe="$build/bench/orvistelle_window_probe"
install="$build/bench/orvistelle_template_install"

build_release() {
  bash tools/bootstrap.sh
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORVISTELLE_SANITIZE= -DORVISTELLE_BUILD_TESTS=OFF \
    -DORVISTELLE_BUILD_BENCH=ON -DORVISTELLE_AUTH_URL=$unreachable -DORVISTELLE_API_URL=$unreachable \
    -DORVISTELLE_DOWNLOAD_URL=$unreachable -DORVISTELLE_SITE_URL=$unreachable/site \
    -DORVISTELLE_DOCS_URL=$unreachable/docs >/dev/null
  cmake --build "$build" -j2 >&2
  if [ ! -x "$app" ]; then
    echo "bench: $app was not built" >&2
    exit 1
  fi
  if (exec 3<>/dev/tcp/127.0.0.1/9) 2>/dev/null; then
    echo "bench: something answers on 127.0.0.1:9; the idle figure needs the backend unreachable" >&2
    exit 1
  fi
}

# A private X server, home and runtime folder for both windows, so that they start from the same state.
start_display() {
  mkdir -p "$work/home" "$work/runtime"
  chmod 700 "$work/runtime"
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$work/display" 2>"$work/xvfb.log" &
  xvfb_pid=$!
  for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
  [ -s "$work/display" ] || { echo "bench: Xvfb did not start" >&2; cat "$work/xvfb.log" >&2; exit 1; }
  # The support folder follows the user database, not HOME: the development override keeps it in the work folder.
  export DISPLAY=":$(cat "$work/display")" HOME="$work/home" ORVISTELLE_DEV_HOME="$work/home" XDG_RUNTIME_DIR="$work/runtime"
  export LANG=C.UTF-8 QT_QPA_PLATFORM=xcb
  unset LANGUAGE LC_ALL LC_MESSAGES
}

# probe SIDE TITLE PROGRAM [probe options...]: appends each figure named in $figures to $work/<figure>.<side>.
probe() {
  local side=$1 title=$2 program=$3
  shift 3
  if ! "$probe" --title "$title" "$@" -- "$program" >"$work/probe.$side" 2>>"$work/windows.log"; then
    echo "bench: measuring $program failed:" >&2
    tail -20 "$work/windows.log" >&2
    exit 1
  fi
  while read -r figure value; do
    case " $figures " in *" $figure "*) echo "$value" >>"$work/$figure.$side" ;; esac
  done <"$work/probe.$side"
}

# The app, the minimal window and the minimal window with libcurl, each round in another order.
measure_windows() {
  local figures="first_paint_ms peak_rss_kb"
  # One unrecorded start each, so that none pays for filling the font and shader caches.
  "$probe" --title "$app_title" --settle-ms 0 -- "$app" >/dev/null 2>>"$work/windows.log"
  "$probe" --title "$reference_title" --settle-ms 0 -- "$reference" >/dev/null 2>>"$work/windows.log"
  "$probe" --title "$reference_title" --settle-ms 0 -- "$floor" >/dev/null 2>>"$work/windows.log"
  local -a order=(ours reference floor)
  for round in $(seq "$rounds"); do
    for i in 0 1 2; do
      case ${order[(round + i) % 3]} in
        ours) probe ours "$app_title" "$app" ;;
        reference) probe reference "$reference_title" "$reference" ;;
        floor) probe floor "$reference_title" "$floor" ;;
      esac
    done
  done
}

# A C host loading the service library, a fresh process each round.
measure_host() {
  for _ in $(seq "$rounds"); do
    if ! "$host" "$service" >"$work/host.out" 2>>"$work/host.log"; then
      echo "bench: the C host failed:" >&2
      tail -20 "$work/host.log" >&2
      exit 1
    fi
    while read -r figure value; do echo "$value" >>"$work/$figure.ours"; done <"$work/host.out"
  done
}

# Both windows idle through the same seconds; only what is after their start-up counts, and their start-ups, made
# side by side, are not timed.
measure_idle() {
  local figures="idle_cpu_ms"
  for _ in $(seq "$rounds"); do
    probe ours "$app_title" "$app" --idle-ms $((idle_seconds * 1000)) &
    local ours_pid=$!
    probe reference "$reference_title" "$reference" --idle-ms $((idle_seconds * 1000))
    wait "$ours_pid"
  done
}

measure_lookups() {
  "$build/bench/orvistelle_i18n_bench" --benchmark_repetitions="$rounds" --benchmark_enable_random_interleaving=true \
    --benchmark_report_aggregates_only=true --benchmark_format=csv 2>>"$work/i18n.log" >"$work/i18n.csv"
  awk -F, '$1 == "\"BM_FcpT_median\"" { print $3 }' "$work/i18n.csv" >"$work/lookup_ns.ours"
  awk -F, '$1 == "\"BM_dgettext_median\"" { print $3 }' "$work/i18n.csv" >"$work/lookup_ns.reference"
}

# The development template plus 200 files of 50 KB, about the size of a real effect template with its media.
make_template_source() {
  local source="$work/template-source"
  mkdir -p "$source/Media"
  cp -a templates/Effects/Orvistelle.localized/. "$source/"
  for i in $(seq 200); do head -c 51200 /dev/urandom >"$source/Media/clip-$i.bin"; done
}

# timed_copy SIDE COMMAND...: the copy's wall time in ms, into a destination that does not exist yet.
timed_copy() {
  local side=$1
  shift
  rm -rf "$work/template-copy"
  sync
  local start=$EPOCHREALTIME
  "$@" "$work/template-source" "$work/template-copy"
  local end=$EPOCHREALTIME
  awk -v s="$start" -v e="$end" 'BEGIN { printf "%.3f\n", (e - s) * 1000 }' >>"$work/install_ms.$side"
}

measure_install() {
  make_template_source
  "$install" "$work/template-source" "$work/template-copy"
  for round in $(seq "$rounds"); do
    if [ $((round % 2)) -eq 1 ]; then
      timed_copy ours "$install"
      timed_copy reference cp -a
    else
      timed_copy reference cp -a
      timed_copy ours "$install"
    fi
  done
  rm -rf "$work/template-copy"
}

median() {
  sort -g "$1" | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'
}

# row FIGURE FILE-STEM SCALE LIMIT KIND [REFERENCE-SIDE]: KIND "ratio" checks ours/reference against LIMIT,
# "absolute" checks ours alone, "context" checks nothing; without a reference side only ours is shown.
row() {
  local figure=$1 stem=$2 scale=$3 limit=$4 kind=$5 side=${6-reference}
  local reference=-
  [ -z "$side" ] || reference=$(median "$work/$stem.$side")
  awk -v f="$figure" -v o="$(median "$work/$stem.ours")" -v r="$reference" -v s="$scale" -v l="$limit" -v k="$kind" \
    'BEGIN {
      o /= s
      shown = (r == "-") ? "-" : sprintf("%.1f", r / s)
      ratio = (r != "-" && r > 0) ? sprintf("%.2f", o / (r / s)) : "-"
      ok = (k == "ratio") ? (ratio != "-" && ratio + 0 <= l) : (k == "absolute") ? (o <= l) : 1
      budget = (k == "ratio") ? "ratio <= " l : (k == "absolute") ? "<= " l : "-"
      printf "| %s | %.1f | %s | %s | %s | %s |\n", f, o, shown, ratio, budget, (k == "context") ? "-" : ok ? "yes" : "NO"
    }'
}

print_table() {
  echo "| figure | ours | reference | ratio | budget | ok |"
  echo "|---|---|---|---|---|---|"
  row "Start-up to first painted window, ms (reference: minimal Qt 6 window)" first_paint_ms 1 1.15 ratio
  row "Start-up to first painted window, ms (reference: the same with libcurl)" first_paint_ms 1 - context floor
  row "Peak resident memory, MiB (reference: minimal Qt 6 window with libcurl)" peak_rss_kb 1024 1.05 ratio floor
  row "Peak resident memory, MiB (reference: minimal Qt 6 window)" peak_rss_kb 1024 - context
  row "FcpT lookup, ns per call (reference: GNU gettext dgettext)" lookup_ns 1 0.5 ratio
  row "CPU while idle for ${idle_seconds} s, ms (reference: minimal Qt 6 window)" idle_cpu_ms 1 20 absolute
  row "Template install, ms (reference: cp -a)" install_ms 1 1.2 ratio
  row "C host: loading the service library, ms" load_ms 1 2 absolute ""
  row "C host: memory added by the load, MiB" load_rss_kb 1024 2 absolute ""
  row "C host: memory added 2 s after FcpServiceMaintain, MiB" maintain_rss_kb 1024 - context ""
  row "C host: threads added 2 s after FcpServiceMaintain" threads_added 1 - context ""
  row "C host: FcpServiceHasSession calls per second, thousands" has_session_per_s 1000 - context ""
  row "C host: FcpServiceStatus calls per second, thousands" status_per_s 1000 - context ""
  echo
  echo "Medians of $rounds interleaved rounds; $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //')," \
    "$(nproc) cores, $(free -g | awk '/^Mem:/ { print $2 }') GiB memory, $(. /etc/os-release && echo "$PRETTY_NAME");" \
    "load average $(cut -d' ' -f1-3 /proc/loadavg) at the end."
}

cleanup() {
  [ -z "$xvfb_pid" ] || kill "$xvfb_pid" 2>/dev/null || true
  rm -rf "$work"
}

main() {
  work=$(mktemp -d)
  xvfb_pid=
  trap cleanup EXIT
  build_release
  start_display
  measure_windows
  measure_host
  measure_lookups
  measure_install
  measure_idle
  print_table | tee "$build/bench/results.md"
  ! grep -q '| NO |$' "$build/bench/results.md" || exit 3
}

# Read whole before it starts, so that a checkout changing this file mid-run cannot derail it.
main "$@"; exit
