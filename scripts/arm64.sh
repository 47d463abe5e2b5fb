#!/usr/bin/env bash
# The library for linux-arm64, built with Debian's cross compiler and proven on
# the arm64 .NET runtime under user-mode emulation:
#   1. the library and the unit suites, cross-built in build-arm64/;
#   2. the unit suites, run against the arm64 runtime (a self-contained arm64
#      publish of the Hello program provides libcoreclr.so and the framework);
#   3. Hello under the arm64 library and the test agent: its output must equal a
#      plain run, and the agent's record must hold the same calls as on x64;
#   4. the release tarball for linux-arm64.
# The arm64 binaries run through the kernel's binfmt_misc and qemu-aarch64,
# registered here when they are not (as root); the arm64 C, C++ and Unicode
# libraries come from Debian's arm64 packages.
#
# Usage: scripts/arm64.sh   (after ./test.sh, whose x64 build gives the agent
# and the x64 run to compare with)
set -euo pipefail
cd "$(dirname "$0")/.."
export DOTNET_CLI_TELEMETRY_OPTOUT=1 DOTNET_NOLOGO=1
build=build-arm64
started=$SECONDS
step() { echo "== $1 ($((SECONDS - started)) s)"; }

step "toolchain, emulator and arm64 libraries"
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    dpkg --add-architecture arm64
fi
missing=()
for package in g++-aarch64-linux-gnu qemu-user-static libc6:arm64 libstdc++6:arm64 libicu72:arm64; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
scripts/install-missing.sh "${missing[@]}"
if [[ ! -e /proc/sys/fs/binfmt_misc/register ]]; then
    mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
fi
if [[ ! -e /proc/sys/fs/binfmt_misc/qemu-aarch64 ]]; then
    sed -n 's/^:/:/p' /usr/lib/binfmt.d/qemu-aarch64.conf >/proc/sys/fs/binfmt_misc/register
fi
scripts/fetch-re2.sh

step "cross build"
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j"$(nproc)" >"$build/cross-build.log" 2>&1 || { tail -30 "$build/cross-build.log"; exit 1; }
file "$build/tarn.NativeProfiler.so"
tests/check_dependencies.sh "$build/tarn.NativeProfiler.so"

