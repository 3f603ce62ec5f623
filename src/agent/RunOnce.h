// The run-once commands of the instruction file.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// The registry key of the commands that Windows runs once, below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kRunOnceKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";

/// Whether a command installs the touchpad's keyboard filter.
[[nodiscard]] bool IsKeyboardFilterCommand(const std::wstring& tstrCommand);

/// The registry record that registers a command with expanded placeholders under a value name.
[[nodiscard]] std::wstring MakeRunOnceRecord(const std::wstring& tstrName, const std::wstring& tstrExpanded);

/// Registers the commands of the section "Run", except the keyboard filter's on a machine with an old touchpad driver.
void PostRunScript(const RunContext& run);

/// Registers one command with expanded placeholders, under a unique name, to run once after the next restart.
void RegisterSysRunOnce(const RunContext& run, const std::wstring& tstrCommand);
