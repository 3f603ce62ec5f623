// Passwords and the like in the texts of an update.
#pragma once

#include "check/lint/Report.h"
#include "check/update/Instructions.h"

#include <optional>
#include <string>
#include <string_view>

namespace Check {

/// Whether a value of that name is a secret, by the last word of the name: "ProxyPassword", "api_token", but not
/// "PasswordLength".
[[nodiscard]] bool IsSecretName(std::wstring_view tstrName);

/// Where a text gives a secret away: after "password=", "/token:" or the like. Nothing when it does not.
[[nodiscard]] std::optional<std::size_t> FindSecret(std::wstring_view tstrText);

/// The place of a password that a command gives to a program of Windows without naming it: "net user NAME PASSWORD".
[[nodiscard]] std::optional<std::size_t> FindGivenPassword(std::wstring_view tstrCommand);

/// B064 of a named field of the instruction file.
void CheckSecret(std::wstring_view tstrName, const Field& value, Report& report);

}  // namespace Check
