# Builds the DLL and the command line with Visual Studio and vcpkg, makes a sample point cloud and renders it.
# The last line is the picture's path.

. "$PSScriptRoot/lib/common.ps1"

Build-Lumaro @('lumaro')

$lumaro = "$root/build/windows-msvc/bin/Release/lumaro.exe"
$demo = "$root/build/demo"
New-Item -ItemType Directory -Force $demo | Out-Null
if (-not (Test-Path "$demo/sample/metadata.json")) {
    Invoke-Checked $lumaro @('make-sample', "$demo/sample")
}
Invoke-Checked $lumaro @('thumbnail', "$demo/sample", '-o', "$demo/thumbnail.png")
Invoke-Checked $lumaro @('render', "$demo/sample", '-o', "$demo/demo.png")
Write-Output "$demo/demo.png"
