// Owning pointers. Each holds at most one thing and gives it back on
// destruction or when something else (null included) is assigned:
//  - AutoPointer<T>: an object made with new;
//  - AutoArrayPointer<T>: an array made with new[];
//  - AutoMallocPointer<T>: a block from malloc;
//  - AutoCOMPointer<T>: one reference of an interface (T needs only AddRef and
//    Release). Assigning or constructing from a raw pointer adopts the caller's
//    reference; copying between AutoCOMPointers adds one.
#pragma once

#include <cstdlib>
#include <memory>
#include <utility>

template <typename T, typename Free>
class AutoOwner {
public:
    AutoOwner() = default;
    explicit AutoOwner(T* p) : held(p) {}
    AutoOwner(const AutoOwner&) = delete;
    AutoOwner& operator=(const AutoOwner&) = delete;
    AutoOwner(AutoOwner&& other) noexcept : held(other.detach()) {}
    AutoOwner& operator=(AutoOwner&& other) noexcept {
        if (this != &other) {
            reset(other.detach());
        }
        return *this;
    }
    AutoOwner& operator=(T* p) {
        reset(p);
        return *this;
    }
    ~AutoOwner() { reset(nullptr); }

    T* get() const { return held; }
    operator T*() const { return held; }
    // Gives up ownership without freeing.
    T* detach() { return std::exchange(held, nullptr); }
    void reset(T* p) {
        T* old = std::exchange(held, p);
        if (old != nullptr && old != p) {
            Free::free(old);
        }
    }

protected:
    T* held = nullptr;
};

struct AutoDeleteObject {
    template <typename T>
    static void free(T* p) { delete p; }
};
struct AutoDeleteArray {
    template <typename T>
    static void free(T* p) { delete[] p; }
};
struct AutoFreeBlock {
    template <typename T>
    static void free(T* p) { std::free(const_cast<void*>(static_cast<const void*>(p))); }
};

template <typename T>
class AutoPointer : public AutoOwner<T, AutoDeleteObject> {
public:
    using AutoOwner<T, AutoDeleteObject>::AutoOwner;
    using AutoOwner<T, AutoDeleteObject>::operator=;
    T* operator->() const { return this->held; }
    T& operator*() const { return *this->held; }
};

template <typename T>
class AutoArrayPointer : public AutoOwner<T, AutoDeleteArray> {
public:
    using AutoOwner<T, AutoDeleteArray>::AutoOwner;
    using AutoOwner<T, AutoDeleteArray>::operator=;
};

template <typename T = void>
class AutoMallocPointer : public AutoOwner<T, AutoFreeBlock> {
public:
    using AutoOwner<T, AutoFreeBlock>::AutoOwner;
    using AutoOwner<T, AutoFreeBlock>::operator=;
};

template <typename T>
class AutoCOMPointer {
public:
    AutoCOMPointer() = default;
    explicit AutoCOMPointer(T* p) : held(p) {}
    AutoCOMPointer(const AutoCOMPointer& other) : held(other.held) {
        if (held != nullptr) {
            held->AddRef();
        }
    }
    AutoCOMPointer(AutoCOMPointer&& other) noexcept : held(std::exchange(other.held, nullptr)) {}
    AutoCOMPointer& operator=(const AutoCOMPointer& other) {
        if (other.held != nullptr) {
            other.held->AddRef();
        }
        reset(other.held);
        return *this;
    }
    AutoCOMPointer& operator=(AutoCOMPointer&& other) noexcept {
        if (this != std::addressof(other)) {
            reset(std::exchange(other.held, nullptr));
        }
        return *this;
    }
    AutoCOMPointer& operator=(T* p) {
        reset(p);
        return *this;
    }
    ~AutoCOMPointer() { reset(nullptr); }

    T* get() const { return held; }
    operator T*() const { return held; }
    T* operator->() const { return held; }
    // For out-parameters: releases what is held, then gives the slot to fill.
    T** operator&() {
        reset(nullptr);
        return &held;
    }
    // Gives up the reference without releasing it.
    T* detach() { return std::exchange(held, nullptr); }

private:
    void reset(T* p) {
        T* old = std::exchange(held, p);
        if (old != nullptr) {
            old->Release();
        }
    }

    T* held = nullptr;
};
