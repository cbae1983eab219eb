# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# Sourced by the cases: compare NAME TARGET OURS YARDSTICK [RESET [ADDITION]]
#
# Times the commands OURS and YARDSTICK and prints one row of the table: both medians in milliseconds, the median of the
# ratios with the smallest and the largest, and TARGET, the largest acceptable ratio. RESET runs before each of them,
# untimed. The three are texts for the shell; a command that fails ends the benchmark. ADDITION is a number of microseconds
# that are added to each time of YARDSTICK.
#
# After a warm-up the commands run alternately, and each pair gives one ratio, so that other load on the machine affects
# both. The order changes from pair to pair. There are KRV_BENCH_PAIRS pairs or, if that is not set, at least 21 and as
# many more as fit into half a minute, because a moment of load distorts a short row most.

compare_time() { # variable for the microseconds, command, reset
  local compare_start compare_end
  eval "$3" || return
  # Otherwise this command would also wait for unwritten data of the command before.
  sync
  compare_start=${EPOCHREALTIME/[.,]/}
  if ! eval "$2" >/dev/null; then
    echo "failed: $2" >&2
    return 1
  fi
  compare_end=${EPOCHREALTIME/[.,]/}
  printf -v "$1" %d $((compare_end - compare_start))
}

compare_sorted() {
  printf '%s\n' "$@" | sort -n
}

thousandths() { # number; printed with a decimal point
  printf '%d.%03d' $(($1 / 1000)) $(($1 % 1000))
}

# Prints one row of the table, and one line from which scripts/bench makes JSON. Times are in thousandths of the unit
# (microseconds for the default unit ms); ratios are in thousandths.
report() { # name, our time, yardstick's time, ratio, smallest, largest, target [, unit]
  printf '%-56s %9.1f %s %9.1f %s  %6.2f (%.2f-%.2f)  %s\n' "$1" "$(thousandths "$2")" "${8:-ms}" \
    "$(thousandths "$3")" "${8:-ms}" "$(thousandths "$4")" "$(thousandths "$5")" "$(thousandths "$6")" "$7"
  [ -z "${KRV_BENCH_FIGURES:-}" ] ||
    printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$1" "$(thousandths "$2")" "$(thousandths "$3")" \
      "$(thousandths "$4")" "$(thousandths "$5")" "$(thousandths "$6")" "$7" "${8:-ms}" >>"$KRV_BENCH_FIGURES"
}

# Prints a row for a figure without a yardstick.
report_value() { # name, value in thousandths, unit, target
  printf '%-56s %9.3f %s, target %s\n' "$1" "$(thousandths "$2")" "$3" "$4"
  [ -z "${KRV_BENCH_FIGURES:-}" ] ||
    printf '%s\t%s\t\t\t\t\t%s\t%s\n' "$1" "$(thousandths "$2")" "$4" "$3" >>"$KRV_BENCH_FIGURES"
}

compare() {
  local name=$1 target=$2 ours=$3 yardstick=$4 reset=${5:-:} addition=${6:-0} end=0
  local our_times=() yardstick_times=() ratios=() pair our_time yardstick_time
  [ -n "${KRV_BENCH_PAIRS:-}" ] || end=$((SECONDS + 30))
  for ((pair = 0; pair <= ${KRV_BENCH_PAIRS:-21} || SECONDS < end; pair++)); do
    if ((pair % 2)); then
      compare_time our_time "$ours" "$reset" || return
      compare_time yardstick_time "$yardstick" "$reset" || return
    else
      compare_time yardstick_time "$yardstick" "$reset" || return
      compare_time our_time "$ours" "$reset" || return
    fi
    ((pair > 0)) || continue # the warm-up
    our_times+=("$our_time")
    yardstick_time=$((yardstick_time + addition))
    yardstick_times+=("$yardstick_time")
    ratios+=($((our_time * 1000 / yardstick_time)))
  done
  local middle=$((${#ratios[@]} / 2))
  mapfile -t our_times < <(compare_sorted "${our_times[@]}")
  mapfile -t yardstick_times < <(compare_sorted "${yardstick_times[@]}")
  mapfile -t ratios < <(compare_sorted "${ratios[@]}")
  report "$name" "${our_times[middle]}" "${yardstick_times[middle]}" "${ratios[middle]}" "${ratios[0]}" \
    "${ratios[-1]}" "$target"
}
