# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# Sourced by the benchmarks: compare NAME TARGET OURS YARDSTICK [RESET]
#
# Times the command OURS beside the command YARDSTICK and prints one row: both medians in milliseconds, the median of
# the ratios with the smallest and the largest, and TARGET, the largest ratio that is good enough. RESET runs before
# each of them, untimed. The three are texts for the shell; a command that fails ends the benchmark.
#
# After a warm-up the commands take turns, KRV_BENCH_PAIRS times (7 unless said otherwise), and each pair gives one
# ratio: what else the machine does at the moment hits both. Who goes first changes from pair to pair.

compare_time() { # variable for the microseconds, command, reset
  local compare_start compare_end
  eval "$3" || return
  # What was left to be written by whoever ran before would be paid for by this command.
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

compare_ratio() { # a ratio in thousandths
  printf '%d.%02d' $((($1 + 5) / 1000)) $((($1 + 5) % 1000 / 10))
}

compare() {
  local name=$1 target=$2 ours=$3 yardstick=$4 reset=${5:-:} pairs=${KRV_BENCH_PAIRS:-7}
  local our_times=() yardstick_times=() ratios=() pair our_time yardstick_time
  for ((pair = 0; pair <= pairs; pair++)); do
    if ((pair % 2)); then
      compare_time our_time "$ours" "$reset" || return
      compare_time yardstick_time "$yardstick" "$reset" || return
    else
      compare_time yardstick_time "$yardstick" "$reset" || return
      compare_time our_time "$ours" "$reset" || return
    fi
    ((pair > 0)) || continue # the warm-up
    our_times+=("$our_time")
    yardstick_times+=("$yardstick_time")
    ratios+=($((our_time * 1000 / yardstick_time)))
  done
  mapfile -t our_times < <(compare_sorted "${our_times[@]}")
  mapfile -t yardstick_times < <(compare_sorted "${yardstick_times[@]}")
  mapfile -t ratios < <(compare_sorted "${ratios[@]}")
  printf '%s: %d ms, yardstick %d ms, ratio %s (%s-%s), target %s\n' "$name" \
    $((our_times[pairs / 2] / 1000)) $((yardstick_times[pairs / 2] / 1000)) "$(compare_ratio "${ratios[pairs / 2]}")" \
    "$(compare_ratio "${ratios[0]}")" "$(compare_ratio "${ratios[-1]}")" "$target"
}
