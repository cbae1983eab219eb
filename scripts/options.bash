# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# To be sourced first by the scripts that users call. Reads their arguments, so that nothing is installed, built or
# written before wrong ones are refused, and prints the usage in their header comment for --help.

# The script as a user names it, for example scripts/test.
script=$(cd -- "$(dirname -- "${BASH_SOURCE[-1]}")" && echo "${PWD##*/}/${BASH_SOURCE[-1]##*/}")

# Ends the script, because the arguments are wrong or something that it needs is not there.
fail() { # reason
  echo "$script: $1" >&2
  exit 2
}

usage() { sed -n '/^# usage: /,/^[^#]/s/^# \{0,1\}//p' "${BASH_SOURCE[-1]}"; }

# read_options OPTIONS LEAST MOST ARGUMENT...
#
# OPTIONS are words: "--check" sets the variable `check` to yes, "--keep=" has a value ("--keep DIR" or "--keep=DIR") and
# sets `keep`; variables of options that are not given are empty. The other arguments go into the array `operands`, LEAST to MOST of them. With
# "+" in OPTIONS the first operand ends the options, with "*" unknown options are operands. The arguments behind "--" go
# into the array `command` if "--" is in OPTIONS.
read_options() {
  local options=" $1 " least=$2 most=$3 option variable
  shift 3
  operands=()
  command=()
  set -f
  for option in $options; do
    case $option in
      --?*) variable=${option#--} variable=${variable%=}
        printf -v "${variable//-/_}" '' ;;
    esac
  done
  set +f
  while [ $# -gt 0 ]; do
    variable=${1#--} variable=${variable//-/_}
    if [ "$1" = --help ]; then
      usage
      exit 0
    elif [ "$1" = -- ] && [[ $options == *' -- '* ]]; then
      shift
      [ $# -gt 0 ] || fail "no command after --"
      command=("$@")
      break
    elif [[ $1 == --?*=* && $options == *" ${1%%=*}= "* ]]; then
      printf -v "${variable%%=*}" %s "${1#*=}"
      shift
    elif [[ $1 == --?* && $options == *" $1= "* ]]; then
      [ $# -gt 1 ] || fail "$1 needs a value"
      printf -v "$variable" %s "$2"
      shift 2
    elif [[ $1 == --?* && $options == *" $1 "* ]]; then
      printf -v "$variable" yes
      shift
    elif [[ $1 == -?* && $options != *' * '* ]]; then
      fail "unknown option: $1; --help explains"
    elif [[ $options == *' + '* ]]; then
      operands=("$@")
      break
    else
      operands+=("$1")
      shift
    fi
  done
  [ ${#operands[@]} -ge "$least" ] || fail "an argument is missing; --help explains"
  [ ${#operands[@]} -le "$most" ] || fail "unknown argument: ${operands[$most]}; --help explains"
}
