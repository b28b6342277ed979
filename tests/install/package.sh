#!/bin/bash
# package.sh SOURCE BUILD TOOLCHAIN LUMARO D3DCOMPILER: installs the build, builds the examples against the installed
# package as a project of their own, and runs some of them on a sample made by the build's LUMARO.
set -euo pipefail
source=$1 build=$2 toolchain=$3 lumaro=$4 compiler=$5
work=$(mktemp -d "$build/install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/installed" >"$work/install.log"
# Nothing of the source tree but the examples: what they include and link is what is installed.
cp -r "$source/examples" "$work/examples"
cmake -G Ninja -S "$work/examples" -B "$work/build" --toolchain "$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$work/installed" -DCMAKE_FIND_ROOT_PATH="$work/installed"
cmake --build "$work/build"

cp "$work"/installed/bin/*.dll "$compiler" "$work/build/"
run() {
    "$source/scripts/wine-run" "$@"
}
run "$lumaro" make-sample "$work/sample" --points 20000
run "$work/build/picture.exe" "$work/sample" "$work/picture.png"
run "$work/build/own_panorama.exe" "$work/panorama.png"
run "$work/build/own_renderable.exe" "$work/triangle.png" | tee "$work/triangle.txt"
grep -q '^in the middle: ' "$work/triangle.txt"
run "$work/build/measure.exe" "$work/sample" | tee "$work/measure.txt"
grep -Eq '^distance [1-9]' "$work/measure.txt"
for picture in picture panorama triangle; do
    [[ $(head -c 4 "$work/$picture.png" | tail -c 3) == PNG ]]
    (($(wc -c <"$work/$picture.png") > 3000))
done
