// What every call of the codec needs of COM: the thread's apartment, owned interfaces, names as UTF-16, and words for a
// result code.
#pragma once

#include <exception>
#include <string>
#include <utility>

#include <windows.h>

#include <objbase.h>

#include <wincodec.h>

#include "modules/stills/Codec.h"

namespace stills {

// Makes COM usable in this thread while it lives. A thread that already runs COM in another mode keeps that mode: the
// imaging component serves both.
class Apartment {
public:
    Apartment() : entered_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}

    ~Apartment() {
        if (entered_) CoUninitialize();
    }

    Apartment(const Apartment&) = delete;
    Apartment& operator=(const Apartment&) = delete;

private:
    bool entered_;
};

// Owns one reference.
template <class T>
class Owned {
public:
    Owned() = default;

    ~Owned() { Reset(); }

    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;

    T* operator->() const { return pointer_; }

    T* Get() const { return pointer_; }

    // Where a call that returns an interface writes it.
    T** Out() {
        Reset();
        return &pointer_;
    }

    void** OutAny() { return reinterpret_cast<void**>(Out()); }

private:
    void Reset() {
        if (pointer_) std::exchange(pointer_, nullptr)->Release();
    }

    T* pointer_ = nullptr;
};

// The code that a step of the imaging component failed with; thrown inside the codec, caught at its calls.
struct Failed {
    HRESULT code;
};

inline void Check(HRESULT code) {
    if (FAILED(code)) throw Failed{code};
}

// What failed in words for a person.
Problem Explain(HRESULT code);

// UTF-8 as UTF-16; throws ERROR_INVALID_NAME's code when it is no valid UTF-8 or empty.
std::wstring Widen(const char* text);

// Runs `work` with COM at hand; what it throws becomes the problem.
template <class Work>
bool Attempt(Problem& problem, Work work) {
    try {
        Apartment apartment;
        work();
        return true;
    } catch (const Failed& failed) {
        problem = Explain(failed.code);
    } catch (const std::exception&) {
        problem = Explain(E_OUTOFMEMORY);
    }
    return false;
}

// The component's factory; the thread's apartment must be entered.
void MakeFactory(Owned<IWICImagingFactory>& factory);

}   // namespace stills
