// The two habits that every user of COM needs: the thread's apartment for the time of a call, and an owned interface.
#pragma once

#include <windows.h>

#include <objbase.h>

namespace pal {

// Makes COM usable in this thread while it lives. A thread that already runs COM in another mode keeps that mode.
class ComApartment {
public:
    ComApartment() : entered_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}

    ~ComApartment() {
        if (entered_) CoUninitialize();
    }

    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

private:
    bool entered_;
};

// Owns one reference.
template <class T>
class ComPointer {
public:
    ComPointer() = default;

    ~ComPointer() {
        if (pointer_) pointer_->Release();
    }

    ComPointer(const ComPointer&) = delete;
    ComPointer& operator=(const ComPointer&) = delete;

    T* operator->() const { return pointer_; }

    T* Get() const { return pointer_; }

    // Where a call that returns an interface writes it.
    void** Out() { return reinterpret_cast<void**>(&pointer_); }

    // Gives the reference away.
    T* Take() {
        T* taken = pointer_;
        pointer_ = nullptr;
        return taken;
    }

private:
    T* pointer_ = nullptr;
};

}   // namespace pal
