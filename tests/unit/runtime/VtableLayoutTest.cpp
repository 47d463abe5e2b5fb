#include <gtest/gtest.h>

#include "support/VtableSlotOf.h"
#include "runtime/CorProfilerCallback.h"
#include "runtime/CorProfilerInfo.h"
#include "runtime/MetaDataInterfaces.h"

TEST(VtableLayout, UnknownAndClassFactoryFollowTheObjectModel) {
    EXPECT_EQ(0, vtableSlotOf(&IUnknown::QueryInterface));
    EXPECT_EQ(1, vtableSlotOf(&IUnknown::AddRef));
    EXPECT_EQ(2, vtableSlotOf(&IUnknown::Release));
    EXPECT_EQ(3, vtableSlotOf(&IClassFactory::CreateInstance));
    EXPECT_EQ(4, vtableSlotOf(&IClassFactory::LockServer));
}

TEST(VtableLayout, ProfilerInfoChainPutsLateMethodsWhereTheRuntimeHasThem) {
    EXPECT_EQ(3, vtableSlotOf(&ICorProfilerInfo::GetClassFromObject));
    EXPECT_EQ(16, vtableSlotOf(&ICorProfilerInfo::SetEventMask));
    EXPECT_EQ(20, vtableSlotOf(&ICorProfilerInfo::GetModuleInfo));
    EXPECT_EQ(21, vtableSlotOf(&ICorProfilerInfo::GetModuleMetaData));
    EXPECT_EQ(22, vtableSlotOf(&ICorProfilerInfo::GetILFunctionBody));
    EXPECT_EQ(23, vtableSlotOf(&ICorProfilerInfo::GetILFunctionBodyAllocator));
    EXPECT_EQ(24, vtableSlotOf(&ICorProfilerInfo::SetILFunctionBody));
    EXPECT_EQ(35, vtableSlotOf(&ICorProfilerInfo::GetILToNativeMapping));
    EXPECT_EQ(36, vtableSlotOf(&ICorProfilerInfo2::DoStackSnapshot));
    EXPECT_EQ(38, vtableSlotOf(&ICorProfilerInfo2::GetFunctionInfo2));
    EXPECT_EQ(56, vtableSlotOf(&ICorProfilerInfo2::GetNotifiedExceptionClauseInfo));
    EXPECT_EQ(57, vtableSlotOf(&ICorProfilerInfo3::EnumJITedFunctions));
    EXPECT_EQ(66, vtableSlotOf(&ICorProfilerInfo3::EnumModules));
    EXPECT_EQ(67, vtableSlotOf(&ICorProfilerInfo3::GetRuntimeInformation));
    EXPECT_EQ(70, vtableSlotOf(&ICorProfilerInfo3::GetModuleInfo2));
    EXPECT_EQ(71, vtableSlotOf(&ICorProfilerInfo4::EnumThreads));
    EXPECT_EQ(73, vtableSlotOf(&ICorProfilerInfo4::RequestReJIT));
    EXPECT_EQ(74, vtableSlotOf(&ICorProfilerInfo4::RequestRevert));
    EXPECT_EQ(80, vtableSlotOf(&ICorProfilerInfo4::GetObjectSize2));
    EXPECT_EQ(82, vtableSlotOf(&ICorProfilerInfo5::SetEventMask2));
    EXPECT_EQ(83, vtableSlotOf(&ICorProfilerInfo6::EnumNgenModuleMethodsInliningThisMethod));
    EXPECT_EQ(84, vtableSlotOf(&ICorProfilerInfo7::ApplyMetaData));
    EXPECT_EQ(86, vtableSlotOf(&ICorProfilerInfo7::ReadInMemorySymbols));
    EXPECT_EQ(89, vtableSlotOf(&ICorProfilerInfo8::GetDynamicFunctionInfo));
    EXPECT_EQ(92, vtableSlotOf(&ICorProfilerInfo9::GetCodeInfo4));
    EXPECT_EQ(96, vtableSlotOf(&ICorProfilerInfo10::RequestReJITWithInliners));
    EXPECT_EQ(97, vtableSlotOf(&ICorProfilerInfo10::SuspendRuntime));
    EXPECT_EQ(98, vtableSlotOf(&ICorProfilerInfo10::ResumeRuntime));
    // Reached through a derived interface, a base method keeps its slot.
    EXPECT_EQ(24, vtableSlotOf(&ICorProfilerInfo10::SetILFunctionBody));
}

