// Owning handles for objects that have a destroy function of their own, and
// th_out, which lets such a handle receive an object through a T ** argument.
#pragma once

#include <memory>

template <auto Destroy>
struct th_destroyer {
    template <class T>
    void operator()(T *object) const noexcept {
        Destroy(object);
    }
};

// Calls Destroy(object) when it goes out of scope.
template <class T, auto Destroy>
using th_handle = std::unique_ptr<T, th_destroyer<Destroy>>;

// The temporary behind th_out: holds the raw pointer for the length of a call
// and gives it to the handle at the end of the full expression.
template <class Handle>
class th_out_pointer {
public:
    explicit th_out_pointer(Handle &handle) : handle_(handle) {}
    th_out_pointer(const th_out_pointer &) = delete;
    th_out_pointer &operator=(const th_out_pointer &) = delete;
    ~th_out_pointer() { handle_.reset(raw_); }
    operator typename Handle::pointer *() { return &raw_; }

private:
    Handle &handle_;
    typename Handle::pointer raw_ = nullptr;
};

// create(..., th_out(handle)): use the handle in the next statement only, since
// it is set when the statement with th_out ends.
template <class Handle>
[[nodiscard]] th_out_pointer<Handle> th_out(Handle &handle) {
    return th_out_pointer<Handle>(handle);
}
