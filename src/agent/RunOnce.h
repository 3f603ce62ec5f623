// The run-once commands of the instruction file.
#pragma once

#include "agent/RunContext.h"

#include <string>

/// Where Windows looks for commands to run once, below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kRunOnceKey[] = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\RunOnce";

/// Whether a command belongs to the touchpad's keyboard filter.
[[nodiscard]] bool IsKeyboardFilterCommand(const std::wstring& tstrCommand);

/// The registry record that registers a command, placeholders expanded, under a value name.
[[nodiscard]] std::wstring MakeRunOnceRecord(const std::wstring& tstrName, const std::wstring& tstrExpanded);

/// Registers the commands of the section "Run", the keyboard filter's left out on a machine that the touchpad check
/// calls affected.
void PostRunScript(const RunContext& run);

/// Registers one command to run once after the next restart, placeholders expanded, under a name of its own.
void RegisterSysRunOnce(const RunContext& run, const std::wstring& tstrCommand);
