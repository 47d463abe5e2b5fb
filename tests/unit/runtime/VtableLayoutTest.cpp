#include <gtest/gtest.h>

#include <initializer_list>
#include <tuple>

#include "support/VtableSlotOf.h"
#include "runtime/CorProfilerCallback.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

namespace {

// The method's name goes with its row, for the failure message.
using Slot = std::tuple<const char*, std::ptrdiff_t, std::ptrdiff_t>;
#define SLOT(method, slot) Slot(#method, vtableSlotOf(&method), slot)

void expectSlots(std::initializer_list<Slot> slots) {
    for (const auto& [method, actual, expected] : slots) EXPECT_EQ(actual, expected) << method;
}

}  // namespace

TEST(VtableLayout, ProfilerInfoChainPutsLateMethodsWhereTheRuntimeHasThem) {
    expectSlots({SLOT(ICorProfilerInfo::GetClassFromObject, 3), SLOT(ICorProfilerInfo::SetEventMask, 16),
                 SLOT(ICorProfilerInfo::GetModuleInfo, 20), SLOT(ICorProfilerInfo::GetModuleMetaData, 21),
                 SLOT(ICorProfilerInfo::GetILFunctionBody, 22), SLOT(ICorProfilerInfo::GetILFunctionBodyAllocator, 23),
                 SLOT(ICorProfilerInfo::SetILFunctionBody, 24), SLOT(ICorProfilerInfo::GetILToNativeMapping, 35),
                 SLOT(ICorProfilerInfo2::DoStackSnapshot, 36), SLOT(ICorProfilerInfo2::GetFunctionInfo2, 38),
                 SLOT(ICorProfilerInfo2::GetNotifiedExceptionClauseInfo, 56),
                 SLOT(ICorProfilerInfo3::EnumJITedFunctions, 57), SLOT(ICorProfilerInfo3::EnumModules, 66),
                 SLOT(ICorProfilerInfo3::GetRuntimeInformation, 67), SLOT(ICorProfilerInfo3::GetModuleInfo2, 70),
                 SLOT(ICorProfilerInfo4::EnumThreads, 71), SLOT(ICorProfilerInfo4::RequestReJIT, 73),
                 SLOT(ICorProfilerInfo4::RequestRevert, 74), SLOT(ICorProfilerInfo4::GetObjectSize2, 80),
                 SLOT(ICorProfilerInfo5::SetEventMask2, 82),
                 SLOT(ICorProfilerInfo6::EnumNgenModuleMethodsInliningThisMethod, 83),
                 SLOT(ICorProfilerInfo7::ApplyMetaData, 84), SLOT(ICorProfilerInfo7::ReadInMemorySymbols, 86),
                 SLOT(ICorProfilerInfo8::GetDynamicFunctionInfo, 89), SLOT(ICorProfilerInfo9::GetCodeInfo4, 92),
                 SLOT(ICorProfilerInfo10::RequestReJITWithInliners, 96), SLOT(ICorProfilerInfo10::SuspendRuntime, 97),
                 SLOT(ICorProfilerInfo10::ResumeRuntime, 98),
                 // Reached through a derived interface, a base method keeps its slot.
                 SLOT(ICorProfilerInfo10::SetILFunctionBody, 24)});
}

TEST(VtableLayout, ObjectModelAndHelperInterfacesOfTheProfilingServices) {
    expectSlots({SLOT(IUnknown::QueryInterface, 0), SLOT(IUnknown::AddRef, 1), SLOT(IUnknown::Release, 2),
                 SLOT(IClassFactory::CreateInstance, 3), SLOT(IClassFactory::LockServer, 4),
                 SLOT(ICorProfilerModuleEnum::Skip, 3), SLOT(ICorProfilerModuleEnum::Next, 7),
                 SLOT(ICorProfilerFunctionEnum::Clone, 5), SLOT(ICorProfilerFunctionEnum::Next, 7),
                 SLOT(ICorProfilerThreadEnum::GetCount, 6), SLOT(ICorProfilerThreadEnum::Next, 7),
                 SLOT(IMethodMalloc::Alloc, 3), SLOT(ICorProfilerFunctionControl::SetCodegenFlags, 3),
                 SLOT(ICorProfilerFunctionControl::SetILFunctionBody, 4),
                 SLOT(ICorProfilerFunctionControl::SetILInstrumentedCodeMap, 5)});
}

