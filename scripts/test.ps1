# Builds everything with Visual Studio and vcpkg and runs all tests. Arguments go to ctest.

. "$PSScriptRoot/lib/common.ps1"

Build-Lumaro
Push-Location $root
try {
    Invoke-Checked ctest (@('--preset', 'windows-msvc') + $args)
} finally {
    Pop-Location
}
