#!/usr/bin/env bash
# Installs the Debian packages that are missing. Usage: cmake/setup.sh run|test|ci ... (each kind adds to those before it)
set -eu

run_packages=(
  cmake g++ ninja-build pkg-config ccache
  libmd-dev libopus-dev
  libcpp-httplib-dev nlohmann-json3-dev libcli11-dev libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
  libpugixml-dev libssl-dev libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev libgstrtspserver-1.0-dev libjpeg-dev
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly
)
test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev libxml2-dev
  ffmpeg libjpeg-turbo-progs gstreamer1.0-tools gstreamer1.0-libav binutils python3 sip-tester
)
ci_packages=(clang clang-tidy clang-format libclang-rt-14-dev g++-arm-linux-gnueabihf)

packages=("${run_packages[@]}")
for kind in "$@"; do
  case "$kind" in
    run) ;;
    test) packages+=("${test_packages[@]}"); command -v npm >/dev/null || packages+=(nodejs npm) ;;
    ci) packages+=("${ci_packages[@]}") ;;
    *) echo "setup: unknown kind '$kind'" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${packages[@]}"; do
  [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "installing: ${missing[*]}"
sudo=()
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || { echo "setup: needs root (or sudo) to install: ${missing[*]}" >&2; exit 1; }
  sudo=(sudo)
fi
log=$(mktemp)
if ! { "${sudo[@]}" apt-get update -qq &&
       "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "setup: could not install: ${missing[*]}" >&2
  exit 1
fi
rm -f "$log"
