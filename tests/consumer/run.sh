#!/bin/bash
# Builds programs against the installed library: through CMake, through pkg-config, and one that includes each installed
# header alone.
#
# usage: run.sh [BUILD_DIRECTORY]     of a build that is installed in a directory of its own; else the system's library
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if [ $# -eq 1 ]; then
  cmake --install "$1" --prefix "$work/prefix" > "$work/install.log"
  libdir=$(dirname "$(find "$work/prefix" -name libmailserver-delegation.so)")
  export CMAKE_PREFIX_PATH=$work/prefix PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
fi
export MAILSERVER_CONF=$work/mailserver.conf
printf '[log]\ntarget=%s\n' "$work/log" > "$MAILSERVER_CONF"

cmake -G Ninja -S "$here" -B "$work/cmake" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
"$work/cmake/consumer" "$work/cmake.db"

read -ra flags <<< "$(pkg-config --cflags --libs mailserver-delegation-admin)"
g++ -std=c++20 "$here/consumer.cpp" -o "$work/consumer" "${flags[@]}"
"$work/consumer" "$work/pkgconfig.db"

headers=$(pkg-config --variable=includedir mailserver-delegation)
count=0
while read -r header; do
  printf '#include <%s>\n' "$header" | g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only "${flags[@]}" -x c++ -
  count=$((count + 1))
done < <(cd "$headers" && find . -name '*.h' -printf '%P\n')
[ "$count" -ge 27 ]
echo "$count headers stand alone"
