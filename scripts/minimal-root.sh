#!/usr/bin/env bash
# Proof that the built library needs nothing of a machine but its C library: a
# minimal Debian root (debootstrap's minbase: no RE2, no compiler, no C++ of
# ours) with the installed .NET runtime copied in runs a program under the
# profiler, entered with chroot. The program's output must equal a plain run in
# the same root, and the program must be traced. The runtime itself brings the
# C++ runtime it needs into the root; the library must not need it (see the
# dependency lines printed first).
#
# Usage: scripts/minimal-root.sh [build directory]   (as root; the root is kept
# in <build>/minimal-root for the next run)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(cd "${1:-build}" && pwd)
root=$build/minimal-root
command -v debootstrap >/dev/null || scripts/install-missing.sh debootstrap
if [[ ! -x $root/bin/sh ]]; then
    debootstrap --variant=minbase bookworm "$root" http://deb.debian.org/debian >/dev/null
fi

dotnet_home=$(dirname "$(readlink -f "$(command -v dotnet)")")
runtime=$(ls -d "$dotnet_home"/shared/Microsoft.NETCore.App/10.* | sort -V | tail -1)
rm -rf "$root/opt/dotnet" "$root/opt/tarn" "$root/opt/hello"
mkdir -p "$root/opt/dotnet/shared/Microsoft.NETCore.App" "$root/opt/tarn/bin/netcore" "$root/opt/hello"
cp -a "$dotnet_home/dotnet" "$dotnet_home/host" "$root/opt/dotnet/"
cp -a "$runtime" "$root/opt/dotnet/shared/Microsoft.NETCore.App/"
cp "$build/tarn.NativeProfiler.so" "$root/opt/tarn/"
cp "$build"/e2e/agent/* "$root/opt/tarn/bin/netcore/"
cp "$build"/e2e/Hello/Hello.dll "$build"/e2e/Hello/Hello.runtimeconfig.json "$root/opt/hello/"
printf 'harrowlite.fieldmark.enable=true\nharrowlite.nativeprofiler.logfile=native.log\nharrowlite.fieldmark.directivesFile=hello.fmd\n' \
    >"$root/opt/tarn/default.properties"
printf 'TraceAllMethodsOfClass: Program\n' >"$root/opt/tarn/hello.fmd"

echo "the root's regular expression and C++ libraries: $(cd "$root" && find . -name 'libre2*' -o -name 'libstdc++*' | tr '\n' ' ')"
echo "the library inside the root:"
chroot "$root" /usr/bin/ldd /opt/tarn/tarn.NativeProfiler.so | sed 's/^/  /'
if chroot "$root" /usr/bin/ldd /opt/tarn/tarn.NativeProfiler.so | grep -qE 'not found|libre2|libstdc|libgcc_s'; then
    echo "FAILED: the library needs more than the C library" >&2
    exit 1
fi

# The runtime reads /proc and /dev: the machine's are bound into the root in a
# mount namespace of the run's own, which takes them away when it ends.
run() {
    unshare --mount --propagation private /bin/sh -c \
        'mount --bind /proc "$0/proc" && mount --bind /dev "$0/dev" && exec chroot "$0" "$@"' "$root" \
        /usr/bin/env -i PATH=/usr/bin:/bin DOTNET_SYSTEM_GLOBALIZATION_INVARIANT=1 "$@" /opt/dotnet/dotnet /opt/hello/Hello.dll
}
plain=$(run)
profiled=$(run CORECLR_ENABLE_PROFILING=1 'CORECLR_PROFILER={7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}' \
    CORECLR_PROFILER_PATH=/opt/tarn/tarn.NativeProfiler.so TMSENV_AGENT_PROFILE=/opt/tarn/default.properties \
    TARN_AGENT_RECORD=/opt/tarn/record.txt)
log=$(cat "$root"/opt/tarn/native_*.log)
echo "plain run: $plain" | head -2
echo "$log" | grep -E '^(Runtime Info|Instrumented)' | sed 's/^/  /'
echo "traced calls: $(grep -c . "$root/opt/tarn/record.txt" || true)"
if [[ $plain != "$profiled" ]] || ! grep -q '^Instrumented \[Hello\]Program::Main' <<<"$log" ||
    ! grep -q '^initTrace ' "$root/opt/tarn/record.txt"; then
    echo "FAILED: the profiled run differs or was not traced" >&2
    echo "$profiled" >&2
    exit 1
fi
echo "minimal root: traced, output unchanged"
