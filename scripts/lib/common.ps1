# Dot-sourced by the scripts beside it.

$ErrorActionPreference = 'Stop'
$root = (Resolve-Path "$PSScriptRoot/../..").Path

function Invoke-Checked([string] $Program, [string[]] $Arguments) {
    & $Program @Arguments
    if ($LASTEXITCODE -ne 0) {
        throw "$Program $($Arguments -join ' ') ended with exit code $LASTEXITCODE"
    }
}

# Builds the preset windows-msvc, wholly or these targets only.
function Build-Lumaro([string[]] $Targets = @()) {
    if (-not (Get-Command cmake -ErrorAction SilentlyContinue)) {
        throw 'cmake is missing: install CMake 3.25 or newer, or run this in a Visual Studio developer prompt'
    }
    if (-not $env:VCPKG_ROOT -or -not (Test-Path "$env:VCPKG_ROOT/scripts/buildsystems/vcpkg.cmake")) {
        throw 'vcpkg is missing: clone it, run its bootstrap-vcpkg.bat and set VCPKG_ROOT to its folder'
    }
    Push-Location $root
    try {
        Invoke-Checked cmake @('--preset', 'windows-msvc')
        $arguments = @('--build', '--preset', 'windows-msvc', '--parallel')
        if ($Targets) {
            $arguments += @('--target') + $Targets
        }
        Invoke-Checked cmake $arguments
    } finally {
        Pop-Location
    }
}
