#pragma once

#include <cstdlib>
#include <memory>

namespace vantalo {

// xcb hands its replies, errors and key-code lists to the caller, who frees them with free().
template<typename T> using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

template<typename T> XcbReply<T> xcbReply(T* raw)
{
    return XcbReply<T>(raw, &std::free);
}

} // namespace vantalo
