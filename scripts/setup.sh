#!/usr/bin/env bash
# Installs every Debian package that building, testing and running Quellor needs.
set -euo pipefail
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
# Postfix is the host mail server (the end-to-end test runs a private instance of it); it is
# installed unconfigured, so it starts nothing on its own.
echo "postfix postfix/main_mailer_type select No configuration" | $SUDO debconf-set-selections
$SUDO apt-get install -y -qq --no-install-recommends \
  build-essential g++ cmake ninja-build pkg-config ccache clang-format time procps strace git \
  libgmime-3.0-dev libboost1.81-dev libsystemd-dev libfmt-dev libcli11-dev \
  libgtest-dev libgmock-dev googletest libbenchmark-dev clang-14 libclang-rt-14-dev \
  chromium chromium-driver python3 python3-selenium fonts-dejavu-core curl ca-certificates \
  postfix swaks \
  debhelper dpkg-dev fakeroot lintian systemd adduser >/dev/null
# Node.js runs the polkit rule's test; a machine that already has a Node.js keeps it.
if ! command -v node >/dev/null 2>&1; then
  $SUDO apt-get install -y -qq --no-install-recommends nodejs >/dev/null
fi
