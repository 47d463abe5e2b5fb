// Facts about the runtime and the application: is this CoreCLR, which
// version, which managed program, where is a method, does an assembly refer to
// a namespace. Results only: nothing here logs.
#pragma once

#include <string>
#include <vector>

#include "platform/AutoPointer.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

class CLRUtils {
public:
    static bool IsDotnetCore(ICorProfilerInfo* info);

    // From the folder name of the mapped libcoreclr.so ("6.0.1" gives 6, 0, 1).
    static bool GetCoreCLRVersion(int& major, int& minor, int& patch);
    // The same, for a given library path.
    static bool GetCoreCLRVersionFromPath(const std::basic_string<char16_t>& libraryPath, int& major, int& minor,
                                          int& patch);

    // The managed program of this process, from its command line.
    static bool GetManagedModulePath(ICorProfilerInfo* info, std::basic_string<char16_t>& path);
    // The same, for given program arguments (the host first).
    static bool GetManagedModulePath(ICorProfilerInfo* info, const std::vector<std::basic_string<char16_t>>& args,
                                     std::basic_string<char16_t>& path);

    // The dispenser of the mapped runtime library; left null if there is none.
    static void GetMetaDataDispenser(ICorProfilerInfo* info, AutoCOMPointer<IMetaDataDispenserEx>& dispenser);

    // Whether the assembly file has a type reference whose name begins with
    // the namespace; the assembly is opened, not loaded.
    static bool AssemblyReferencesNamespace(ICorProfilerInfo* info, const std::basic_string<char16_t>& assemblyPath,
                                            const std::basic_string<char16_t>& nameSpace);

    // The first non-abstract method of that name in a non-interface class of
    // that name (each compared as a leading part); 0 if none.
    static mdMethodDef GetMethodDefTokenFromModule(ICorProfilerInfo* info, ModuleID moduleID,
                                                   const char16_t* className, const char16_t* methodName);
    // Every such method, overloads included, at most limit; returns how many
    // were written. The first limit entries of tokens are zeroed first.
    static unsigned int GetMethodDefTokensFromModule(ICorProfilerInfo* info, ModuleID moduleID,
                                                     const char16_t* className, const char16_t* methodName,
                                                     unsigned int* tokens, unsigned long limit);
};
