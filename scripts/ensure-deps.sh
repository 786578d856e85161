#!/usr/bin/env bash
# Installs what a build needs on Debian 12 when it is missing; further
# packages may be named as arguments.
set -euo pipefail
needed=()
for pkg in cmake g++ make libgtest-dev pkg-config python3 "$@"; do
  dpkg -s "$pkg" >/dev/null 2>&1 || needed+=("$pkg")
done
if [ "${#needed[@]}" -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${needed[@]}" >/dev/null
fi
