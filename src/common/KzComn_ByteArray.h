// An owned run of bytes.
#pragma once

#include "common/KzComn_Exception.h"

#include <cstddef>
#include <memory>
#include <new>

namespace KzCommon {

/// An owned heap buffer and its size in bytes. It must be freed before it can be allocated again.
class ByteArray {
public:
    /// Allocates `cb` zeroed bytes. Throws Storage::Exception: ERROR_OBJECT_ALREADY_EXISTS (5010) if a buffer is
    /// already allocated, ERROR_INVALID_HANDLE (6) when memory runs out.
    void Allocate(std::size_t cb)
    {
        if (m_data) Storage::Throw(ERROR_OBJECT_ALREADY_EXISTS);
        m_data.reset(new (std::nothrow) BYTE[cb]());
        if (!m_data) Storage::Throw(ERROR_INVALID_HANDLE);
        m_cb = cb;
    }
    void Free() noexcept
    {
        m_data.reset();
        m_cb = 0;
    }
    [[nodiscard]] BYTE* Data() noexcept { return m_data.get(); }
    [[nodiscard]] const BYTE* Data() const noexcept { return m_data.get(); }
    /// Size in bytes.
    [[nodiscard]] std::size_t Size() const noexcept { return m_cb; }

private:
    std::unique_ptr<BYTE[]> m_data;
    std::size_t m_cb = 0;
};

}  // namespace KzCommon
