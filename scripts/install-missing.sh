#!/usr/bin/env bash
# Installs the Debian packages named as arguments, if any are named.
set -euo pipefail
[ $# -gt 0 ] || exit 0
echo "installing: $*"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq "$@"
