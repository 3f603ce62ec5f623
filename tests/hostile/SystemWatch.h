// What the code under test asks the system to change.
#pragma once

#include <functional>
#include <string>
#include <string_view>

/// Judges one call by the name of its Windows function and the file, folder or key that it is about: false when nothing
/// allows the code under test to touch that place.
using Judge = std::function<bool(std::string_view strCall, const std::wstring& tstrPlace)>;

/// While it lives, puts every call that changes or lists files, folders or keys before a judge, in the executable that
/// it is linked into: it stands in the place of the import table. A call that the judge refuses fails the test. No call
/// outside the sandbox folder, and no delayed move at all, reaches the system. Every special folder of the shell is the
/// sandbox's folder "Shell". One at a time.
class SystemWatch {
public:
    SystemWatch(const std::wstring& tstrSandbox, const Judge& judge);
    SystemWatch(const SystemWatch&) = delete;
    SystemWatch& operator=(const SystemWatch&) = delete;
    ~SystemWatch();
};

/// How many calls have been judged in all.
[[nodiscard]] unsigned CountJudged() noexcept;
