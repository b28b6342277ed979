#pragma once

#if __has_include(<atlbase.h>)
#include <atlbase.h>
#else

#include <unknwn.h>

#include <cassert>
#include <utility>

namespace ATL {

/// A counted reference to a COM object, for toolchains without <atlbase.h>. Every operation that drops a
/// reference clears the pointer first, so that a destructor that comes back here finds it gone.
template <class T>
class CComPtr {
public:
    CComPtr() noexcept = default;
    CComPtr(std::nullptr_t) noexcept {}
    CComPtr(T* object) noexcept : p(object) { addRef(); }
    CComPtr(const CComPtr& other) noexcept : p(other.p) { addRef(); }
    CComPtr(CComPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    ~CComPtr() { Release(); }

    CComPtr& operator=(T* object) noexcept {
        if (p != object) {
            CComPtr(object).swap(*this);
        }
        return *this;
    }
    CComPtr& operator=(const CComPtr& other) noexcept { return *this = other.p; }
    /// Leaves the source null, unless both hold the same object: then neither changes.
    CComPtr& operator=(CComPtr&& other) noexcept {
        if (p != other.p) {
            CComPtr(std::move(other)).swap(*this);
        }
        return *this;
    }

    operator T*() const noexcept { return p; }
    T& operator*() const {
        assert(p != nullptr);
        return *p;
    }
    T* operator->() const {
        assert(p != nullptr);
        return p;
    }
    /// For functions that return an object through a pointer; the pointer must be null.
    T** operator&() {
        assert(p == nullptr);
        return &p;
    }
    bool operator!() const noexcept { return p == nullptr; }
    bool operator==(T* object) const noexcept { return p == object; }
    bool operator==(const CComPtr& other) const noexcept { return p == other.p; }
    bool operator<(T* object) const noexcept { return p < object; }

    void Release() noexcept {
        if (T* const old = std::exchange(p, nullptr)) {
            old->Release();
        }
    }
    /// Takes over a reference that the caller holds.
    void Attach(T* object) noexcept {
        if (T* const old = std::exchange(p, object)) {
            old->Release();
        }
    }
    /// Gives the reference to the caller.
    T* Detach() noexcept { return std::exchange(p, nullptr); }
    /// Stores a new reference in *target.
    HRESULT CopyTo(T** target) const noexcept {
        assert(target != nullptr);
        if (target == nullptr) {
            return E_POINTER;
        }
        *target = p;
        addRef();
        return S_OK;
    }
    /// Whether both are interfaces of one COM object; two nulls are the same.
    bool IsEqualObject(IUnknown* other) const noexcept {
        if (p == nullptr || other == nullptr) {
            return p == nullptr && other == nullptr;
        }
        CComPtr<IUnknown> mine;
        CComPtr<IUnknown> theirs;
        p->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&mine));
        other->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&theirs));
        return mine == theirs;
    }

    T* p = nullptr;

private:
    void addRef() const noexcept {
        if (p != nullptr) {
            p->AddRef();
        }
    }
    void swap(CComPtr& other) noexcept { std::swap(p, other.p); }
};

}  // namespace ATL

#endif
