#include "shim/SyntheticAgentShim.h"

#include <new>

#include "metadata/ImageMetaData.h"
#include "platform/AutoPointer.h"
#include "platform/FormattedOutput.h"
#include "platform/SharedNames.h"
#include "platform/Text16.h"
#include "runtime/Guids.h"
#include "shim/ShimSignature.h"

using namespace ShimDelegateTable;

namespace {

constexpr const char16_t* kCorlibTypeNames[] = {
    u"System.Object",
    u"System.Type",
    u"System.RuntimeTypeHandle",
    u"System.Delegate",
    u"System.Int32",
    u"System.Runtime.CompilerServices.IsVolatile",
    u"System.MulticastDelegate",
    u"System.IAsyncResult",
    u"System.AsyncCallback",
    u"System.Reflection.Assembly",
    u"System.Reflection.MethodInfo",
    u"System.Exception",
};

constexpr DWORD kNestedDelegateFlags = tdNestedPublic | tdSealed;
constexpr DWORD kDelegateCtorFlags = mdPublic | mdHideBySig | mdSpecialName | mdRTSpecialName;
constexpr DWORD kDelegateMethodFlags = mdPublic | mdVirtual | mdHideBySig | mdNewSlot;
constexpr DWORD kFieldFlags = fdPrivate | fdStatic;
constexpr DWORD kShimMethodFlags = mdPublic | mdStatic | mdHideBySig;
// instance void (object, native int)
constexpr COR_SIGNATURE kDelegateCtorSig[] = {0x20, 0x02, 0x01, 0x1C, 0x18};
// The stubs are defined in an order of their own.
constexpr DelegateKind kStubOrder[DelegateKindCount] = {InitTrace, Trace, TraceObj, PushTrace};
// The constant-type argument of DefineField for a field without a value.
constexpr DWORD kNoConstant = 0x41;

}  // namespace

HRESULT SyntheticAgentShim::DefineSyntheticAgentShim(ICorProfilerInfo* info, ModuleID module, FILE* log,
                                                     bool dotnetCore, bool attached, ModuleID coreLibrary) {
    this->info = info;
    this->module = module;
    this->coreLibrary = coreLibrary;
    this->log = log;
    this->dotnetCore = dotnetCore;
    this->attached = attached;

    AutoCOMPointer<IMetaDataEmit> emitHolder;
    AutoCOMPointer<IMetaDataImport> importHolder;
    HRESULT hr = S_OK;
    try {
        hr = info->GetModuleMetaData(module, ofWrite, IID_IMetaDataEmit, reinterpret_cast<IUnknown**>(&emitHolder));
        if (SUCCEEDED(hr)) {
            // Read only, the core library is best read from its image.
            hr = module == coreLibrary ? info->GetModuleMetaData(coreLibrary, ofRead, IID_IMetaDataImport,
                                                                 reinterpret_cast<IUnknown**>(&importHolder))
                                       : ImageMetaData::open(info, coreLibrary, IID_IMetaDataImport,
                                                             reinterpret_cast<IUnknown**>(&importHolder));
        }
        emit = emitHolder.get();
        import = importHolder.get();
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to allocate COM ptrs\n");
        }

        if (SUCCEEDED(hr)) {
            hr = FindCorlibTypes();
        }
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to find corlib types\n");
        }

        if (SUCCEEDED(hr) && module != coreLibrary) {
            hr = OpenReferences();
        }
        if (SUCCEEDED(hr)) {
            hr = emit->DefineTypeDef(SharedNames::kSyntheticAgentShimClass, tdPublic, local(corlibTypes[Object]),
                                     nullptr, &shimType);
        }
        for (unsigned int kind = 0; kind < DelegateKindCount && SUCCEEDED(hr); ++kind) {
            DelegateRecord& record = delegateRecords[kind];
            hr = DefineDelegateType(delegates[kind].typeName, delegates[kind].signature,
                                    delegates[kind].signatureLength, &record.type, &record.invoke, &record.ctor);
        }
        for (unsigned int i = 0; i < kFieldCount && SUCCEEDED(hr); ++i) {
            hr = DefineDelegateField(fields[i].fieldName, delegateRecords[fields[i].kind()].type, &delegateFields[i]);
        }
        if (FAILED(hr)) {
            fprintf_8(log, "Failed to create delegate fields\n");
        }

        // Only initTrace is called by name from generated code: the loader
        // passes the first call on through it.
        for (unsigned int i = 0; i < kFieldCount && SUCCEEDED(hr); ++i) {
            const DelegateShape& shape = delegates[fields[i].kind()];
            hr = DefineShimMethod(fields[i].methodName(), delegateFields[i], delegateRecords[fields[i].kind()].invoke,
                                  shape.signature, shape.signatureLength, i == 0 ? &shimInitTraceMethod : nullptr);
        }
        for (unsigned int i = 0; i < DelegateKindCount && SUCCEEDED(hr); ++i) {
            const DelegateKind kind = kStubOrder[i];
            hr = DefineEmptyDelegateMethod(delegates[kind].emptyMethod, &delegateRecords[kind].emptyMethod,
                                           delegates[kind].signature, delegates[kind].signatureLength);
        }
        if (SUCCEEDED(hr)) {
            hr = DefineLoadInitMethod();
        }
        if (SUCCEEDED(hr)) {
            hr = DefineClassCtor();
        }

        if (SUCCEEDED(hr) && referenceFailed) {
            hr = E_FAIL;
        }
        if (SUCCEEDED(hr)) {
            AutoCOMPointer<ICorProfilerInfo7> info7;
            hr = info->QueryInterface(IID_ICorProfilerInfo7, reinterpret_cast<void**>(&info7));
            if (FAILED(hr)) {
                fprintf_8(log, "Failed to ApplyMetaData 0x%x\n", hr);
            } else {
                hr = info7->ApplyMetaData(module);
            }
        }
    } catch (const std::bad_alloc&) {
        hr = E_OUTOFMEMORY;
    } catch (...) {
        hr = E_UNEXPECTED;
    }

    // An application published trimmed keeps only the members it uses itself,
    // of the core library too.
    if (hr == CLDB_E_RECORD_NOTFOUND) {
        fprintf_8(log,
                  "The core library lacks a type or member that the shim calls, as that of an application "
                  "published trimmed may: no method is traced through this shim\n");
    }
    this->info = nullptr;
    emit = nullptr;
    import = nullptr;
    return hr;
}

