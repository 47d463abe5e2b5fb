#!/usr/bin/env bash
# The release an operator installs: build/release/tarn-native-profiler-<version>-linux-<arch>.tar.gz
# with the stripped library and tarn-directives (their debug information
# under debug/.build-id/, where gdb finds it by build id: set
# debug-file-directory <home>/debug), the attach tool as bin/tarn-attach and as
# a .NET tool package in packages/, the agent home's files, and SHA256SUMS.
#
# Usage: scripts/release.sh [build directory]   (after a build; build-arm64 for
# linux-arm64)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "${1:-build}" && pwd)
version=$(sed -n 's/.*kVersion\[\] = "\(.*\)";/\1/p' "$build/generated/platform/BuildInfo.h")
revision=$(sed -n 's/.*kRevision\[\] = "\(.*\)";/\1/p' "$build/generated/platform/BuildInfo.h")
# The architecture of the build, which may be another than the machine's.
case $(readelf -h "$build/tarn.NativeProfiler.so" | sed -n 's/ *Machine: *//p') in
*AArch64*) arch=arm64 binutils=aarch64-linux-gnu- ;;
*) arch=x64 binutils= ;;
esac
name=tarn-native-profiler-$version-linux-$arch
stage=$build/release/$name
rm -rf "$stage" && mkdir -p "$stage"
export DOTNET_CLI_TELEMETRY_OPTOUT=1 DOTNET_NOLOGO=1

cmake --install "$build" --prefix "$stage" >/dev/null
for binary in "$stage/tarn.NativeProfiler.so" "$stage/bin/tarn-directives"; do
    id=$(readelf -n "$binary" | sed -n 's/.*Build ID: \([0-9a-f]*\)/\1/p')
    mkdir -p "$stage/debug/.build-id/${id:0:2}"
    "${binutils}objcopy" --only-keep-debug "$binary" "$stage/debug/.build-id/${id:0:2}/${id:2}.debug"
    "${binutils}strip" --strip-debug --strip-unneeded "$binary"
done

attach=(-p:Version="$version" -p:InformationalVersion="$version+$revision" -p:IncludeSourceRevisionInInformationalVersion=false --nologo -v quiet
        -nodeReuse:false -p:UseSharedCompilation=false)
dotnet publish tools/attach/tarn-attach.csproj -c Release -r "linux-$arch" --self-contained false -o "$stage/lib/attach" \
    "${attach[@]}" >/dev/null
ln -s ../lib/attach/tarn-attach "$stage/bin/tarn-attach"
dotnet pack tools/attach/tarn-attach.csproj -c Release -o "$stage/packages" "${attach[@]}" >/dev/null

(cd "$stage" && find . -type f ! -name SHA256SUMS | sort | xargs sha256sum >SHA256SUMS)
tar -czf "$build/release/$name.tar.gz" -C "$build/release" "$name"
echo "$build/release/$name.tar.gz"