step "test programs published for linux-arm64"
work=$(pwd)/$build/e2e
rm -rf "$work" && mkdir -p "$work/src"
# The programs' shared props and the sources beside their folders that they include.
cp tests/e2e/programs/Directory.Build.props tests/e2e/programs/*.cs "$work/src/"
for program in Hello Sampled Reload; do
    cp -r "tests/e2e/programs/$program" "$work/src/"
    rm -rf "$work/src/$program/obj" "$work/src/$program/bin"
    dotnet publish "$work/src/$program" -c Release -r linux-arm64 --self-contained -o "$work/$program" --nologo -v quiet
done
# The hosted runtime of the suites: the published framework, and the host's
# ASP.NET Core assemblies beside it (only their metadata is read).
version=$(ls /usr/share/dotnet/shared/Microsoft.NETCore.App | sort -V | tail -1)
mkdir -p "$work/shared/Microsoft.NETCore.App" "$work/shared/Microsoft.AspNetCore.App"
ln -sfn "$work/Hello" "$work/shared/Microsoft.NETCore.App/$version"
ln -sfn "/usr/share/dotnet/shared/Microsoft.AspNetCore.App/$version" "$work/shared/Microsoft.AspNetCore.App/$version"

step "unit suites under emulation"
(cd "$build" && TARN_DOTNET_SHARED=$work/shared/Microsoft.NETCore.App ctest -j"$(nproc)" --output-on-failure)

step "Hello traced by the arm64 library"
# An agent home of its own for each run: home <name> <directives>.
home() {
    mkdir -p "$work/$1/bin/netcore"
    cp build/e2e/agent/* "$work/$1/bin/netcore/"
    printf 'harrowlite.fieldmark.enable=true\nharrowlite.nativeprofiler.logfile=native.log\nharrowlite.fieldmark.directivesFile=program.fmd\n' \
        >"$work/$1/default.properties"
    printf '%s\n' "$2" >"$work/$1/program.fmd"
}
profiled() {  # home library record command...
    env CORECLR_ENABLE_PROFILING=1 "CORECLR_PROFILER={7C1E42A9-63D0-4B1F-9E25-3AD8F06B17C4}" \
        CORECLR_PROFILER_PATH="$2" TMSENV_AGENT_PROFILE="$work/$1/default.properties" TARN_AGENT_RECORD="$3" "${@:4}"
}
arm64=$(pwd)/$build/tarn.NativeProfiler.so
home hello $'IdentifyAssemblyAs: Hello Own\nTraceAllMethodsIfFlagged: Own\nTurnOn: Own'
home hello-x64 $'IdentifyAssemblyAs: Hello Own\nTraceAllMethodsIfFlagged: Own\nTurnOn: Own'
plain=$("$work/Hello/Hello")
traced=$(profiled hello "$arm64" "$work/record-arm64.txt" "$work/Hello/Hello")
profiled hello-x64 "$(pwd)/build/tarn.NativeProfiler.so" "$work/record-x64.txt" dotnet build/e2e/Hello/Hello.dll >/dev/null
calls() { awk '{print $1}' "$1" | sort | uniq -c; }
log=$work/hello/native_Hello.log
echo "arm64 native log:"
grep -E '^(tarn.NativeProfiler|Instrumented|Defined)' "$log" | sort | uniq -c
echo "agent record, arm64:"; calls "$work/record-arm64.txt"
if [[ $plain != "$traced" ]]; then
    echo "FAILED: the output changed under the profiler"; diff <(echo "$plain") <(echo "$traced"); exit 1
fi
if ! grep -q '^Instrumented \[Hello\]Program::Main' "$log"; then
    echo "FAILED: Main was not instrumented"; exit 1
fi
if [[ $(calls "$work/record-arm64.txt") != "$(calls "$work/record-x64.txt")" ]]; then
    echo "FAILED: the agent's record differs from the x64 run's"; calls "$work/record-x64.txt"; exit 1
fi
step "stack sampling"
home sampled 'TraceAllMethodsOfClass: Sampled.Traced'
(cd "$work/sampled" && profiled sampled "$arm64" "$work/sampled/record.txt" "$work/Sampled/Sampled" chain >/dev/null)
sed -n '/^chain /,/^close /p' "$work/sampled/samples.txt"
# The chain A -> B -> C of the sampled thread, each method by its token.
read -r _ _ a _ b _ c _ < <(grep '^tokens ' "$work/sampled/samples.txt")
for token in "$a" "$b" "$c"; do
    sed -n '/^chain /,/^close /p' "$work/sampled/samples.txt" | grep -q " $token Sampled.dll " ||
        { echo "FAILED: method $token of the chain was not sampled"; exit 1; }
done

step "hot reload: Alpha traced, then Beta instead"
home reload 'TraceOneMethodOfClass: Reload.Work Alpha'
(cd "$work/reload" && profiled reload "$arm64" "$work/reload/record.txt" timeout 120 "$work/Reload/Reload" >out.txt) &
for _ in $(seq 300); do [[ -f $work/reload/pid ]] && break; sleep 0.2; done
printf 'TraceOneMethodOfClass: Reload.Work Beta\n' >"$work/reload/program.fmd"
touch "$work/reload/reload"
for _ in $(seq 300); do [[ -f $work/reload/reload ]] || break; sleep 0.2; done
sleep 2
touch "$work/reload/stop"
wait
grep -E '^(Request ReJIT|Hot Reload complete)' "$work/reload/native_Reload.log"
# Main once (the entry point is always traced), then Alpha, then only Beta.
runs=$(grep '^initTrace' "$work/reload/record.txt" | awk '{print $2}' | uniq -c)
echo "$runs"
[[ $(grep -c '' <<<"$runs") == 3 ]] || { echo "FAILED: the reload did not move the tracing"; exit 1; }

step "release tarball"
scripts/release.sh "$build"
step "linux-arm64 passed"
