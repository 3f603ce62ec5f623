# Which compiler builds, for scripts that name its programs, sourced; cmake/mingw-w64-toolchain.cmake reads the same
# variable. BREVANT_TOOLCHAIN=ucrt: the C runtime that is part of Windows 10, which Debian has a compiler for from 13 on.
# Otherwise msvcrt, which every Windows has.
if [[ "${BREVANT_TOOLCHAIN:-msvcrt}" == ucrt ]]; then
    kTarget=x86_64-w64-mingw32ucrt kThreads=''
    # The tests look at the programs with the other one's objdump, which reads both.
    kToolchainPackages='
binutils-mingw-w64-x86-64       /usr/bin/x86_64-w64-mingw32-objdump
g++-mingw-w64-ucrt64            /usr/bin/x86_64-w64-mingw32ucrt-g++
mingw-w64-ucrt64-dev            /usr/x86_64-w64-mingw32ucrt/include/windows.h'
else
    kTarget=x86_64-w64-mingw32 kThreads=-posix
    kToolchainPackages='
g++-mingw-w64-x86-64-posix      /usr/bin/x86_64-w64-mingw32-g++-posix
mingw-w64-x86-64-dev            /usr/x86_64-w64-mingw32/include/windows.h'
fi
