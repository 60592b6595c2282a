#!/usr/bin/env bash
# Porting contract: what libthermal.so asks of the platform that loads it.
#   porting_contract.sh LIBRARY             compares the library with the recorded list
#   porting_contract.sh LIBRARY --record    records what the library asks now
set -euo pipefail

library=$1
recorded=$(dirname "$0")/platform_symbols.txt

# Symbols of the C and C++ runtimes carry a version and the linker's own are weak; what is left is the platform's.
platform_symbols() {
    nm --dynamic --undefined-only --demangle --with-symbol-versions "$library" | sed -n '/@/d; s/^ *U //p' | LC_ALL=C sort -u
}

if [[ ${2:-} == --record ]]; then
    platform_symbols >"$recorded"
    echo "Recorded $(wc -l <"$recorded") symbols in $recorded"
elif [[ ! -f $recorded ]]; then
    echo "There is no $recorded. Record it with: ./dev contract"
    exit 1
elif ! changes=$(diff "$recorded" <(platform_symbols)); then
    echo "The library asks other symbols of its platform than recorded (< no longer asked, > new):"
    grep '^[<>]' <<<"$changes"
    echo "Every port has to follow. If this is meant, record it with: ./dev contract"
    exit 1
fi
