#!/bin/sh
# Installs a build, moves the copy, and uses it as others would: test.sh SOURCE_DIR BUILD_DIR C_FLAGS
# C_FLAGS are those of the build that its users need as well, such as a sanitizer.
set -eu
source=$1 build=$2 flags="$3 -Wall -Wextra -Wpedantic -Werror"
work=$build/tests/installed_copy.tmp
rm -rf "$work"
mkdir -p "$work"
step=start
trap '[ "$step" = end ] || echo "installed_copy: failed at $step" >&2' EXIT

quietly() {
  "$@" >"$work/log" 2>&1 || {
    cat "$work/log" >&2
    return 1
  }
}

# runs PROGRAM [ARGUMENT]...: an example ends well and prints records.
runs() {
  step="running $*"
  "$@" >"$work/records"
  grep -Eq '^[a-z]+-(summary|percentile|baseline): [0-9]{10}, ' "$work/records"
}

step="installing and moving"
quietly cmake --install "$build" --prefix "$work/installed"
mkdir "$work/elsewhere"
prefix=$work/elsewhere/moved
mv "$work/installed" "$prefix"
lib=$(dirname "$(find "$prefix" -name libzor_process.so)")
python_preload=
case $flags in *-fsanitize=*) python_preload=$(cc -print-file-name=libasan.so) ;; esac

step="looking for paths of the build in the copy"
if grep -rIlF -e "$work/installed" -e "$build" -e "$source" "$prefix"; then exit 1; fi
for file in "$prefix/bin/zorstat" "$lib"/*.so; do
  # shellcheck disable=SC2016  # the linker's $ORIGIN
  if readelf -d "$file" | grep 'R.*PATH' | grep -v '\[$ORIGIN\(/\.\./[a-z0-9/_-]*\)\?\]'; then exit 1; fi
done

step="running zorstat"
version=$("$prefix/bin/zorstat" --version)
runs "$prefix/bin/zorstat" replay "$source/data/net.csv" --config "$source/data/net.toml"

step="building the examples by find_package"
quietly cmake -S "$source/examples" -B "$work/by_cmake" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --build "$work/by_cmake"

export PKG_CONFIG_PATH="$lib/pkgconfig"
[ "$version" = "zorstat $(pkg-config --modversion zor_process)" ]
for example in "$source"/examples/*.c "$source"/examples/*.cpp "$source"/examples/*.py; do
  [ -e "$example" ] || continue
  name=$(basename "$example" | tr . _)
  case $example in
    *.py)
      PYTHONPATH=$prefix/lib/python3/dist-packages LD_LIBRARY_PATH=$lib LD_PRELOAD=$python_preload \
        ASAN_OPTIONS=detect_leaks=0 runs python3 -B "$example" 3 0.1
      continue
      ;;
    *.c) compile="cc -std=c99" ;;
    *.cpp) compile="c++ -std=c++20" ;;
  esac
  runs "$work/by_cmake/$name" 3 0.1
  step="building $example by pkg-config"
  # shellcheck disable=SC2046,SC2086  # the options are meant to be split
  quietly $compile $flags "$example" $(pkg-config --cflags --libs zor_process) -o "$work/$name"
  LD_LIBRARY_PATH=$lib runs "$work/$name" 3 0.1
done

step="building as a part of another project"
for subdirectory in ON OFF; do
  quietly cmake -S "$source/tests/installed_copy" -B "$work/host" -DSOURCES="$source" -DSUBDIRECTORY="$subdirectory" \
    -DCMAKE_C_FLAGS="$3" -DCMAKE_CXX_FLAGS="$3"
done
quietly cmake --build "$work/host" --parallel 2
runs "$work/host/host" 3 0.1
step=end
