#!/bin/bash
# zip.sh SOURCE BUILD OBJDUMP OPEN-AND-CLOSE D3DCOMPILER: packs the ZIPs and uses the one with the programs the way
# someone does who has nothing else: unpacked in an empty folder, far from the build.
set -euo pipefail
source=$1 build=$2 objdump=$3 open_and_close=$4 compiler=$5
work=$(mktemp -d "${TMPDIR:-/tmp}/lumaro-zip.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() {
    echo "$*" >&2
    exit 1
}

cpack --config "$build/CPackConfig.cmake" -B "$work/packed" >"$work/cpack.log" 2>&1 || fail "$(cat "$work/cpack.log")"
archive=$(echo "$work"/packed/LumaroRender-*-win64.zip)
[[ -f ${archive%.zip}-sdk.zip ]] || fail "there is no SDK beside $archive"
(cd "$work" && cmake -E tar xf "$archive")
zip=$work/$(basename "$archive" .zip)

# What someone without a compiler has no use for, and what must come with the programs.
[[ ! -e $zip/include && ! -e $zip/lib ]] || fail "headers or libraries among the programs"
for file in README.txt sample.cmd share/LumaroRender/{LICENSE,THIRD-PARTY-NOTICES.md,CHANGELOG.md}; do
    [[ -s $zip/$file ]] || fail "$file is not in the ZIP"
done
for library in brotli cli11 eigen3 gcc-runtime GPL-3 libjpeg-turbo libpng mingw-w64 nlohmann-json tinyobjloader zlib \
    zstd; do
    [[ -s $zip/share/LumaroRender/licences/$library.txt ]] || fail "the licence of $library is not in the ZIP"
done

# Every DLL that anything imports is there, or part of every Windows since 8.1.
system=' advapi32 comctl32 comdlg32 d3d11 d3dcompiler_47 dxgi gdi32 kernel32 msvcrt ole32 rpcrt4 shell32 user32 '
programs=0
for binary in "$zip"/bin/*; do
    programs=$((programs + 1))
    while read -r dll; do
        [[ -f $zip/bin/$dll || $system == *" ${dll%.dll} "* ]] ||
            fail "${binary##*/} needs $dll, which is neither in the ZIP nor in Windows"
    done < <("$objdump" -p "$binary" | awk '/DLL Name:/ { print tolower($3) }' |
        sed 's/^lumarorender\.dll$/LumaroRender.dll/')
done
((programs >= 6)) || fail "only $programs files in bin"

# Wine lacks what Windows has: a compiler for Shader Model 5.
cp "$compiler" "$zip/bin/"
mkdir "$work/elsewhere"
run() {
    (cd "$work/elsewhere" && env -u WINEPATH PATH=/usr/bin:/bin LUMARO_WINE_TIMEOUT=300 "$source/scripts/wine-run" "$@") ||
        fail "exit code $?: $*"
}
run "$zip/bin/lumaro.exe" make-sample "$work/small" --points 20000
run "$zip/bin/lumaro.exe" render "$work/small" -o "$work/picture.png"
[[ $(head -c 4 "$work/picture.png" | tail -c 3) == PNG ]]
(($(wc -c <"$work/picture.png") > 3000)) || fail "the picture is next to empty"

# Wine's name of a path of this machine.
windows() { echo "Z:${1//\//\\}"; }
viewer=$(windows "$zip/bin/viewer.exe")
run "$open_and_close" "$viewer" "$viewer"
run "$open_and_close" "$viewer" cmd /c "$(windows "$zip/sample.cmd")" # first it makes the sample
[[ -f $zip/sample/metadata.json ]] || fail "sample.cmd made no sample"
