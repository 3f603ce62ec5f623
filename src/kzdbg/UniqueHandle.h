// Owner of a kernel or file handle.
#pragma once

#include <windows.h>

#include <memory>

namespace KzDbg {

struct HandleCloser {
    void operator()(void* handle) const noexcept { ::CloseHandle(handle); }
};

/// Null when there is none: INVALID_HANDLE_VALUE is turned into null by whoever fills it.
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

}  // namespace KzDbg
