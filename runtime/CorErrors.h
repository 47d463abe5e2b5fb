// HRESULT values and tests used throughout the library.
#pragma once

#include "runtime/CorTypes.h"

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001);
constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002);
constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004);
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005);
constexpr HRESULT E_HANDLE = static_cast<HRESULT>(0x80070006);
constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
constexpr HRESULT CLASS_E_NOAGGREGATION = static_cast<HRESULT>(0x80040110);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = static_cast<HRESULT>(0x80040111);
// A metadata lookup that found nothing.
constexpr HRESULT CLDB_E_RECORD_NOTFOUND = static_cast<HRESULT>(0x80131130);
// The refusal of an initialisation: the runtime then drops the profiler quietly.
constexpr HRESULT CORPROF_E_PROFILER_CANCEL_ACTIVATION = static_cast<HRESULT>(0x80131375);

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }
