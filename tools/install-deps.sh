#!/bin/sh
# Installs what building and testing TqKernel needs on Debian 12 (run as root, or with sudo).
set -eu
if [ "$(id -u)" != 0 ]; then exec sudo "$0" "$@"; fi
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends \
  g++ cmake make patch pkg-config ca-certificates \
  libgtest-dev libgmock-dev libbenchmark-dev \
  libcivetweb-dev libcurl4-openssl-dev \
  lua5.1 liblua5.1-0-dev lcov >/dev/null
