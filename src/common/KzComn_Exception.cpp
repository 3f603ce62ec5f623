#include "common/KzComn_Exception.h"

#include "common/KzComn_String.h"

namespace KzCommon::Storage {

void Throw(DWORD dwCode, const std::source_location& where)
{
    throw new Exception(dwCode, String::BaseName(where.file_name()), static_cast<unsigned>(where.line()));
}

}  // namespace KzCommon::Storage
