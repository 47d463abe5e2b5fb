// An instrumentation engine that records which methods the hub hands it and
// answers as the test says, with a builder that records how the hub asks for
// the listing of a method. Both refuse everything the compile path does not use.
#pragma once

#include <cstdio>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "rewrite/IProfiler.h"
#include "support/RealAssemblies.h"

// "[assembly]Class::Method" of the method in hand, or "?" for what cannot be read.
inline std::string describeMethod(IMetaDataContext* context) {
    char16_t* assembly = nullptr;
    char16_t* className = nullptr;
    char16_t* method = nullptr;
    if (FAILED(context->getClassName(&assembly, &className)) || FAILED(context->getMethodName(&method))) {
        return "?";
    }
    return "[" + RealAssemblies::narrow(assembly) + "]" + RealAssemblies::narrow(className) +
           "::" + RealAssemblies::narrow(method);
}

class RecordingBuilder : public IMethodBuilder {
public:
    // findLabel answers this index for the label of the method's own body.
    int bodyLabelIndex = 5;
    // getILByteIndex answers this byte index for bodyLabelIndex.
    unsigned int bodyByteIndex = 28;
    std::vector<std::string> calls;

    int findLabel(unsigned int label) override {
        calls.push_back("findLabel(" + hex(label) + ")");
        return label == 0x80000008 ? bodyLabelIndex : -1;
    }
    unsigned int getILByteIndex(unsigned int index) override {
        calls.push_back("getILByteIndex(" + std::to_string(index) + ")");
        return index == static_cast<unsigned int>(bodyLabelIndex) ? bodyByteIndex : 0xFFFFFFFF;
    }
    int print(FILE* stream, unsigned int origin) override {
        calls.push_back("print(" + std::to_string(origin) + ")");
        return fprintf(stream, "listing from %u\n", origin);
    }

    IMAGE_COR_ILMETHOD_FAT* getFatHeader() override { return refuse<IMAGE_COR_ILMETHOD_FAT*>("getFatHeader"); }
    void copyHeader(const IMAGE_COR_ILMETHOD*) override { refuse<int>("copyHeader"); }
    HRESULT insertEHClause(unsigned int, CorExceptionFlag, unsigned int, unsigned int, unsigned int, unsigned int,
                           unsigned int) override {
        return refuse<HRESULT>("insertEHClause", E_NOTIMPL);
    }
    IMAGE_COR_ILMETHOD_SECT_FAT* getExceptionHeader() override {
        return refuse<IMAGE_COR_ILMETHOD_SECT_FAT*>("getExceptionHeader");
    }
    MethodBuilderEHClause* getExceptionClause(int) override {
        return refuse<MethodBuilderEHClause*>("getExceptionClause");
    }
    unsigned int getHeaderSize() override { return refuse<unsigned int>("getHeaderSize"); }
    unsigned int getCodeSize() override { return refuse<unsigned int>("getCodeSize"); }
    unsigned int getEHSize() override { return refuse<unsigned int>("getEHSize"); }
    unsigned int getEHCount() override { return refuse<unsigned int>("getEHCount"); }
    unsigned int getTotalSize() override { return refuse<unsigned int>("getTotalSize"); }
    HRESULT writeToBuffer(unsigned char*) override { return refuse<HRESULT>("writeToBuffer", E_NOTIMPL); }
    IILInstruction* getIL(unsigned int) override { return refuse<IILInstruction*>("getIL"); }
    HRESULT insertIL(unsigned int, Opcode, unsigned long, unsigned int) override {
        return refuse<HRESULT>("insertIL", E_NOTIMPL);
    }
    HRESULT replaceIL(unsigned int, Opcode, unsigned long, unsigned int) override {
        return refuse<HRESULT>("replaceIL", E_NOTIMPL);
    }
    HRESULT insertIL(unsigned int, const unsigned char*, unsigned int) override {
        return refuse<HRESULT>("insertIL", E_NOTIMPL);
    }
    unsigned int getILCount() override { return refuse<unsigned int>("getILCount"); }

    static std::string hex(unsigned long value) {
        std::ostringstream text;
        text << "0x" << std::hex << std::uppercase << value;
        return text.str();
    }

private:
    template <typename T>
    T refuse(const char* name, T answer = T {}) {
        calls.push_back(std::string("refused ") + name);
        return answer;
    }
};

class RecordingEngine : public IProfiler {
public:
    struct Answer {
        HRESULT result;
        unsigned int step;
        const char16_t* error;
    };

    HRESULT instrumentResult = S_OK;
    unsigned int stepReached = 12;
    const char16_t* lastError = nullptr;
    // Answers for particular methods, by "[assembly]Class::Method"; the others
    // get the three above.
    std::map<std::string, Answer> answers;
    // Runs once, inside the next instrumentMethod, where the engine's own work
    // could set off another compile on the same thread.
    std::function<void()> duringInstrument;

    // Methods handed to instrumentMethod, in order.
    std::vector<std::string> instrumented;
    // Every operation called, by name.
    std::vector<std::string> calls;
    RecordingBuilder builder;

    IMethodBuilder* getBuilder() override {
        calls.push_back("getBuilder");
        return &builder;
    }
    HRESULT hijackMethod(IMetaDataContext* context) override {
        calls.push_back("hijackMethod " + describeMethod(context));
        return E_NOTIMPL;
    }
    HRESULT instrumentMethod(IMetaDataContext* context, unsigned int* step) override {
        calls.push_back("instrumentMethod");
        instrumented.push_back(describeMethod(context));
        if (std::function<void()> during = std::exchange(duringInstrument, nullptr)) {
            during();
        }
        auto answer = answers.find(instrumented.back());
        if (answer != answers.end()) {
            lastError = answer->second.error;
            *step = answer->second.step;
            return answer->second.result;
        }
        *step = stepReached;
        return instrumentResult;
    }
    void clearHistoryForFunction(IMetaDataContext*) override { calls.push_back("clearHistoryForFunction"); }
    void forgetModule(ModuleID) override { calls.push_back("forgetModule"); }
    void keepOriginalBodies() override { calls.push_back("keepOriginalBodies"); }
    HRESULT restoreOriginalBody(IMetaDataContext* context) override {
        calls.push_back("restoreOriginalBody " + describeMethod(context));
        return S_OK;
    }
    bool usingSyntheticShim() override {
        calls.push_back("usingSyntheticShim");
        return false;
    }
    const char16_t* getLastError() override {
        calls.push_back("getLastError");
        return lastError;
    }

    std::string instrumentedList() const {
        std::string list;
        for (const std::string& method : instrumented) {
            list += method + ";";
        }
        return list;
    }
};