HRESULT SyntheticAgentShim::FindCorlibTypes() {
    HRESULT hr = S_OK;
    for (unsigned int type = 0; type < CorlibTypeCount && SUCCEEDED(hr); ++type) {
        hr = lookups.findType(import, kCorlibTypeNames[type], &corlibTypes[type]);
    }
    // The desktop runtime has no load contexts; its loader takes Assembly.LoadFrom.
    if (SUCCEEDED(hr) && dotnetCore) {
        hr = lookups.findType(import, u"System.Runtime.Loader.AssemblyLoadContext", &loadContextType);
    }
    return hr;
}

HRESULT SyntheticAgentShim::DefineDelegateType(const char16_t* name, const COR_SIGNATURE* signature,
                                               ULONG signatureLength, mdTypeDef* outType, mdMethodDef* outInvoke,
                                               mdMethodDef* outCtor) {
    // The runtime supplies the code of every delegate member.
    HRESULT hr = emit->DefineNestedType(name, kNestedDelegateFlags, local(corlibTypes[MulticastDelegate]), nullptr,
                                        shimType, outType);
    if (SUCCEEDED(hr)) {
        hr = emit->DefineMethod(*outType, u".ctor", kDelegateCtorFlags, kDelegateCtorSig, sizeof(kDelegateCtorSig), 0,
                                miRuntime, outCtor);
    }

    ShimSignature invoke;
    invoke.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(signature + 1, signatureLength - 1);
    if (SUCCEEDED(hr)) {
        hr = emit->DefineMethod(*outType, u"Invoke", kDelegateMethodFlags, invoke.bytes(), invoke.length(), 0,
                                miRuntime, outInvoke);
    }

    ShimSignature beginInvoke;
    beginInvoke.add(IMAGE_CEE_CS_CALLCONV_HASTHIS)
        .add(static_cast<COR_SIGNATURE>(signature[1] + 2))
        .addClass(local(corlibTypes[IAsyncResult]))
        .add(signature + 3, signatureLength - 3)
        .addClass(local(corlibTypes[AsyncCallback]))
        .add(ELEMENT_TYPE_OBJECT);
    mdMethodDef unused = 0;
    if (SUCCEEDED(hr)) {
        hr = emit->DefineMethod(*outType, u"BeginInvoke", kDelegateMethodFlags, beginInvoke.bytes(),
                                beginInvoke.length(), 0, miRuntime, &unused);
    }

    // int32 EndInvoke(IAsyncResult) for every delegate type. Nobody calls it,
    // so the return type need not match Invoke's.
    ShimSignature endInvoke;
    endInvoke.add(IMAGE_CEE_CS_CALLCONV_HASTHIS).add(1).add(ELEMENT_TYPE_I4).addClass(local(corlibTypes[IAsyncResult]));
    if (SUCCEEDED(hr)) {
        hr = emit->DefineMethod(*outType, u"EndInvoke", kDelegateMethodFlags, endInvoke.bytes(), endInvoke.length(), 0,
                                miRuntime, &unused);
    }
    return hr;
}

