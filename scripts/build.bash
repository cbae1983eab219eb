# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# To be sourced by the scripts that build.

# build PRESET [CMAKE-OPTION...] -- [TARGET...]: configures and builds. On a terminal ninja shows its progress in one line;
# elsewhere the output is shown only if the build fails.
build() {
  local preset=$1 options=() targets=() log status=0
  shift
  while [ "$1" != -- ]; do
    options+=("$1")
    shift
  done
  shift
  [ $# = 0 ] || targets=(--target "$@")
  log=$(mktemp)
  echo "Building build/$preset" >&2
  if ! cmake --preset "$preset" ${options[@]+"${options[@]}"} >"$log" 2>&1; then
    status=1
  elif [ -t 2 ]; then
    cmake --build --preset "$preset" ${targets[@]+"${targets[@]}"} >&2 && : >"$log" || status=1
  else
    cmake --build --preset "$preset" ${targets[@]+"${targets[@]}"} >"$log" 2>&1 || status=1
  fi
  [ "$status" = 0 ] || cat "$log" >&2
  rm -f "$log"
  return "$status"
}
