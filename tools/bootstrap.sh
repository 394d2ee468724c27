#!/usr/bin/env bash
# Installs, with apt-get and only when missing, every Debian 12 package needed to build, run and test.
# Safe to run again: a machine that already has everything makes no change and needs no network.
set -euo pipefail

packages=(
  # toolchain
  g++ clang clang-tidy clang-format libclang-rt-14-dev cmake ninja-build pkg-config ccache
  python3  # tools/mutate
  openssl  # tools/sign-manifest
  # libraries
  qt6-base-dev qt6-svg-dev libgl-dev libcurl4-openssl-dev libproxy-dev nlohmann-json3-dev libcpp-httplib-dev libssl-dev
  libsqlite3-dev libgtest-dev libgmock-dev libbenchmark-dev
  # running the window and the tests headless
  xvfb xauth x11-utils fonts-noto-cjk fonts-dejavu-core xdg-utils desktop-file-utils
  libproxy1-plugin-gsettings gsettings-desktop-schemas  # the transport's test of GNOME's proxy settings
  # end-to-end sign-in in a real browser; reference runs for the benchmarks
  chromium nodejs gettext imagemagick
  libgettextpo-dev  # the catalogue is built from the translators' .po files at build time
  libxcb-damage0-dev  # the start-up benchmark sees a window's first drawing from outside the program
  # icons drawn from the SVG, the Debian package and the checks of its desktop entry and metainfo
  librsvg2-bin dpkg-dev appstream
)
# A Node.js from outside Debian ships its own npm, and Debian's npm package conflicts with it.
command -v npm >/dev/null 2>&1 || packages+=(npm)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "bootstrap: installing ${missing[*]}" >&2
sudo_cmd=()
[ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