HRESULT SyntheticAgentShim::DefineDelegateField(const char16_t* name, mdTypeDef delegateType, mdFieldDef* outField) {
    ShimSignature signature;
    signature.add(IMAGE_CEE_CS_CALLCONV_FIELD).addClass(delegateType);
    return emit->DefineField(shimType, name, kFieldFlags, signature.bytes(), signature.length(), kNoConstant, nullptr,
                             0, outField);
}

HRESULT SyntheticAgentShim::DefineShimMethod(const char16_t* name, mdFieldDef field, mdMethodDef invoke,
                                             const COR_SIGNATURE* signature, ULONG signatureLength,
                                             mdMethodDef* outMethod) {
    mdMethodDef method = 0;
    HRESULT hr = emit->DefineMethod(shimType, name, kShimMethodFlags, signature, signatureLength, 0, 0, &method);
    AutoPointer<IMethodBuilder> builder(IMethodBuilder::newInstance());
    if (SUCCEEDED(hr) && builder.get() == nullptr) {
        hr = E_OUTOFMEMORY;
    }

    ILEmitter il(builder.get(), 0, hr);
    if (il.ok()) {
        builder->getFatHeader()->MaxStack = 3;
    }
    il.op(Opcode::ldsfld, field);
    if (signature[1] > 0) {
        il.op(Opcode::ldarg_0);
    }
    if (signature[1] > 1) {
        il.op(Opcode::ldarg_1);
    }
    hr = il.op(Opcode::callvirt, invoke)
             .op(Opcode::ret)
             .then([&] { return AssignMethodBody(method, builder.get()); })
             .status();
    if (SUCCEEDED(hr) && outMethod != nullptr) {
        *outMethod = method;
    }
    return hr;
}

HRESULT SyntheticAgentShim::DefineEmptyDelegateMethod(const char16_t* name, mdMethodDef* outMethod,
                                                      const COR_SIGNATURE* signature, ULONG signatureLength) {
    HRESULT hr = emit->DefineMethod(shimType, name, kShimMethodFlags, signature, signatureLength, 0, 0, outMethod);
    AutoPointer<IMethodBuilder> builder(IMethodBuilder::newInstance());
    if (SUCCEEDED(hr) && builder.get() == nullptr) {
        hr = E_OUTOFMEMORY;
    }

    ILEmitter il(builder.get(), 0, hr);
    if (il.ok()) {
        builder->getFatHeader()->MaxStack = 8;
    }
    // A stub of initTrace answers 0: this call is not traced.
    if (signature[2] == ELEMENT_TYPE_I4) {
        il.op(Opcode::ldc_i4_0);
    }
    return il.op(Opcode::ret).then([&] { return AssignMethodBody(*outMethod, builder.get()); }).status();
}

HRESULT SyntheticAgentShim::AssignMethodBody(mdMethodDef method, IMethodBuilder* builder) {
    // Method definitions carry no code RVA: the body exists only as given to
    // the runtime here, in memory from its allocator, which it keeps.
    AutoCOMPointer<IMethodMalloc> allocator;
    HRESULT hr = info->GetILFunctionBodyAllocator(module, &allocator);
    unsigned char* buffer = nullptr;
    if (SUCCEEDED(hr)) {
        buffer = static_cast<unsigned char*>(allocator->Alloc(builder->getTotalSize()));
        if (buffer == nullptr) {
            hr = E_OUTOFMEMORY;
        }
    }
    if (SUCCEEDED(hr)) {
        hr = builder->writeToBuffer(buffer);
    }
    if (SUCCEEDED(hr)) {
        hr = info->SetILFunctionBody(module, method, buffer);
    }
    return hr;
}

HRESULT SyntheticAgentShim::DefineUserString(const char16_t* text, mdString* outToken) {
    return emit->DefineUserString(text, static_cast<ULONG>(strlen_u16(text)), outToken);
}
