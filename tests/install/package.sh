#!/bin/bash
# package.sh SOURCE BUILD TOOLCHAIN LUMARO D3DCOMPILER: installs the build, builds all headers and the examples against
# the installed package as projects of their own, and runs some of them on a sample made by the build's LUMARO.
set -euo pipefail
source=$1 build=$2 toolchain=$3 lumaro=$4 compiler=$5
work=$(mktemp -d "$build/install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/installed" >"$work/install.log"
# Nothing of the source tree: what the examples include and link is what is installed.
cp -r "$work/installed/share/LumaroRender/examples" "$work/examples"
(cd "$source" && grep -rl --include='*.h' LUMARO_API core math graphics octree render) | while read -r header; do
    [[ -f $work/installed/include/$header ]] || {
        echo "$header exports something and is not installed"
        exit 1
    }
done
# All headers at once: none needs one that is not installed, or a library that a host does not have.
cp -r "$source/tests/install/headers" "$work/headers"
(cd "$work/installed/include" && find . -name '*.h' -printf '#include <%P>\n' | sort) >"$work/headers/all.cpp"
(($(wc -l <"$work/headers/all.cpp") > 80))
grep -rhoE '^#include <[a-z_]+>' "$work/installed/include" | sort -u >"$work/headers/standard.inc"
# Every exported class that is no template, with its namespace.
(cd "$work/installed/include" && find . -name '*.h' | sort | xargs awk '
    /^namespace [A-Za-z:]+ {/ { namespace = $2 }
    /^(class|struct) LUMARO_API [A-Za-z0-9]+/ && previous !~ /^template/ {
        print "LAYOUT(" namespace "::" $3 ")"
    }
    { previous = $0 }') >"$work/headers/classes.inc"
for project in headers examples; do
    cmake -G Ninja -S "$work/$project" -B "$work/build/$project" --toolchain "$toolchain" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$work/installed" -DCMAKE_FIND_ROOT_PATH="$work/installed"
    cmake --build "$work/build/$project"
done

cp "$work"/installed/bin/*.dll "$compiler" "$work/build/examples/"
cp "$work"/installed/bin/*.dll "$work/build/headers/"
run() {
    "$source/scripts/wine-run" "$@"
}
run "$work/build/headers/layouts.exe"
run "$lumaro" make-sample "$work/sample" --points 20000
run "$work/build/examples/picture.exe" "$work/sample" "$work/picture.png"
run "$work/build/examples/own_panorama.exe" "$work/panorama.png"
run "$work/build/examples/own_renderable.exe" "$work/triangle.png" | tee "$work/triangle.txt"
grep -q '^in the middle: ' "$work/triangle.txt"
run "$work/build/examples/measure.exe" "$work/sample" | tee "$work/measure.txt"
grep -Eq '^distance [1-9]' "$work/measure.txt"
for picture in picture panorama triangle; do
    [[ $(head -c 4 "$work/$picture.png" | tail -c 3) == PNG ]]
    (($(wc -c <"$work/$picture.png") > 3000))
done