TEST(VtableLayout, HelperInterfacesOfTheProfilingServices) {
    EXPECT_EQ(3, vtableSlotOf(&ICorProfilerModuleEnum::Skip));
    EXPECT_EQ(7, vtableSlotOf(&ICorProfilerModuleEnum::Next));
    EXPECT_EQ(5, vtableSlotOf(&ICorProfilerFunctionEnum::Clone));
    EXPECT_EQ(7, vtableSlotOf(&ICorProfilerFunctionEnum::Next));
    EXPECT_EQ(6, vtableSlotOf(&ICorProfilerThreadEnum::GetCount));
    EXPECT_EQ(7, vtableSlotOf(&ICorProfilerThreadEnum::Next));
    EXPECT_EQ(3, vtableSlotOf(&IMethodMalloc::Alloc));
    EXPECT_EQ(3, vtableSlotOf(&ICorProfilerFunctionControl::SetCodegenFlags));
    EXPECT_EQ(4, vtableSlotOf(&ICorProfilerFunctionControl::SetILFunctionBody));
    EXPECT_EQ(5, vtableSlotOf(&ICorProfilerFunctionControl::SetILInstrumentedCodeMap));
}

TEST(VtableLayout, CallbackChainEndsAtSlot88) {
    EXPECT_EQ(3, vtableSlotOf(&ICorProfilerCallback::Initialize));
    EXPECT_EQ(4, vtableSlotOf(&ICorProfilerCallback::Shutdown));
    EXPECT_EQ(14, vtableSlotOf(&ICorProfilerCallback::ModuleLoadFinished));
    EXPECT_EQ(23, vtableSlotOf(&ICorProfilerCallback::JITCompilationStarted));
    EXPECT_EQ(25, vtableSlotOf(&ICorProfilerCallback::JITCachedFunctionSearchStarted));
    EXPECT_EQ(28, vtableSlotOf(&ICorProfilerCallback::JITInlining));
    EXPECT_EQ(30, vtableSlotOf(&ICorProfilerCallback::ThreadDestroyed));
    EXPECT_EQ(60, vtableSlotOf(&ICorProfilerCallback::ExceptionOSHandlerEnter));
    EXPECT_EQ(71, vtableSlotOf(&ICorProfilerCallback::ExceptionCLRCatcherExecute));
    EXPECT_EQ(72, vtableSlotOf(&ICorProfilerCallback2::ThreadNameChanged));
    EXPECT_EQ(79, vtableSlotOf(&ICorProfilerCallback2::HandleDestroyed));
    EXPECT_EQ(80, vtableSlotOf(&ICorProfilerCallback3::InitializeForAttach));
    EXPECT_EQ(82, vtableSlotOf(&ICorProfilerCallback3::ProfilerDetachSucceeded));
    EXPECT_EQ(83, vtableSlotOf(&ICorProfilerCallback4::ReJITCompilationStarted));
    EXPECT_EQ(84, vtableSlotOf(&ICorProfilerCallback4::GetReJITParameters));
    EXPECT_EQ(88, vtableSlotOf(&ICorProfilerCallback4::SurvivingReferences2));
}

