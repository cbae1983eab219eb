# SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
# SPDX-License-Identifier: MIT
#
# To be sourced: the mirror that apt uses on this machine, for a new system made by mmdebstrap.

# Prints the address of the component main.
apt_mirror() {
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Component: main' |
    grep -v security | head -n 1
}

# Fills the array mirror_options: the new system uses the proxies of this machine too, and its authorities for a mirror
# behind TLS.
set_mirror_options() { # mirror
  local line authorities=/etc/ssl/certs/ca-certificates.crt
  mirror_options=()
  while read -r line; do
    mirror_options+=(--aptopt="$line")
  done < <(apt-config dump --no-empty --format '%F "%v";%n' Acquire::http Acquire::https)
  [[ $1 != https:* ]] ||
    mirror_options+=(--setup-hook='mkdir -p "$1/etc/ssl/certs"' --setup-hook="copy-in $authorities /etc/ssl/certs"
      --aptopt="Acquire::https::CaInfo \"$authorities\"")
}
