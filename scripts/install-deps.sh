#!/usr/bin/env bash
# Installs the Debian packages needed to build and test VantroAccount.
# Idempotent: when every package is already present it returns without touching apt.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  qtbase5-dev qtdeclarative5-dev
  qml-module-qttest qml-module-qtquick2 qml-module-qtquick-controls2 qtbase5-dev-tools
  qml-module-qtquick-layouts # the example application
  qtdeclarative5-dev-tools # qmlplugindump (plugins.qmltypes) and qmltestrunner (the installed module)
  doxygen # the API reference, the docs target
  xvfb xauth fonts-dejavu-core # the example application in a real window under Xvfb
  libssl-dev openssl
  libcpp-httplib-dev
  clang-format
  python3-oauthlib # the independent OAuth 1 verifier of the network tests, for /usr/bin/python3
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#packages[@]} build dependencies are present"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