TEST(VtableLayout, MetaDataImportKeepsFarApartMethodsApart) {
    EXPECT_EQ(3, vtableSlotOf(&IMetaDataImport::CloseEnum));
    EXPECT_EQ(9, vtableSlotOf(&IMetaDataImport::FindTypeDefByName));
    EXPECT_EQ(12, vtableSlotOf(&IMetaDataImport::GetTypeDefProps));
    EXPECT_EQ(14, vtableSlotOf(&IMetaDataImport::GetTypeRefProps));
    EXPECT_EQ(27, vtableSlotOf(&IMetaDataImport::FindMethod));
    EXPECT_EQ(29, vtableSlotOf(&IMetaDataImport::FindMemberRef));
    EXPECT_EQ(30, vtableSlotOf(&IMetaDataImport::GetMethodProps));
    EXPECT_EQ(31, vtableSlotOf(&IMetaDataImport::GetMemberRefProps));
    EXPECT_EQ(48, vtableSlotOf(&IMetaDataImport::GetPinvokeMap));
    EXPECT_EQ(54, vtableSlotOf(&IMetaDataImport::GetCustomAttributeProps));
    EXPECT_EQ(55, vtableSlotOf(&IMetaDataImport::FindTypeRef));
    EXPECT_EQ(61, vtableSlotOf(&IMetaDataImport::IsValidToken));
    EXPECT_EQ(62, vtableSlotOf(&IMetaDataImport::GetNestedClassProps));
    EXPECT_EQ(64, vtableSlotOf(&IMetaDataImport::IsGlobal));
    EXPECT_EQ(65, vtableSlotOf(&IMetaDataImport2::EnumGenericParams));
    EXPECT_EQ(72, vtableSlotOf(&IMetaDataImport2::EnumMethodSpecs));
}

TEST(VtableLayout, AssemblyImportAndDispensers) {
    EXPECT_EQ(3, vtableSlotOf(&IMetaDataAssemblyImport::GetAssemblyProps));
    EXPECT_EQ(4, vtableSlotOf(&IMetaDataAssemblyImport::GetAssemblyRefProps));
    EXPECT_EQ(8, vtableSlotOf(&IMetaDataAssemblyImport::EnumAssemblyRefs));
    EXPECT_EQ(15, vtableSlotOf(&IMetaDataAssemblyImport::CloseEnum));
    EXPECT_EQ(16, vtableSlotOf(&IMetaDataAssemblyImport::FindAssembliesByName));
    EXPECT_EQ(4, vtableSlotOf(&IMetaDataDispenser::OpenScope));
    EXPECT_EQ(5, vtableSlotOf(&IMetaDataDispenser::OpenScopeOnMemory));
    EXPECT_EQ(6, vtableSlotOf(&IMetaDataDispenserEx::SetOption));
    EXPECT_EQ(11, vtableSlotOf(&IMetaDataDispenserEx::FindAssemblyModule));
}

TEST(VtableLayout, MetaDataEmitAndAssemblyEmit) {
    EXPECT_EQ(7, vtableSlotOf(&IMetaDataEmit::DefineTypeDef));
    EXPECT_EQ(10, vtableSlotOf(&IMetaDataEmit::DefineMethod));
    EXPECT_EQ(12, vtableSlotOf(&IMetaDataEmit::DefineTypeRefByName));
    EXPECT_EQ(14, vtableSlotOf(&IMetaDataEmit::DefineMemberRef));
    EXPECT_EQ(23, vtableSlotOf(&IMetaDataEmit::GetTokenFromSig));
    EXPECT_EQ(24, vtableSlotOf(&IMetaDataEmit::DefineModuleRef));
    EXPECT_EQ(26, vtableSlotOf(&IMetaDataEmit::GetTokenFromTypeSpec));
    EXPECT_EQ(28, vtableSlotOf(&IMetaDataEmit::DefineUserString));
    EXPECT_EQ(35, vtableSlotOf(&IMetaDataEmit::SetPinvokeMap));
    EXPECT_EQ(37, vtableSlotOf(&IMetaDataEmit::DefineCustomAttribute));
    EXPECT_EQ(39, vtableSlotOf(&IMetaDataEmit::DefineField));
    EXPECT_EQ(51, vtableSlotOf(&IMetaDataEmit::MergeEnd));
    EXPECT_EQ(52, vtableSlotOf(&IMetaDataEmit2::DefineMethodSpec));
    EXPECT_EQ(59, vtableSlotOf(&IMetaDataEmit2::ResetENCLog));
    EXPECT_EQ(3, vtableSlotOf(&IMetaDataAssemblyEmit::DefineAssembly));
    EXPECT_EQ(4, vtableSlotOf(&IMetaDataAssemblyEmit::DefineAssemblyRef));
    EXPECT_EQ(12, vtableSlotOf(&IMetaDataAssemblyEmit::SetManifestResourceProps));
}
