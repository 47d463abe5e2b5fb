#!/usr/bin/env bash
# The profiler is loaded into every .NET process of the machine: its dynamic symbol
# table must hold the entry points and nothing else of ours or of the C++ runtime.
set -euo pipefail
lib=$1
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | sort)
unexpected=$(echo "$exported" | grep -v -E '^(DllGetClassObject|CLSID_PROFILERCALLBACK|GetGUIDAsString|(_Z[0-9]+)?Native_[A-Za-z0-9_]+)$' || true)
status=0
for required in DllGetClassObject CLSID_PROFILERCALLBACK GetGUIDAsString; do
    if ! echo "$exported" | grep -qx "$required"; then
        echo "missing export: $required"
        status=1
    fi
done
if [ -n "$unexpected" ]; then
    echo "unexpected exports:"
    echo "$unexpected"
    status=1
fi
[ $status -eq 0 ] && echo "exports: $(echo "$exported" | tr '\n' ' ')"
exit $status
