#!/bin/bash
# Runs a program that has two connected serial ports, COM8 and COM9 (and COM18, the first one again): null_modem.sh [run-under-wine] PROGRAM
# Exit code 77: there is no socat to connect them.
set -euo pipefail
command -v socat > /dev/null || exit 77
out=$(mktemp -d)
wine_ports=$(dirname "$0")/../../build/wine/dosdevices
trap 'kill $(jobs -p) 2> /dev/null; rm -rf "$out"; rm -f "$wine_ports"/com{8,9,18}' EXIT

socat "pty,raw,echo=0,link=$out/COM8" "pty,raw,echo=0,link=$out/COM9" &
for ((tries = 0; tries < 200; ++tries)); do
    [[ -e $out/COM8 && -e $out/COM9 ]] && break
    sleep 0.05
done
ln -s "$out/COM8" "$out/COM18"
if (($# > 1)); then  # Wine takes such links away when it starts: it has to run before
    "$@" --gtest_list_tests > /dev/null
    ln -sf "$out/COM8" "$wine_ports/com8"
    ln -sf "$out/COM8" "$wine_ports/com18"
    ln -sf "$out/COM9" "$wine_ports/com9"
fi
GNSS_KERNEL_COM_DIR=$out "$@"
