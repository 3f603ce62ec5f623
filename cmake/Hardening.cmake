# The flags of everything that is shipped: the project's own targets (BuildOptions.cmake) and its dependencies.
set(kPlatformDefinitions _WIN32_WINNT=0x0A00 WINVER=0x0A00)

# Line numbers only. A release stores them separately from the programs (tools/release.sh).
set(kShippedCompileFlags -g1 -fstack-protector-strong -ffunction-sections -fdata-sections)
set(kShippedLinkFlags
    -static -fstack-protector-strong
    -Wl,--dynamicbase,--nxcompat,--high-entropy-va,--gc-sections
    -Wl,--major-os-version=10,--minor-os-version=0,--major-subsystem-version=10,--minor-subsystem-version=0)
