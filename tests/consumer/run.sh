#!/bin/bash
# Installs the build into a directory of its own and builds programs against it: through CMake, through pkg-config, and
# one that includes each installed header alone.
#
# usage: run.sh BUILD_DIRECTORY
set -euo pipefail
build=$1
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" > "$work/install.log"
libdir=$(dirname "$(find "$work/prefix" -name libmailserver-delegation.so)")
export MAILSERVER_CONF=$work/mailserver.conf
printf '[log]\ntarget=%s\n' "$work/log" > "$MAILSERVER_CONF"

cmake -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
"$work/cmake/consumer" "$work/cmake.db"

export PKG_CONFIG_PATH=$libdir/pkgconfig
read -ra flags <<< "$(pkg-config --cflags --libs mailserver-delegation)"
g++ -std=c++20 "$here/consumer.cpp" -o "$work/consumer" "${flags[@]}" -Wl,-rpath,"$libdir"
"$work/consumer" "$work/pkgconfig.db"

headers=$work/prefix/include/mailserver-delegation
count=0
while read -r header; do
  printf '#include <%s>\n' "$header" | g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only "${flags[@]}" -x c++ -
  count=$((count + 1))
done < <(cd "$headers" && find . -name '*.h' -printf '%P\n')
[ "$count" -ge 27 ]
echo "$count headers stand alone"
