#include "common/KzComn_Exception.h"

#include <cstring>

namespace KzCommon::Storage {

const char* ModuleOf(const std::source_location& where) noexcept
{
    const char* szName = where.file_name();
    for (const char* sz = szName; *sz; ++sz) {
        if (*sz == '/' || *sz == '\\') szName = sz + 1;
    }
    return szName;
}

void Throw(DWORD dwCode, const std::source_location& where)
{
    throw new Exception(dwCode, ModuleOf(where), static_cast<unsigned>(where.line()));
}

}  // namespace KzCommon::Storage