TEST(VtableLayout, CallbackChainEndsAtSlot88) {
    expectSlots(
        {SLOT(ICorProfilerCallback::Initialize, 3), SLOT(ICorProfilerCallback::Shutdown, 4),
         SLOT(ICorProfilerCallback::ModuleLoadFinished, 14), SLOT(ICorProfilerCallback::JITCompilationStarted, 23),
         SLOT(ICorProfilerCallback::JITCachedFunctionSearchStarted, 25), SLOT(ICorProfilerCallback::JITInlining, 28),
         SLOT(ICorProfilerCallback::ThreadDestroyed, 30), SLOT(ICorProfilerCallback::ExceptionOSHandlerEnter, 60),
         SLOT(ICorProfilerCallback::ExceptionCLRCatcherExecute, 71), SLOT(ICorProfilerCallback2::ThreadNameChanged, 72),
         SLOT(ICorProfilerCallback2::HandleDestroyed, 79), SLOT(ICorProfilerCallback3::InitializeForAttach, 80),
         SLOT(ICorProfilerCallback3::ProfilerDetachSucceeded, 82),
         SLOT(ICorProfilerCallback4::ReJITCompilationStarted, 83), SLOT(ICorProfilerCallback4::GetReJITParameters, 84),
         SLOT(ICorProfilerCallback4::SurvivingReferences2, 88)});
}

TEST(VtableLayout, MetaDataImportKeepsFarApartMethodsApart) {
    expectSlots({SLOT(IMetaDataImport::CloseEnum, 3), SLOT(IMetaDataImport::FindTypeDefByName, 9),
                 SLOT(IMetaDataImport::GetScopeProps, 10), SLOT(IMetaDataImport::GetTypeDefProps, 12),
                 SLOT(IMetaDataImport::GetTypeRefProps, 14), SLOT(IMetaDataImport::FindMethod, 27),
                 SLOT(IMetaDataImport::FindMemberRef, 29), SLOT(IMetaDataImport::GetMethodProps, 30),
                 SLOT(IMetaDataImport::GetMemberRefProps, 31), SLOT(IMetaDataImport::GetPinvokeMap, 48),
                 SLOT(IMetaDataImport::GetCustomAttributeProps, 54), SLOT(IMetaDataImport::FindTypeRef, 55),
                 SLOT(IMetaDataImport::IsValidToken, 61), SLOT(IMetaDataImport::GetNestedClassProps, 62),
                 SLOT(IMetaDataImport::IsGlobal, 64), SLOT(IMetaDataImport2::EnumGenericParams, 65),
                 SLOT(IMetaDataImport2::EnumMethodSpecs, 72)});
}

TEST(VtableLayout, AssemblyImportAndDispensers) {
    expectSlots({SLOT(IMetaDataAssemblyImport::GetAssemblyProps, 3),
                 SLOT(IMetaDataAssemblyImport::GetAssemblyRefProps, 4),
                 SLOT(IMetaDataAssemblyImport::EnumAssemblyRefs, 8), SLOT(IMetaDataAssemblyImport::CloseEnum, 15),
                 SLOT(IMetaDataAssemblyImport::FindAssembliesByName, 16), SLOT(IMetaDataDispenser::OpenScope, 4),
                 SLOT(IMetaDataDispenser::OpenScopeOnMemory, 5), SLOT(IMetaDataDispenserEx::SetOption, 6),
                 SLOT(IMetaDataDispenserEx::FindAssemblyModule, 11)});
}

TEST(VtableLayout, MetaDataEmitAndAssemblyEmit) {
    expectSlots({SLOT(IMetaDataEmit::DefineTypeDef, 7), SLOT(IMetaDataEmit::DefineMethod, 10),
                 SLOT(IMetaDataEmit::DefineTypeRefByName, 12), SLOT(IMetaDataEmit::DefineMemberRef, 14),
                 SLOT(IMetaDataEmit::GetTokenFromSig, 23), SLOT(IMetaDataEmit::DefineModuleRef, 24),
                 SLOT(IMetaDataEmit::GetTokenFromTypeSpec, 26), SLOT(IMetaDataEmit::DefineUserString, 28),
                 SLOT(IMetaDataEmit::SetPinvokeMap, 35), SLOT(IMetaDataEmit::DefineCustomAttribute, 37),
                 SLOT(IMetaDataEmit::DefineField, 39), SLOT(IMetaDataEmit::MergeEnd, 51),
                 SLOT(IMetaDataEmit2::DefineMethodSpec, 52), SLOT(IMetaDataEmit2::ResetENCLog, 59),
                 SLOT(IMetaDataAssemblyEmit::DefineAssembly, 3), SLOT(IMetaDataAssemblyEmit::DefineAssemblyRef, 4),
                 SLOT(IMetaDataAssemblyEmit::SetManifestResourceProps, 12)});
}

#undef SLOT
